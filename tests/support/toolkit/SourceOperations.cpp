#include "support/toolkit/SourceOperations.hpp"

#include "support/Text.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/toolkit/ToolkitOperations.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <openssl/objects.h>
#include <openssl/provider.h>

#include <filesystem>
#include <memory>
#include <sstream>

namespace foundation::test {

using namespace certificates;
using namespace toolkit;

namespace {

// The reader

/// Returns everything that the reader returns, as text.
std::string resultsOf(CertificateReader& reader)
{
    std::string results;
    while (auto const read = reader.next()) {
        results +=
            std::to_string(read->index) + " " + (read->certificate ? "certificate" : read->failure) + "\n";
    }
    return results;
}

/// Returns the row of a reader whose work is the function.
template <class Function>
Operation<NoObject> reading(std::string const& name, Function const& function)
{
    constexpr std::size_t stride = 3; // some allocations in every part of a structure
    return query<NoObject>(
               "CertificateReader::next, " + name, [function](NoObject const&) { return function(); })
        .withoutOpenSSLMemory(failsWith({toolkitOutOfMemory(), extensionsUnread()}, stride))
        .withoutHeap(withStride(stride));
}

Operation<NoObject> readingText(std::string const& name, std::string const& text)
{
    return reading(name, [text] {
        std::istringstream stream(text);
        CertificateReader reader(stream, "source");
        return resultsOf(reader.withPassphrase("secret"));
    });
}

Operation<NoObject> readingFolder()
{
    auto const folder = std::make_shared<TemporaryFolder>();
    auto const root = makeRoot("a");
    folder->write("b.pem", root.pem());
    std::filesystem::create_directory(folder->path() / "inside");
    folder->write("inside/a.pem", root.pem());
    return reading("folder", [folder] {
        CertificateReader reader(folder->path());
        return resultsOf(reader);
    });
}

std::string signedData()
{
    SignedDataSpec spec;
    spec.furtherCertificates = {makeRoot("a").certificate, makeRoot("b").certificate};
    return asText(toDer(makeSignedData(spec)));
}

// TLS

struct TLSMaterial
{
    CertificateAndKey root = makeRoot("root");
    CertificateAndKey leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setExtension("subjectAltName", "DNS:www.example.org");
    });
    TLSContextHandle server = makeTLSServer(leaf.certificate, leaf.key, {root.certificate});
    std::vector<Certificate> roots = {Certificate::fromDER(root.der())};
};

TLSMaterial const& tlsMaterial()
{
    static TLSMaterial const made;
    return made;
}

TLSContextHandle trustingClient()
{
    auto client = makeTLSContext(TLS_client_method());
    requirePeerCertificate(client.get(), tlsMaterial().roots);
    return client;
}

AllowedOutcomes outOfMemory(std::size_t stride)
{
    return failsWith(
        {toolkitOutOfMemory(), extensionsUnread(), nameUnread(),
         failure<TrustStoreException>("Failed to create X509_STORE"),
         failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: ")},
        stride);
}

template <class Function>
Operation<ConnectedClient> peerQuery(std::string const& name, Function const& function)
{
    constexpr std::size_t stride = 29; // each run has a handshake of its own
    return query<ConnectedClient>(
               name, [function](ConnectedClient const& client) { return function(client.ends.client.get()); })
        .withoutOpenSSLMemory(outOfMemory(stride));
}

template <class Function>
Operation<ClientContext> requirement(std::string const& name, Function const& function)
{
    constexpr std::size_t stride = 41; // after each run, handshakes tell what the context accepts
    return change<ClientContext>(
               "requirePeerCertificate, " + name,
               [function](ClientContext& client, Objects const&) { function(client.context.get()); })
        .withoutOpenSSLMemory(outOfMemory(stride));
}

} // namespace

std::string rendered(ClientContext const& client)
{
    static auto const other = makeSelfSignedLeaf("other");
    static auto const otherServer = makeTLSServer(other.certificate, other.key);
    return std::to_string(connected(client.context, tlsMaterial().server).isComplete) +
           std::to_string(connected(client.context, otherServer).isComplete);
}

ConnectedClient newConnectedClient()
{
    return {connected(trustingClient(), tlsMaterial().server)};
}

TLSConnections makeTrustingConnections()
{
    return makeConnections(trustingClient(), tlsMaterial().server);
}

std::vector<Operation<NoObject>> const& readerOperations()
{
    static std::vector<Operation<NoObject>> const table{
        readingText("PEM", makeRoot("a").pem() + makeRoot("b").pem()),
        readingText("DER", asText(makeRoot("a").der())),
        readingText("PKCS7", signedData()),
        readingText("PKCS12", asText(toDer(makePkcs12(makeRoot("a"), "secret")))).usesPassphrase(),
        readingFolder(),
    };
    return table;
}

std::vector<Operation<ConnectedClient>> const& tlsPeerOperations()
{
    static std::vector<Operation<ConnectedClient>> const table{
        peerQuery("peerCertificate", [](SSL const* client) { return peerCertificate(client).value(); }),
        peerQuery("peerIntermediates", [](SSL const* client) { return peerIntermediates(client); }),
        peerQuery("verifiedChain", [](SSL const* client) { return verifiedChain(client); }),
    };
    return table;
}

std::vector<Operation<ClientContext>> const& tlsContextOperations()
{
    auto const trustStore = std::make_shared<TrustStore>();
    trustStore->addCertificate(X509Certificate(tlsMaterial().root.der()));
    static std::vector<Operation<ClientContext>> const table{
        requirement("trust store", [=](SSL_CTX* client) { requirePeerCertificate(client, *trustStore); }),
        requirement(
            "certificates", [](SSL_CTX* client) { requirePeerCertificate(client, tlsMaterial().roots); }),
    };
    return table;
}

} // namespace foundation::test
