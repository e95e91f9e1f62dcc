#pragma once

/// @file
/// Names and words for programs that show results to people: the names of enumerators, and what a verdict
/// means and what to do about it. docs/errors.md lists all words.

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/Issuance.hpp>
#include <foundation/toolkit/PathValidation.hpp>
#include <foundation/toolkit/export.hpp>

#include <exception>
#include <string>
#include <string_view>

namespace foundation::toolkit {

// Each returns the enumerator's own name, such as "Untrusted"; "unknown" for a value that is not an
// enumerator. The view is valid until the process ends.

/// Returns the name of the verdict.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::CertificateChainStatus status);
/// Returns the name of the option.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateValidationOptions::AllowSelfSignedCertificate option);
/// Returns the name of the option.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateValidationOptions::AllowExpiredCertificate option);
/// Returns the name of the option.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateValidationOptions::AllowRevokedCertificate option);
/// Returns the name of the option.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateValidationOptions::CheckCRL option);
/// Returns the name of the option.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateValidationOptions::DownloadCRL option);
/// Returns the name of the status.
FOUNDATION_TOOLKIT_EXPORT std::string_view
toString(certificates::CertificateRevocationResults::RevocationStatus status);
/// Returns the name of the encoding.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::CertificateEncoding encoding);
/// Returns the name of the key type.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::KeyType type);
/// Returns the name of the curve.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::EllipticCurve curve);
/// Returns the name of the key size.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::RSAPrivateKeySize size);
/// Returns the name of the usage.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::TrustStore::Usage usage);
/// Returns the name of the key usage.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(certificates::X509Certificate::KeyUsage usage);
/// Returns the name of the kind.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(AlternativeName::Kind kind);
/// Returns the name of the purpose.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(Purpose purpose);
/// Returns the name of the revocation check.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(Revocation revocation);
/// Returns the name of the key choice.
FOUNDATION_TOOLKIT_EXPORT std::string_view toString(KeyChoice choice);

/// A verdict or a failure in plain words.
struct Explanation
{
    int errorCode = 0;   ///< OpenSSL's code, `X509_V_ERR_...`; 0 for a valid chain
    int depth = 0;       ///< the position of the certificate in the chain: 0 is the leaf
    std::string subject; ///< the subject of that certificate, as RFC 2253 text; empty if it is not known
    std::string message; ///< one sentence: what is wrong
    std::string advice;  ///< what to do
    std::string check;   ///< how to check what is wrong, before doing it
};

/// Returns the explanation of a verdict of X509Certificate::validateCertificate.
///
/// Code, depth and subject come from the text of the results. A `SelfSigned` result has no text: its code is
/// 18
/// (`X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT`). Any other failure without such a text has the code 1
/// (`X509_V_ERR_UNSPECIFIED`) and the words for its verdict.
FOUNDATION_TOOLKIT_EXPORT Explanation explain(certificates::CertificateValidationResults const& results);
/// Returns the explanation of a verdict of PathValidator::validate. The subject is that of the certificate at
/// the error's depth.
/// @throws X509CertificateException as Certificate::getSubject does
FOUNDATION_TOOLKIT_EXPORT Explanation explain(PathResult const& result);
/// Returns the explanation of an exception of foundation::certificates. Code and depth are 0, and there is no
/// subject. A text that docs/errors.md does not list, such as one of the toolkit's own, explains itself: it
/// is the message.
FOUNDATION_TOOLKIT_EXPORT Explanation explain(std::exception const& failure);

} // namespace foundation::toolkit
