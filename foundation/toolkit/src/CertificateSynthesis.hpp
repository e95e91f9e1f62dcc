#pragma once

/// @file
/// Makes and signs an end-entity certificate from contents that were checked.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <chrono>
#include <set>
#include <vector>

namespace foundation::toolkit {

/// The text of the CertificateException for a certificate that OpenSSL did not make.
inline constexpr char const certificateNotMadeText[] = "Internal error: The certificate could not be made.";

/// What a certificate says about its subject.
struct CertificateContents
{
    certificates::ByteArray subject; ///< in DER form
    std::vector<AlternativeName> alternativeNames;
    std::set<Purpose> purposes;
    std::chrono::system_clock::time_point notBefore;
    std::chrono::system_clock::time_point notAfter;
    EVP_PKEY* key = nullptr; ///< borrowed
};

/// Who signs a certificate.
struct Signer
{
    X509* certificate = nullptr; ///< borrowed; null if the certificate signs itself
    EVP_PKEY* key = nullptr;     ///< borrowed
};

/// Returns OpenSSL's number of the purpose's extended key usage; NID_undef for a value that is no enumerator.
int extendedKeyUsageOf(Purpose purpose);

/// Returns the time as a certificate encodes it, rounded down to seconds: UTCTime from 1950 to 2049,
/// GeneralizedTime in other years.
/// @throws certificates::InvalidArgument "The validity is outside of the years 0 to 9999."
/// @throws certificates::CertificateException "Internal error: The certificate could not be made."
certificates::ASN1_TIMEUPtr timeFrom(std::chrono::system_clock::time_point time);

/// Returns the certificate.
/// @throws certificates::InvalidArgument "The key cannot sign."
/// @throws certificates::CertificateException "Internal error: The certificate could not be made."
Certificate synthesize(CertificateContents const& contents, Signer const& signer);

} // namespace foundation::toolkit
