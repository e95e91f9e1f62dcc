#include <foundation/certificates/CertificateValidation.hpp>

#include <utility>

namespace foundation::certificates {

CertificateValidationOptions::CertificateValidationOptions(
    AllowSelfSignedCertificate allowSelfSigned_, AllowExpiredCertificate allowExpired_,
    AllowRevokedCertificate allowRevoked_, CheckCRL checkCRL_, DownloadCRL downloadCRL_,
    std::shared_ptr<TrustStore const> fallbackTrustStore_)
    : allowSelfSigned(allowSelfSigned_),
      allowExpired(allowExpired_),
      allowRevoked(allowRevoked_),
      checkCRL(checkCRL_),
      downloadCRL(downloadCRL_),
      fallbackTrustStore(std::move(fallbackTrustStore_))
{}

CertificateRevocationResults::CertificateRevocationResults(
    RevocationStatus status_, std::string revocationDate_, std::string revokedSerialNumber_)
    : status(status_),
      revocationDate(std::move(revocationDate_)),
      revokedSerialNumber(std::move(revokedSerialNumber_))
{}

CertificateRevocationResults::RevocationStatus CertificateRevocationResults::getRevocationStatus() const
{
    return status;
}

std::string CertificateRevocationResults::getRevocationDateString() const
{
    return revocationDate;
}

std::string CertificateRevocationResults::getRevokedSerialNumberString() const
{
    return revokedSerialNumber;
}

CertificateValidationResults::CertificateValidationResults(
    CertificateChainStatus status_, std::string errorText_)
    : status(status_),
      errorText(std::move(errorText_))
{}

CertificateChainStatus CertificateValidationResults::getCertificateChainStatus() const
{
    return status;
}

std::string CertificateValidationResults::getValidationErrorString() const
{
    return errorText;
}

CertificateRevocationResults CertificateValidationResults::getCertificateRevocationResults() const
{
    return revocationResults;
}

std::optional<X509Certificate> CertificateValidationResults::getRootCertificate() const
{
    if (rootCertificate == nullptr) {
        return std::nullopt;
    }
    return *rootCertificate;
}

void CertificateValidationResults::setCertificateRevocationResults(
    CertificateRevocationResults const& results)
{
    revocationResults = results;
}

void CertificateValidationResults::setRootCertificate(X509Certificate const& certificate)
{
    rootCertificate = std::make_shared<X509Certificate>(certificate);
}

PKCS7CertificateValidationResults::PKCS7CertificateValidationResults(
    bool signatureStatus_, CertificateChainStatus status_, std::string const& errorText_)
    : signatureStatus(signatureStatus_),
      status(status_),
      errorText(errorText_)
{}

bool PKCS7CertificateValidationResults::getSignatureVerificationStatus() const
{
    return signatureStatus;
}

CertificateChainStatus PKCS7CertificateValidationResults::getCertificateChainStatus() const
{
    return status;
}

std::string PKCS7CertificateValidationResults::getValidationErrorString() const
{
    return errorText;
}

bool PKCS7CertificateValidationResults::isValidSignature() const
{
    return signatureStatus && status == CertificateChainStatus::Valid;
}

} // namespace foundation::certificates
