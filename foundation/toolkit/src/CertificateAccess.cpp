#include "CertificateAccess.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <utility>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

/// What OpenSSL keeps of the key and the signature algorithm after it has read the certificate.
struct Strength
{
    explicit Strength(X509* certificate)
    {
        if (EVP_PKEY const* const key = X509_get0_pubkey(certificate)) {
            keyBits = EVP_PKEY_get_bits(key);
            keySecurity = EVP_PKEY_get_security_bits(key);
        }
        X509_get_signature_info(certificate, nullptr, nullptr, &signatureSecurity, nullptr);
    }

    bool isKnown() const { return keyBits > 0 && keySecurity > 0 && signatureSecurity > 0; }

    bool operator!=(Strength const& other) const
    {
        return keyBits != other.keyBits || keySecurity != other.keySecurity ||
               signatureSecurity != other.signatureSecurity;
    }

    int keyBits = 0;
    int keySecurity = 0;
    int signatureSecurity = 0;
};

/// OpenSSL decodes the key and measures its strength once. An algorithm that it does not know and one that it
/// had no memory for look alike, so a duplicate is read again.
void throwIfStrengthLacksMemory(X509* certificate)
{
    Strength const strength(certificate);
    if (strength.isKnown()) {
        return;
    }
    auto const duplicate = makeX509(X509_dup(certificate));
    throwIfNull<X509CertificateException>(duplicate.get(), outOfMemoryText);
    parseExtensions(duplicate.get());
    if (Strength(duplicate.get()) != strength) {
        throw X509CertificateException(outOfMemoryText);
    }
}

} // namespace

Certificate CertificateAccess::adopt(X509UPtr certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    throwIfNull<X509CertificateException>(certificate.get(), outOfMemoryText);
    parseExtensions(certificate.get());
    throwIfStrengthLacksMemory(certificate.get());
    return Certificate(std::shared_ptr<X509>(std::move(certificate)));
}

} // namespace foundation::toolkit
