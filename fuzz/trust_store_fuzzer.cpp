/// Fills a trust store with elements of the input, as a system's adder does, and validates another element
/// against it. The last byte of the input selects the variation.

#include "libcrypto/OpenSSLHandles.hpp"
#include "support/DerElements.hpp"
#include "support/Properties.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/pki/TestPki.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace foundation::fuzz {

namespace {

using certificates::CertificateChainStatus;
using certificates::TrustStore;
using certificates::X509Certificate;
using certificates::X509CertificateChain;
using Options = certificates::CertificateValidationOptions;

/// A system adder that delivers the given certificates.
class Adder : public certificates::ISystemCertificateAdder
{
public:
    explicit Adder(std::vector<Bytes> certificates) : delivered(std::move(certificates)) {}

    ISystemCertificateAdder* clone() const override { return new Adder(delivered); }

    void addCertificatesTo(
        certificates::TrustStoreImpl& store, TrustStore::Usage /*usage*/, bool rethrowOnFailure) override
    {
        for (auto const& certificate : delivered) {
            queueStaleError();
            bool const added = succeeds([&] { store.addDERCertificate(certificate); });
            requireStaleErrorAlone("after a certificate was added");
            if (!added && rethrowOnFailure) {
                throw certificates::TrustStoreException("refused");
            }
        }
    }

private:
    std::vector<Bytes> delivered;
};

/// Returns a valid certificate that is unrelated to the input. It keeps the trust store from being empty: a
/// validation against an empty store would read the system's roots.
X509Certificate const& unrelatedRoot()
{
    static X509Certificate const root(test::makeRoot("unrelated").der());
    return root;
}

/// Checks the queries of the store. Returns the certificates that the library can load.
std::vector<X509Certificate> checkContent(TrustStore const& store)
{
    auto const texts =
        mustSucceed("the certificates of a store can be written", [&] { return store.getPEMStrings(); });
    require(texts.size() == store.size(), "each entry of a store has a text");
    std::vector<X509Certificate> loaded;
    for (auto const& text : texts) {
        loads([&] { loaded.emplace_back(text); });
    }
    std::vector<X509Certificate> listed;
    bool const isListed = succeeds([&] { listed = store.getCertificates().getCertificates(); });
    require(
        isListed == (loaded.size() == texts.size()),
        "the certificates are listed exactly if each of them loads");
    require(!isListed || listed == loaded, "the listed certificates are those of the texts");
    clearErrorQueue();
    return loaded;
}

std::vector<std::string> sortedTextsOf(TrustStore const& store)
{
    auto texts = store.getPEMStrings();
    std::sort(texts.begin(), texts.end());
    return texts;
}

void checkCopy(TrustStore const& store, std::vector<X509Certificate> const& certificates)
{
    TrustStore copy = mustSucceed("a store can be copied", [&] { return TrustStore(store); });
    require(sortedTextsOf(copy) == sortedTextsOf(store), "a copy holds the same certificates");
    mustSucceed("certificates can be added again", [&] {
        for (auto const& certificate : certificates) {
            copy.addCertificate(certificate);
        }
    });
    require(copy.size() == store.size(), "a store holds each certificate once");
}

/// Returns the result of bare OpenSSL with the library's flags and without tolerances.
int bareVerdict(X509Certificate const& leaf, X509CertificateChain const& chain, TrustStore const& trustStore)
{
    auto const parse = [](X509Certificate const& certificate) {
        auto const der = certificate.getAsBytes();
        unsigned char const* position = der.data();
        return certificates::makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    };
    auto const store = certificates::copyOpenSSLStore(trustStore);
    X509_STORE_set_flags(store.get(), test::ReferenceVerifier().flags);
    auto const certificate = parse(leaf);
    auto const untrusted = certificates::makeX509Stack(sk_X509_new_null());
    for (auto const& member : chain.getCertificates()) {
        sk_X509_push(untrusted.get(), parse(member).release());
    }
    auto const context = certificates::makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), untrusted.get());
    return X509_verify_cert(context.get());
}

void checkTolerantValidation(
    X509Certificate const& leaf, X509CertificateChain const& chain, TrustStore const& trustStore,
    Options const& tolerant)
{
    succeeds([&] {
        auto const results = leaf.validateCertificate(chain, tolerant, trustStore);
        bool const isValid = results.getCertificateChainStatus() == CertificateChainStatus::Valid;
        require(isValid == results.getRootCertificate().has_value(), "exactly a valid chain has a root");
        require(!isValid || results.getValidationErrorString().empty(), "a valid chain has no error text");
    });
}

void checkStrictValidation(
    X509Certificate const& leaf, X509CertificateChain const& chain, TrustStore const& trustStore)
{
    bool isValid = false;
    bool const isJudged = succeeds([&] {
        auto const results = leaf.validateCertificate(chain, Options(), trustStore);
        isValid = results.getCertificateChainStatus() == CertificateChainStatus::Valid;
    });
    int const bare = bareVerdict(leaf, chain, trustStore);
    require(isValid == (bare > 0), "the verdict agrees with OpenSSL");
    require(isJudged || bare < 0, "there is a verdict if OpenSSL has one");
}

void checkValidation(
    X509Certificate const& leaf, X509CertificateChain const& chain, TrustStore const& trustStore,
    unsigned variation)
{
    switch (variation >> 6U) {
    case 0:
        checkTolerantValidation(
            leaf, chain, trustStore,
            Options(Options::AllowSelfSignedCertificate::Yes, Options::AllowExpiredCertificate::Yes));
        break;
    case 1:
        checkTolerantValidation(
            leaf, chain, trustStore,
            Options(Options::AllowSelfSignedCertificate::No, Options::AllowExpiredCertificate::Yes));
        break;
    case 2:
        succeeds([&] {
            require(
                !leaf.getRootCACertificate(chain, trustStore).empty(), "the root of a chain is not empty");
        });
        break;
    default:
        checkStrictValidation(leaf, chain, trustStore);
        break;
    }
    clearErrorQueue();
}

void check(Bytes const& input, unsigned variation)
{
    auto const elements = elementsIn(input);
    auto const trustedCount = std::min<std::size_t>(elements.size(), variation & 0x07U);
    auto const firstUntrusted = elements.begin() + static_cast<std::ptrdiff_t>(trustedCount);

    TrustStore store(std::make_unique<Adder>(std::vector<Bytes>(elements.begin(), firstUntrusted)));
    auto const usage =
        (variation & 0x08U) != 0 ? TrustStore::Usage::Signing : TrustStore::Usage::ServerAuthentication;
    bool const rethrow = (variation & 0x10U) != 0;
    require(
        succeeds([&] { store.addSystemCertificates(usage, rethrow); }) || rethrow,
        "a refused certificate is skipped unless failures are rethrown");
    require(store.size() <= trustedCount, "a store holds at most what was added");
    store.addCertificate(unrelatedRoot());
    checkCopy(store, checkContent(store));

    X509CertificateChain chain;
    std::optional<X509Certificate> leaf;
    for (auto element = firstUntrusted; element != elements.end(); ++element) {
        if (loads([&] { leaf.emplace(*element); })) {
            chain.addCertificate(*leaf);
        }
    }
    if (leaf) {
        checkValidation(*leaf, chain, store, variation);
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    if (size > 0) {
        foundation::fuzz::check(foundation::fuzz::Bytes(input, input + size - 1), input[size - 1]);
    }
    return 0;
}
