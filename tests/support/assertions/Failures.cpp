#include "support/assertions/Failures.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <boost/core/demangle.hpp>
#include <openssl/opensslv.h>

namespace foundation::test {

using namespace certificates;

bool Failure::fits(std::type_index thrownType, std::string const& thrownText) const
{
    return type == thrownType &&
           (isWholeText ? thrownText == text : thrownText.compare(0, text.size(), text) == 0);
}

Failures operator+(Failures all, Failures const& more)
{
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

std::string describe(std::type_index type, std::string const& text)
{
    return boost::core::demangle(type.name()) + " with text \"" + text + "\"";
}

Failure certificateWithoutContent()
{
    return failure<X509CertificateException>("Error: X509Certificate has no content.");
}

Failure nameUnread()
{
    return failure<X509CertificateException>("Internal error: Unable to read the certificate's name.");
}

Failure extensionsUnread()
{
    return failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions.");
}

Failure modulusUnread()
{
    return failure<X509CertificateException>("Failed to get the modulus for the public key");
}

Failure exponentUnread()
{
    return failure<X509CertificateException>("Failed to get the public exponent for the public key");
}

Failure fingerprintUnknown()
{
    return failure<X509CertificateException>("Internal error: Unable to compute the SHA256 fingerprint.");
}

Failure certificateUnwritten()
{
    return failure<X509CertificateException>("Internal error: Could not serialize the X509 certificate.");
}

Failures keyUnread()
{
    return {
        modulusUnread(),
        exponentUnread(),
        failure<CertificateException>("Failed to sanity check EVP_PKEY. Argument is nullptr"),
        failure<CertificateException>("Could not extract public key information from EVP_PKEY"),
        failure<CertificateException>("Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL"),
        failure<CertificateException>("Failed to extract public point from public EVP_PKEY"),
        failure<X509CertificateException>("RSA key size does not meet minimum cryptographic requirements"),
    };
}

Failures certificateUntaken()
{
    return keyUnread() + Failures{certificateWithoutContent(), extensionsUnread()};
}

Failures certificateUnloaded()
{
    return certificateUntaken() +
           Failures{
               failure<X509CertificateException>(
                   "Internal error: The given certificate data could not be written to a buffer."),
               failureBeginning<X509CertificateException>("Error: Loading a certificate failed. Reason="),
           };
}

Failures storeUnread()
{
#if OPENSSL_VERSION_NUMBER >= 0x30300000L
    return {failure<TrustStoreException>("Failed to read X509_STORE")};
#else
    return {};
#endif
}

Failures validationUnfinished()
{
    return certificateUntaken() + storeUnread() +
           Failures{
               nameUnread(),
               certificateUnwritten(),
               failure<TrustStoreException>("Failed to create X509_STORE"),
               failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: "),
               failure<X509CertificateException>("Internal Error: error creating X509_STORE_CTX object\n"),
               failure<X509CertificateException>("Failed to set the flags to X509 parameters"),
               failure<X509CertificateException>("Failed to set the flags to X509_STORE"),
               failure<X509CertificateException>("Invalid certificate chain length.\n"),
               failure<X509CertificateException>("Error: Root CA X509Certificate has no content."),
           };
}

} // namespace foundation::test
