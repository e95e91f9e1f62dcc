#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

constexpr char const host[] = "www.example.org";
constexpr char const address[] = "192.0.2.7";

Mutation withNames(std::string const& alternativeNames)
{
    return [=](CertificateSpec& spec) { spec.setExtension("subjectAltName", alternativeNames); };
}

Mutation withKey(KeyHandle const& key)
{
    return [=](CertificateSpec& spec) { spec.key = key; };
}

Certificate toolkitCertificate(CertificateAndKey const& made)
{
    return Certificate::fromX509(made.certificate.get());
}

std::vector<Certificate> toolkitCertificates(std::vector<CertificateAndKey> const& made)
{
    std::vector<Certificate> certificates;
    for (auto const& one : made) {
        certificates.push_back(toolkitCertificate(one));
    }
    return certificates;
}

std::vector<std::string> subjectsOf(std::vector<Certificate> const& certificates)
{
    std::vector<std::string> subjects;
    for (auto const& certificate : certificates) {
        subjects.push_back(certificate.getSubject());
    }
    return subjects;
}

using Subjects = std::vector<std::string>;

/// A P-256 leaf, a P-384 intermediate and an RSA root: the library's own validation refuses the intermediate.
struct ServerChain
{
    explicit ServerChain(
        KeyHandle const& rootKey = rsaKey(), Mutation const& mutateLeaf = withNames("DNS:www.example.org"))
        : root(makeRoot("root", withKey(rootKey))),
          intermediate(makeIntermediate(root, "intermediate", withKey(p384Key("intermediate")))),
          leaf(makeLeaf(intermediate, "leaf", mutateLeaf)),
          context(makeTLSServer(leaf.certificate, leaf.key, {intermediate.certificate}))
    {}

    std::vector<Certificate> roots() const { return {toolkitCertificate(root)}; }

    CertificateAndKey root;
    CertificateAndKey intermediate;
    CertificateAndKey leaf;
    TLSContextHandle context;
};

ServerChain const& serverChain()
{
    static ServerChain const chain;
    return chain;
}

/// Returns a client that checks nothing yet.
TLSContextHandle openClient()
{
    return makeTLSContext(TLS_client_method());
}

TLSContextHandle clientTrusting(std::vector<Certificate> const& roots)
{
    auto client = openClient();
    requirePeerCertificate(client.get(), roots);
    return client;
}

TLSContextHandle clientTrusting(TrustStore const& trustStore)
{
    auto client = openClient();
    requirePeerCertificate(client.get(), trustStore);
    return client;
}

std::function<void(SSL*)> expecting(std::string const& hostOrAddress)
{
    return [=](SSL* connection) { expectPeer(connection, hostOrAddress); };
}

/// Expects that the client ends the handshake because of the server's certificate.
void expectRefusal(int expectedCode, TLSConnections const& connections)
{
    EXPECT_FALSE(connections.isComplete);
    EXPECT_EQ(SSL_get_verify_result(connections.client.get()), expectedCode);
}

TrustStore storeWith(CertificateAndKey const& root)
{
    TrustStore store;
    store.addCertificate(X509Certificate(root.der()));
    return store;
}

int acceptEverything(int /*verdict*/, X509_STORE_CTX* /*context*/)
{
    return 1;
}

int acceptWithoutVerification(X509_STORE_CTX* /*context*/, void* /*argument*/)
{
    return 1;
}

struct NameRow
{
    std::string alternativeNames;
    std::string expectedPeer;
    int code;
};

std::vector<NameRow> nameRows()
{
    constexpr int otherHost = X509_V_ERR_HOSTNAME_MISMATCH;
    constexpr int otherAddress = X509_V_ERR_IP_ADDRESS_MISMATCH;
    return {
        {"DNS:www.example.org", "www.example.org", X509_V_OK},
        {"DNS:www.example.org", "WWW.Example.ORG", X509_V_OK},
        {"DNS:a.example.org,DNS:www.example.org", "www.example.org", X509_V_OK},
        {"DNS:*.example.org", "www.example.org", X509_V_OK},
        {"DNS:xn--mnchen-3ya.example", "xn--mnchen-3ya.example", X509_V_OK},
        {"DNS:www.example.org", "example.org", otherHost},
        {"DNS:www.example.org", "www.example.net", otherHost},
        {"DNS:*.example.org", "example.org", otherHost},
        {"DNS:*.example.org", "a.www.example.org", otherHost},
        {"DNS:w*.example.org", "www.example.org", otherHost},
        {"DNS:*w.example.org", "www.example.org", otherHost},
        {"DNS:www.*.org", "www.example.org", otherHost},
        {"email:www.example.org", "www.example.org", otherHost},
        {"IP:192.0.2.7", "192.0.2.7", X509_V_OK},
        {"IP:2001:db8::7", "2001:db8::7", X509_V_OK},
        {"IP:2001:db8::7", "2001:0DB8:0:0::7", X509_V_OK},
        {"IP:192.0.2.7", "192.0.2.8", otherAddress},
        {"DNS:192.0.2.7", "192.0.2.7", otherAddress},
        {"DNS:*.0.2.7", "192.0.2.7", otherAddress},
        {"IP:192.0.2.7", "www.example.org", otherHost},
    };
}

} // namespace

