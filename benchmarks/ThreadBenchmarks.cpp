#include "Comparison.hpp"
#include "Material.hpp"

#include <foundation/certificates/CertificateValidation.hpp>

#include <openssl/x509_vfy.h>

#include <array>
#include <memory>
#include <utility>

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

void addValidationScaling()
{
    auto const trusted = std::make_shared<std::vector<CertificateAndKey>>(roots(10));
    auto const chain = std::make_shared<std::vector<CertificateAndKey>>(chainBelow(trusted->front(), 2));
    scale("validation, library", [trusted, chain] {
        return [leaf = load(chain->front()), intermediates = chainOf(*chain), store = storeOf(*trusted)] {
            return leaf.validateCertificate(intermediates, CertificateValidationOptions(), store);
        };
    });
    scale("validation, OpenSSL", [trusted, chain] {
        std::shared_ptr<X509_STORE> const store(bareStore(*trusted));
        return [store, chain] {
            auto const copy = bareCopy(store.get());
            auto const untrusted = makeX509Stack(sk_X509_new_null());
            for (auto const& certificate : *chain) {
                sk_X509_push(untrusted.get(), X509_dup(certificate.certificate.get()));
            }
            auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
            X509_STORE_CTX_init(
                context.get(), copy.get(), sk_X509_value(untrusted.get(), 0), untrusted.get());
            return X509_verify_cert(context.get());
        };
    });
}

} // namespace

void addThreadBenchmarks()
{
    addLoadScaling();
    addQueryScaling();
    addValidationScaling();
}

} // namespace foundation::benchmarks
