#include "validation/VerifyErrors.hpp"

#include "certificate/NamesAndTimes.hpp"

#include <openssl/x509_vfy.h>

namespace foundation::certificates {

namespace {

std::string textForFailedVerification(CertificateChainStatus status, X509_STORE_CTX* context)
{
    switch (status) {
    case CertificateChainStatus::Valid:
    case CertificateChainStatus::SelfSigned:
        return {};
    case CertificateChainStatus::Untrusted:
    case CertificateChainStatus::CRLError:
    case CertificateChainStatus::Revoked:
    case CertificateChainStatus::Expired:
    case CertificateChainStatus::BadSignature:
        return describeVerifyError(context);
    case CertificateChainStatus::Failed:
        break;
    }
    return "Validation Failed. Return code=" + std::to_string(X509_STORE_CTX_get_error(context)) + "." +
           describeVerifyError(context);
}

} // namespace

// A certificate that is not yet valid, or whose dates cannot be read, is `Failed`. The same faults in a CRL
// are `CRLError`.
CertificateChainStatus statusForVerifyError(int code)
{
    switch (code) {
    case X509_V_OK:
        return CertificateChainStatus::Valid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_CHAIN_TOO_LONG:
    case X509_V_ERR_PATH_LENGTH_EXCEEDED:
    case X509_V_ERR_INVALID_CA:
        return CertificateChainStatus::Untrusted;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return CertificateChainStatus::SelfSigned;
    case X509_V_ERR_UNABLE_TO_GET_CRL:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE:
    case X509_V_ERR_CRL_SIGNATURE_FAILURE:
    case X509_V_ERR_CRL_NOT_YET_VALID:
    case X509_V_ERR_CRL_HAS_EXPIRED:
    case X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD:
    case X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD:
        return CertificateChainStatus::CRLError;
    case X509_V_ERR_CERT_REVOKED:
        return CertificateChainStatus::Revoked;
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return CertificateChainStatus::Expired;
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        return CertificateChainStatus::BadSignature;
    default:
        return CertificateChainStatus::Failed;
    }
}

// Callers may compare the text. The missing separator before the subject and the line break before the period
// are part of it.
std::string describeVerifyError(X509_STORE_CTX* context)
{
    int const code = X509_STORE_CTX_get_error(context);
    int const depth = X509_STORE_CTX_get_error_depth(context);
    X509 const* const certificate = X509_STORE_CTX_get_current_cert(context);
    std::string const subject =
        certificate == nullptr ? std::string() : nameAsText(X509_get_subject_name(certificate));
    std::string report = "Errors present: ";
    report += "Error code " + std::to_string(code);
    report += "  at depth " + std::to_string(depth);
    report += "Certificate Subject Name=" + subject + "\n";
    report += ". \nMessage:";
    report += X509_verify_cert_error_string(code);
    report += "\n";
    return report;
}

CertificateValidationResults resultForFailedVerification(X509_STORE_CTX* context)
{
    auto const status = statusForVerifyError(X509_STORE_CTX_get_error(context));
    return CertificateValidationResults(status, textForFailedVerification(status, context));
}

} // namespace foundation::certificates