// Reading the certificates

TEST(TLSPeer, ClientReadsWhatServerSentAndWhatWasVerified)
{
    auto const& server = serverChain();
    auto const connections = connected(clientTrusting(server.roots()), server.context, expecting(host));
    ASSERT_TRUE(connections.isComplete);
    SSL const* const client = connections.client.get();

    EXPECT_EQ(peerCertificate(client), toolkitCertificate(server.leaf));
    EXPECT_EQ(peerIntermediates(client), toolkitCertificates({server.intermediate}));
    EXPECT_EQ(verifiedChain(client), toolkitCertificates({server.leaf, server.intermediate, server.root}));
}

TEST(TLSPeer, ServerReadsWhatClientSentAndWhatWasVerified)
{
    auto const& server = serverChain();
    auto const context = makeTLSServer(server.leaf.certificate, server.leaf.key);
    requirePeerCertificate(context.get(), server.roots());
    auto const client = openClient();
    require(SSL_CTX_use_certificate(client.get(), server.leaf.certificate.get()));
    require(SSL_CTX_use_PrivateKey(client.get(), server.leaf.key.get()));
    require(SSL_CTX_add1_chain_cert(client.get(), server.intermediate.certificate.get()));
    auto const connections = connected(client, context);
    ASSERT_TRUE(connections.isComplete);
    SSL const* const ofServer = connections.server.get();

    EXPECT_EQ(peerCertificate(ofServer), toolkitCertificate(server.leaf));
    EXPECT_EQ(peerIntermediates(ofServer), toolkitCertificates({server.intermediate}));
    EXPECT_EQ(verifiedChain(ofServer), toolkitCertificates({server.leaf, server.intermediate, server.root}));
}

TEST(TLSPeer, IntermediatesKeepTheOrderInWhichTheyWereSent)
{
    auto const& server = serverChain();
    auto const other = makeRoot("other");
    auto const context = makeTLSServer(
        server.leaf.certificate, server.leaf.key,
        {server.root.certificate, server.intermediate.certificate, other.certificate});
    auto const connections = connected(openClient(), context);
    ASSERT_TRUE(connections.isComplete);

    EXPECT_EQ(
        subjectsOf(peerIntermediates(connections.client.get())),
        (Subjects{"CN=root", "CN=intermediate", "CN=other"}));
}

TEST(TLSPeer, IntermediatesExcludeLeafThatWasSentTwice)
{
    auto const& server = serverChain();
    auto const context = makeTLSServer(
        server.leaf.certificate, server.leaf.key, {server.leaf.certificate, server.intermediate.certificate});
    auto const connections = connected(openClient(), context);
    ASSERT_TRUE(connections.isComplete);

    EXPECT_EQ(subjectsOf(peerIntermediates(connections.client.get())), Subjects{"CN=intermediate"});
}

TEST(TLSPeer, ConnectionBeforeHandshakeHasNoCertificates)
{
    auto const connections = makeConnections(openClient(), serverChain().context);

    EXPECT_EQ(peerCertificate(connections.client.get()), std::nullopt);
    EXPECT_EQ(peerIntermediates(connections.client.get()), std::vector<Certificate>());
    EXPECT_EQ(verifiedChain(connections.client.get()), std::vector<Certificate>());
}

TEST(TLSPeer, ClientWithoutCertificateHasNone)
{
    auto const connections = connected(openClient(), serverChain().context);
    ASSERT_TRUE(connections.isComplete);

    EXPECT_EQ(peerCertificate(connections.server.get()), std::nullopt);
    EXPECT_EQ(peerIntermediates(connections.server.get()), std::vector<Certificate>());
    EXPECT_EQ(verifiedChain(connections.server.get()), std::vector<Certificate>());
}

