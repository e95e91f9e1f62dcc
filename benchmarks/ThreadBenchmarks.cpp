#include "BareValidation.hpp"
#include "Comparison.hpp"
#include "Material.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace foundation::benchmarks {

namespace {

void addLoadScaling()
{
    auto const der = typicalLeaf(KeyKind::P256).der();
    scale("load, library", [der] { return [der] { return X509Certificate(der); }; });
    scale("load, OpenSSL", [der] {
        return [der] {
            unsigned char const* position = der.data();
            auto certificate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
            return hasFitKey(certificate.get()) ? std::move(certificate) : makeX509(nullptr);
        };
    });
}

void addQueryScaling()
{
    auto const der = typicalLeaf(KeyKind::P256).der();
    scale("subject, library", [der] {
        return [certificate = X509Certificate(der)] { return certificate.getSubjectName(); };
    });
    scale("fingerprint, library", [der] {
        return [certificate = X509Certificate(der)] { return certificate.getSHA256Fingerprint(); };
    });
    scale("fingerprint, OpenSSL", [der] {
        return [certificate = test::parseDer(der)] {
            std::array<unsigned char, 32> digest{};
            X509_digest(certificate.get(), EVP_sha256(), digest.data(), nullptr);
            return digest;
        };
    });
}

/// What all threads share.
struct Shared
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    TrustStore handedOutStore;
    std::shared_ptr<X509_STORE> handedOut;
    BareTask bare;
};

Shared makeShared()
{
    constexpr std::size_t rootCount = 150;
    auto const trusted = roots(rootCount);
    auto const chain = chainBelow(trusted.front(), 3);
    std::vector<CertificateAndKey> const intermediates(chain.begin() + 1, chain.end());
    Shared shared{
        load(chain.front()),         chainOf(intermediates), storeOf(trusted), storeOf(trusted), nullptr,
        makeBareTask(chain, trusted)};
    shared.handedOut = getOpenSSLStore(shared.handedOutStore);
    return shared;
}

/// Returns an operation for one thread, which validates with a copy of the certificate.
auto validationWithCopy(Lazy<Shared> const& shared, TrustStore Shared::*store)
{
    return [shared, store, leaf = shared->leaf] {
        return leaf.validateCertificate(shared->chain, CertificateValidationOptions(), *shared.*store);
    };
}

void addSharedStore(Lazy<Shared> const& shared, int threads, std::optional<double> target)
{
    SharedStoreRow& row = declareSharedStore(threads, target);
    std::string const name = "Threads/one store/" + std::to_string(threads);
    measureThreads(name + "/private", threads, row.privateStore, [shared] {
        return validationWithCopy(shared, &Shared::store);
    });
    measureThreads(name + "/handed out", threads, row.handedOutStore, [shared] {
        return validationWithCopy(shared, &Shared::handedOutStore);
    });
    measureThreads(name + "/one handle", threads, row.oneHandle, [shared] {
        return [shared] {
            return shared->leaf.validateCertificate(
                shared->chain, CertificateValidationOptions(), shared->store);
        };
    });
    measureThreads(name + "/OpenSSL", threads, row.bare, [shared] {
        return [shared] { return bareVerify(shared->bare); };
    });
}

void addSharedStores()
{
    constexpr double target = 0.65;
    constexpr int withTarget = 2; // the number of processors that the target was set for
    Lazy<Shared> const shared(makeShared);
    for (int const threads : {1, 2, 4, 8}) {
        addSharedStore(shared, threads, threads <= withTarget ? std::optional<double>(target) : std::nullopt);
    }
}

} // namespace

void addThreadBenchmarks()
{
    addSharedStores();
    addLoadScaling();
    addQueryScaling();
}

} // namespace foundation::benchmarks
