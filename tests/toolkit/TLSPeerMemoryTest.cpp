#include "support/allocation/AllocationFailure.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

struct Material
{
    CertificateAndKey root = makeRoot("root");
    CertificateAndKey leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setExtension("subjectAltName", "DNS:www.example.org");
    });
    TLSContextHandle server = makeTLSServer(leaf.certificate, leaf.key, {root.certificate});
    std::vector<Certificate> roots = {Certificate::fromDER(root.der())};
};

Material const& material()
{
    static Material const made;
    return made;
}

/// A connection after its handshake, whose certificates nothing has read yet.
struct Connected : Unchanging
{
    TLSConnections ends;
};

Connected makeConnected()
{
    auto const client = makeTLSContext(TLS_client_method());
    requirePeerCertificate(client.get(), material().roots);
    return {{}, connected(client, material().server)};
}

/// A client's context. Its state is whether it accepts the server, and another server.
struct ClientContext
{
    TLSContextHandle context = makeTLSContext(TLS_client_method());
};

std::string rendered(ClientContext const& client)
{
    static auto const other = makeSelfSignedLeaf("other");
    static auto const otherServer = makeTLSServer(other.certificate, other.key);
    return std::to_string(connected(client.context, material().server).isComplete) +
           std::to_string(connected(client.context, otherServer).isComplete);
}

TLSConnections makeUnconnected()
{
    auto const client = makeTLSContext(TLS_client_method());
    requirePeerCertificate(client.get(), material().roots);
    return makeConnections(client, material().server);
}

/// Calls expectPeer while OpenSSL is refused one allocation. Returns whether it succeeded.
bool expects(SSL* connection, std::string const& hostOrAddress, std::size_t firstRefused)
{
    try {
        Shortage const shortage(Memory::OpenSSL, firstRefused);
        expectPeer(connection, hostOrAddress);
        return true;
    } catch (X509CertificateException const& failure) {
        EXPECT_STREQ(failure.what(), "Internal error: OpenSSL ran out of memory.");
        return false;
    }
}

std::vector<std::string> subjectsOf(std::vector<Certificate> const& certificates)
{
    std::vector<std::string> subjects;
    for (auto const& certificate : certificates) {
        subjects.push_back(certificate.getSubject());
    }
    return subjects;
}

AllowedOutcomes outOfMemory(std::size_t stride)
{
    return failsWith(
        {failure<X509CertificateException>("Internal error: OpenSSL ran out of memory."),
         failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions."),
         failure<X509CertificateException>("Internal error: Unable to read the certificate's name."),
         failure<TrustStoreException>("Failed to create X509_STORE"),
         failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: ")},
        stride);
}

/// Each run has a handshake of its own.
constexpr std::size_t strideOfQueries = 29;

std::vector<SweptOperation> queries()
{
    return operationsOn<Connected>(
        "", makeConnected,
        {{"peerCertificate",
          [](Connected const& object) { return peerCertificate(object.ends.client.get())->getSubject(); },
          outOfMemory(strideOfQueries)},
         {"peerIntermediates",
          [](Connected const& object) { return subjectsOf(peerIntermediates(object.ends.client.get())); },
          outOfMemory(strideOfQueries)},
         {"verifiedChain",
          [](Connected const& object) { return subjectsOf(verifiedChain(object.ends.client.get())); },
          outOfMemory(strideOfQueries)}});
}

/// After each run, handshakes tell what the context accepts. That takes long.
constexpr std::size_t strideOfHandshakes = 41;

std::vector<SweptOperation> requirements()
{
    auto const trustStore = std::make_shared<TrustStore>();
    trustStore->addCertificate(X509Certificate(material().root.der()));
    return operationsOn<ClientContext>(
        "requirePeerCertificate of ", [] { return ClientContext(); },
        {{"a trust store",
          [=](ClientContext& client) {
              requirePeerCertificate(client.context.get(), *trustStore);
              return true;
          },
          outOfMemory(strideOfHandshakes)},
         {"certificates",
          [](ClientContext& client) {
              requirePeerCertificate(client.context.get(), material().roots);
              return true;
          },
          outOfMemory(strideOfHandshakes)}});
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(Queries, queries());
FOUNDATION_TEST_ALLOCATION_FAILURE(Requirements, requirements());

TEST(ExpectPeerOutOfMemory, ReportsItOrComparesNames)
{
    // The server's certificate is trusted, but issued for another name.
    for (std::string const expected : {"other.example.org", "192.0.2.7"}) {
        std::size_t numFailures = 0;
        for (std::size_t firstRefused = 0;; ++firstRefused) {
            SCOPED_TRACE(expected + " without allocation " + std::to_string(firstRefused));
            auto ends = makeUnconnected();
            if (!expects(ends.client.get(), expected, firstRefused)) {
                ++numFailures;
                continue;
            }
            bool const isRefused = Shortage::hasOccurred();
            shakeHands(ends);
            EXPECT_FALSE(ends.isComplete);
            if (!isRefused) {
                break;
            }
        }
        EXPECT_GT(numFailures, 0U);
    }
}