TEST(TLSPeer, VerifiedChainIsEmptyAfterFailureThatWasIgnored)
{
    auto const connections = connected(openClient(), serverChain().context);
    ASSERT_TRUE(connections.isComplete);
    SSL const* const client = connections.client.get();

    EXPECT_EQ(SSL_get_verify_result(client), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
    EXPECT_EQ(peerCertificate(client), toolkitCertificate(serverChain().leaf));
    EXPECT_EQ(verifiedChain(client), std::vector<Certificate>());
}

TEST(TLSPeer, ResumedSessionHasPeerAndNoVerifiedChain)
{
    auto const& server = serverChain();
    auto const client = clientTrusting(server.roots());
    require(SSL_CTX_set_min_proto_version(client.get(), TLS1_2_VERSION));
    require(SSL_CTX_set_max_proto_version(client.get(), TLS1_2_VERSION));
    auto const context =
        makeTLSServer(server.leaf.certificate, server.leaf.key, {server.intermediate.certificate});
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION));
    auto const first = connected(client, context);
    ASSERT_TRUE(first.isComplete);
    std::shared_ptr<SSL_SESSION> const session(SSL_get1_session(first.client.get()), SSL_SESSION_free);
    SSL_shutdown(first.client.get());

    auto const second = connected(
        client, context, [&](SSL* connection) { require(SSL_set_session(connection, session.get())); });

    ASSERT_TRUE(second.isComplete);
    ASSERT_EQ(SSL_session_reused(second.client.get()), 1);
    EXPECT_EQ(peerCertificate(second.client.get()), toolkitCertificate(server.leaf));
    EXPECT_EQ(peerIntermediates(second.client.get()), toolkitCertificates({server.intermediate}));
    EXPECT_EQ(verifiedChain(second.client.get()), std::vector<Certificate>());
}

TEST(TLSPeer, CertificateOutlivesConnection)
{
    auto connections = connected(openClient(), serverChain().context);
    auto const peer = peerCertificate(connections.client.get());
    connections = {};

    ASSERT_TRUE(peer.has_value());
    EXPECT_EQ(peer->getSubject(), "CN=leaf");
}

// Trust

TEST(RequirePeerCertificate, AcceptsP384IntermediateAndRootsOfAnyKey)
{
    for (auto const& rootKey : {rsaKey(), p384Key("root"), p521Key("root"), ed25519Key("root")}) {
        ServerChain const server(rootKey);
        auto const connections = connected(clientTrusting(server.roots()), server.context, expecting(host));
        SCOPED_TRACE(toolkitCertificate(server.root).getKeyKind());
        EXPECT_TRUE(connections.isComplete);
        EXPECT_EQ(SSL_get_verify_result(connections.client.get()), X509_V_OK);
    }
}

TEST(RequirePeerCertificate, AcceptsTrustStore)
{
    auto const& server = serverChain();
    auto const connections =
        connected(clientTrusting(storeWith(server.root)), server.context, expecting(host));

    EXPECT_TRUE(connections.isComplete);
}

#ifndef _WIN32 // there the system's roots are not in a file
TEST(RequirePeerCertificate, AcceptsP384RootOfTrustStore)
{
    ServerChain const server(p384Key("root"));
    TemporaryFolder const folder;
    ScopedVariable const file("SSL_CERT_FILE", folder.write("roots.pem", server.root.pem()).string());
    TrustStore roots;
    roots.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
    auto const connections = connected(clientTrusting(roots), server.context, expecting(host));

    EXPECT_TRUE(connections.isComplete);
}
#endif

TEST(RequirePeerCertificate, RefusesOtherRoot)
{
    auto const connections =
        connected(clientTrusting(toolkitCertificates({makeRoot("other")})), serverChain().context);

    expectRefusal(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, connections);
}

TEST(RequirePeerCertificate, EmptySetsTrustNobody)
{
    auto const& server = serverChain();
    TrustStore movedFrom = storeWith(server.root);
    TrustStore const target(std::move(movedFrom));
    std::vector<TLSContextHandle> const clients = {
        clientTrusting(std::vector<Certificate>()), clientTrusting(TrustStore()), clientTrusting(movedFrom)};
    for (auto const& client : clients) {
        expectRefusal(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, connected(client, server.context));
    }
}

TEST(RequirePeerCertificate, EmptyTrustStoreReplacesEarlierOne)
{
    auto const& server = serverChain();
    auto const client = clientTrusting(server.roots());
    requirePeerCertificate(client.get(), TrustStore());

    expectRefusal(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, connected(client, server.context));
}

