#include "CertificateAccess.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <utility>

namespace foundation::toolkit {

namespace {

using foundation::certificates::makeX509;
using foundation::certificates::parseExtensions;
using foundation::certificates::throwIfNotOne;
using foundation::certificates::throwIfNull;
using foundation::certificates::X509CertificateException;
using foundation::certificates::X509UPtr;

/// OpenSSL decodes the key while it reads the certificate, and never again. A key that it cannot decode and a
/// key without memory look alike, so a duplicate is decoded again.
void throwIfKeyLacksMemory(X509* certificate)
{
    if (X509_get0_pubkey(certificate) != nullptr) {
        return;
    }
    auto const duplicate = makeX509(X509_dup(certificate));
    throwIfNull<X509CertificateException>(duplicate.get(), outOfMemoryText);
    if (X509_get0_pubkey(duplicate.get()) != nullptr) {
        throw X509CertificateException(outOfMemoryText);
    }
}

} // namespace

X509UPtr CertificateAccess::share(Certificate const& certificate)
{
    throwIfNotOne<X509CertificateException>(X509_up_ref(certificate.x509.get()), outOfMemoryText);
    return makeX509(certificate.x509.get());
}

Certificate CertificateAccess::adopt(X509UPtr certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    throwIfNull<X509CertificateException>(certificate.get(), outOfMemoryText);
    throwIfKeyLacksMemory(certificate.get());
    parseExtensions(certificate.get());
    return Certificate(std::shared_ptr<X509>(std::move(certificate)));
}

} // namespace foundation::toolkit