TEST(RequirePeerCertificate, RemovesCallbacksThatAcceptEverybody)
{
    auto const client = openClient();
    SSL_CTX_set_verify(client.get(), SSL_VERIFY_NONE, acceptEverything);
    SSL_CTX_set_cert_verify_callback(client.get(), acceptWithoutVerification, nullptr);
    requirePeerCertificate(client.get(), TrustStore());

    expectRefusal(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, connected(client, serverChain().context));
}

TEST(RequirePeerCertificate, LaterChangeOfTrustStoreHasNoEffect)
{
    auto const& server = serverChain();
    TrustStore trustStore;
    auto const client = clientTrusting(trustStore);
    trustStore.addCertificate(X509Certificate(server.root.der()));

    expectRefusal(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, connected(client, server.context));
}

TEST(RequirePeerCertificate, ServerRefusesClientWithoutCertificate)
{
    auto const& server = serverChain();
    auto const context = makeTLSServer(server.leaf.certificate, server.leaf.key);
    requirePeerCertificate(context.get(), server.roots());

    EXPECT_FALSE(connected(openClient(), context).isComplete);
}

TEST(RequirePeerCertificate, RefusesNullContext)
{
    constexpr char const text[] = "The pointer to the TLS context is null.";
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, requirePeerCertificate(nullptr, TrustStore()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, requirePeerCertificate(nullptr, std::vector<Certificate>()));
}

TEST(RequirePeerCertificate, ThreadsShareContext)
{
    auto const& server = serverChain();
    auto const client = clientTrusting(server.roots());
    constexpr int numThreads = 4;
    inParallel(numThreads, [&](int) {
        auto const connections = connected(client, server.context, expecting(host));
        EXPECT_TRUE(connections.isComplete);
        EXPECT_EQ(
            subjectsOf(verifiedChain(connections.client.get())),
            (Subjects{"CN=leaf", "CN=intermediate", "CN=root"}));
    });
}

// Names

TEST(ExpectPeer, ComparesAlternativeNames)
{
    for (auto const& row : nameRows()) {
        SCOPED_TRACE(row.alternativeNames + " and " + row.expectedPeer);
        ServerChain const server(rsaKey(), withNames(row.alternativeNames));
        auto const connections =
            connected(clientTrusting(server.roots()), server.context, expecting(row.expectedPeer));
        EXPECT_EQ(connections.isComplete, row.code == X509_V_OK);
        EXPECT_EQ(SSL_get_verify_result(connections.client.get()), row.code);
    }
}

TEST(ExpectPeer, IgnoresCommonName)
{
    for (std::string const alternativeNames : {"", "email:a@example.org"}) {
        ServerChain const server(rsaKey(), [&](CertificateSpec& spec) {
            spec.subject = commonName(host);
            if (!alternativeNames.empty()) {
                spec.setExtension("subjectAltName", alternativeNames);
            }
        });
        expectRefusal(
            X509_V_ERR_HOSTNAME_MISMATCH,
            connected(clientTrusting(server.roots()), server.context, expecting(host)));
    }
}

TEST(ExpectPeer, LastExpectationCounts)
{
    ServerChain const both(rsaKey(), withNames("DNS:www.example.org"));
    ServerChain const onlyAddress(rsaKey(), withNames("IP:192.0.2.7"));
    auto const expectHostLast = [](SSL* connection) {
        expectPeer(connection, "other.example.org");
        expectPeer(connection, address);
        expectPeer(connection, host);
    };
    auto const expectAddressLast = [](SSL* connection) {
        expectPeer(connection, host);
        expectPeer(connection, address);
    };

    EXPECT_TRUE(connected(clientTrusting(both.roots()), both.context, expectHostLast).isComplete);
    expectRefusal(
        X509_V_ERR_IP_ADDRESS_MISMATCH,
        connected(clientTrusting(both.roots()), both.context, expectAddressLast));
    EXPECT_TRUE(
        connected(clientTrusting(onlyAddress.roots()), onlyAddress.context, expectAddressLast).isComplete);
}

TEST(ExpectPeer, RequiresTrustedCertificateByItself)
{
    expectRefusal(
        X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
        connected(openClient(), serverChain().context, expecting(host)));
}

TEST(ExpectPeer, SendsHostNameAndNoAddress)
{
    auto const& server = serverChain();
    auto const sentName = [&](std::function<void(SSL*)> const& prepare) {
        auto const connections = connected(clientTrusting(server.roots()), server.context, prepare);
        char const* const name = SSL_get_servername(connections.server.get(), TLSEXT_NAMETYPE_host_name);
        return std::string(name == nullptr ? "none" : name);
    };

    EXPECT_EQ(sentName(expecting(host)), host);
    EXPECT_EQ(sentName(expecting(address)), "none");
    EXPECT_EQ(sentName(expecting("2001:db8::7")), "none");
    EXPECT_EQ(
        sentName([](SSL* connection) {
            expectPeer(connection, host);
            expectPeer(connection, address);
        }),
        "none");
}

TEST(ExpectPeer, RefusesUnusableNames)
{
    auto const connections = makeConnections(openClient(), serverChain().context);
    SSL* const client = connections.client.get();

    EXPECT_THROWS_EXACTLY(InvalidArgument, "The host name is empty.", expectPeer(client, ""));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name contains a NUL character.",
        expectPeer(client, std::string("www.example.org\0.example.net", 28)));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name contains a NUL character.",
        expectPeer(client, std::string("192.0.2.7\0", 10)));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name is not ASCII. Write an international name in its A-labels.",
        expectPeer(client, "m\xC3\xBCnchen.example"));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name begins with a dot.", expectPeer(client, ".example.org"));
    std::string const label(63, 'a');
    EXPECT_NO_THROW(expectPeer(client, label + "." + label + "." + label + "." + label)); // 255 characters
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name is longer than 255 characters.",
        expectPeer(client, std::string(256, 'a')));
}

TEST(ExpectPeer, RefusesNamesThatOpenSSL4Refuses)
{
    ServerChain const server(rsaKey(), withNames("IP:192.0.2.7"));
    for (auto const* const name : {"192.0.2.7.", "[192.0.2.7]"}) {
        SCOPED_TRACE(name);
        auto const connect = [&] {
            return connected(clientTrusting(server.roots()), server.context, expecting(name));
        };
        if (OPENSSL_VERSION_MAJOR < 4) {
            expectRefusal(X509_V_ERR_HOSTNAME_MISMATCH, connect());
        } else {
            EXPECT_THROWS_EXACTLY(InvalidArgument, "OpenSSL refuses the host name.", connect());
        }
    }
}

TEST(ExpectPeer, RefusedNameKeepsEarlierExpectation)
{
    auto const& server = serverChain();
    auto const prepare = [](SSL* connection) {
        expectPeer(connection, "other.example.org");
        EXPECT_THROW(expectPeer(connection, ""), InvalidArgument);
    };

    expectRefusal(
        X509_V_ERR_HOSTNAME_MISMATCH, connected(clientTrusting(server.roots()), server.context, prepare));
}

TEST(ExpectPeer, RefusesHandshakeThatHasBegun)
{
    constexpr char const text[] = "The TLS handshake has already begun.";
    auto const& server = serverChain();
    auto connections = makeConnections(clientTrusting(server.roots()), server.context);
    SSL_do_handshake(connections.client.get());
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, expectPeer(connections.client.get(), host));

    shakeHands(connections);
    EXPECT_TRUE(connections.isComplete);
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, expectPeer(connections.client.get(), host));
}

TEST(TLSPeer, NullConnectionIsRefused)
{
    constexpr char const text[] = "The pointer to the TLS connection is null.";
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, peerCertificate(nullptr));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, peerIntermediates(nullptr));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, verifiedChain(nullptr));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, expectPeer(nullptr, host));
}

TEST(TLSPeer, ErrorQueueStaysAsItWas)
{
    auto const& server = serverChain();
    auto const connections = connected(clientTrusting(server.roots()), server.context, expecting(host));
    auto const fresh = makeConnections(openClient(), server.context);
    auto const client = openClient();
    auto const storeOfRoot = storeWith(server.root);
    SSL* const connection = connections.client.get();
    std::vector<std::function<void()>> const operations = {
        [&] { peerCertificate(connection); },
        [&] { peerIntermediates(connection); },
        [&] { verifiedChain(connection); },
        [&] { requirePeerCertificate(client.get(), server.roots()); },
        [&] { requirePeerCertificate(client.get(), storeOfRoot); },
        [&] { expectPeer(fresh.client.get(), host); },
        [&] { expectPeer(fresh.client.get(), address); },
        [&] { EXPECT_THROW(expectPeer(fresh.client.get(), ""), InvalidArgument); },
    };
    for (auto const& operation : operations) {
        CleanErrorQueue const clean;
        operation();
        static_cast<void>(drainErrorQueue());
        auto const foreign = queueForeignError();
        operation();
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    }
}
