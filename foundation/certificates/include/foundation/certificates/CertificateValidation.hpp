#pragma once

/// @file
/// Options and results of a validation. All classes here are plain values without locks.
/// X509Certificate::validateCertificate and PKCS7Certificate::verifySignature do the work.

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/export.hpp>

#include <memory>
#include <optional>
#include <string>

namespace foundation::certificates {

/// The verdict on a chain. The numbers are part of the interface.
enum class CertificateChainStatus : int
{
    Valid = 0,        ///< the chain is valid; tolerated errors do not show
    Untrusted = 1,    ///< no acceptable path to a trusted root
    SelfSigned = 2,   ///< the chain has a self-signed certificate that is not allowed; has no error text
    CRLError = 3,     ///< a required CRL is missing, expired or unusable
    Revoked = 4,      ///< a certificate of the chain is revoked
    Expired = 5,      ///< a certificate of the chain has expired
    BadSignature = 6, ///< a certificate's signature is not valid
    Failed = 7        ///< any other error, such as a certificate that is not yet valid; also the default
};

/// Which errors a validation tolerates, and how it checks revocation. Only the validation reads the values.
class FOUNDATION_CERTIFICATES_EXPORT CertificateValidationOptions
{
public:
    /// Whether a self-signed certificate passes although no trust store holds it. This concerns a self-signed
    /// leaf and a self-signed certificate at the end of the chain.
    enum class AllowSelfSignedCertificate : int
    {
        No = 0, ///< the verdict is `SelfSigned`
        Yes = 1 ///< it counts as the chain's root, trusted or not
    };

    /// Whether expired certificates pass. A certificate that is not yet valid never passes.
    enum class AllowExpiredCertificate : int
    {
        No = 0, ///< the verdict is `Expired`
        Yes = 1 ///< no certificate of the chain fails because it has expired
    };

    /// Whether revoked certificates pass.
    enum class AllowRevokedCertificate : int
    {
        No = 0, ///< the verdict is `Revoked` if an applied CRL lists the certificate
        Yes = 1 ///< no CRL is applied; DownloadCRL still downloads them
    };

    /// Which certificates of the chain are checked against CRLs. Has no effect unless DownloadCRL asks for
    /// CRLs and every download succeeds.
    enum class CheckCRL : int
    {
        None = 0,      ///< no CRL is applied
        LeafOnly = 1,  ///< the validated certificate (`X509_V_FLAG_CRL_CHECK`)
        WholeChain = 2 ///< every certificate below the root (also `X509_V_FLAG_CRL_CHECK_ALL`)
    };

    /// Whether CRLs are downloaded, and what happens after a failed download. A few failures throw in both
    /// modes: see X509Certificate::validateCertificate.
    enum class DownloadCRL : int
    {
        None = 0,       ///< no download, and no CRL is applied
        BestEffort = 1, ///< a failure is not reported, and no CRL is applied
        Required = 2    ///< validateCertificate throws after a failure
    };

    /// Without arguments, tolerates nothing, downloads and applies no CRL, and has no second trust store.
    /// @param allowSelfSigned whether an untrusted self-signed certificate passes
    /// @param allowExpired whether expired certificates pass
    /// @param allowRevoked whether revoked certificates pass
    /// @param checkCRL which certificates are checked against CRLs
    /// @param downloadCRL whether CRLs are downloaded, and what happens after a failed download
    /// @param fallbackTrustStore a second trust store for a second run, if the first one ends as `Untrusted`,
    ///     `SelfSigned`, `BadSignature` or `Failed`. The second result then counts, even if it is worse
    CertificateValidationOptions(
        AllowSelfSignedCertificate allowSelfSigned = AllowSelfSignedCertificate::No,
        AllowExpiredCertificate allowExpired = AllowExpiredCertificate::No,
        AllowRevokedCertificate allowRevoked = AllowRevokedCertificate::No,
        CheckCRL checkCRL = CheckCRL::None, DownloadCRL downloadCRL = DownloadCRL::None,
        std::shared_ptr<TrustStore const> fallbackTrustStore = nullptr);

private:
    friend class X509CertificateImpl;

    AllowSelfSignedCertificate allowSelfSigned;
    AllowExpiredCertificate allowExpired;
    AllowRevokedCertificate allowRevoked;
    CheckCRL checkCRL;
    DownloadCRL downloadCRL;
    std::shared_ptr<TrustStore const> fallbackTrustStore;
};

/// The entry that revokes a certificate, in the CRLs that a validation downloaded.
class FOUNDATION_CERTIFICATES_EXPORT CertificateRevocationResults
{
public:
    /// Whether a CRL lists the certificate.
    enum class RevocationStatus : int
    {
        NotRevoked = 0, ///< no entry was found, or the validation did not search
        Revoked = 1     ///< an entry was found
    };

    /// Holds its arguments. Without arguments, nothing is revoked.
    CertificateRevocationResults(
        RevocationStatus status = RevocationStatus::NotRevoked, std::string revocationDate = {},
        std::string revokedSerialNumber = {});

    /// Whether an entry was found.
    RevocationStatus getRevocationStatus() const;
    /// Returns the revocation date in the format of `ASN1_TIME_print`; empty if nothing is revoked.
    std::string getRevocationDateString() const;
    /// Returns the revoked serial number in decimal digits; empty if nothing is revoked.
    std::string getRevokedSerialNumberString() const;

private:
    RevocationStatus status;
    std::string revocationDate;
    std::string revokedSerialNumber;
};

/// The result of a validation. Copies share the root certificate's object.
class FOUNDATION_CERTIFICATES_EXPORT CertificateValidationResults
{
public:
    /// Holds its arguments, no revocation and no root. Without arguments, the status is `Failed`.
    CertificateValidationResults(
        CertificateChainStatus status = CertificateChainStatus::Failed, std::string errorText = {});

    /// Returns the verdict.
    CertificateChainStatus getCertificateChainStatus() const;
    /// Returns a report with the error's code, depth and subject; empty for `Valid` and `SelfSigned`.
    std::string getValidationErrorString() const;
    /// Returns the revoking entry. Filled only for the status `Revoked`, and only if a downloaded CRL lists
    /// the certificate.
    CertificateRevocationResults getCertificateRevocationResults() const;
    /// Returns the last certificate of the verified chain; none unless the status is `Valid`.
    std::optional<X509Certificate> getRootCertificate() const;

    /// Replaces the revocation results.
    void setCertificateRevocationResults(CertificateRevocationResults const& results);
    /// Replaces the root by a copy of the certificate.
    void setRootCertificate(X509Certificate const& certificate);

private:
    CertificateChainStatus status;
    std::string errorText;
    CertificateRevocationResults revocationResults;
    std::shared_ptr<X509Certificate> rootCertificate;
};

/// The result of a verification of signed data: a verdict on the signature and one on the signer's chain.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7CertificateValidationResults
{
public:
    /// Holds its arguments. Without arguments, the signature is not valid and the status is `Failed`.
    PKCS7CertificateValidationResults(
        bool signatureStatus = false, CertificateChainStatus status = CertificateChainStatus::Failed,
        std::string const& errorText = {});

    /// Whether the signature over the content is valid. Does not cover the signer's chain.
    bool getSignatureVerificationStatus() const;
    /// Returns the verdict on the signer's chain.
    CertificateChainStatus getCertificateChainStatus() const;
    /// Returns the error text. It may hold text even if both verdicts are good.
    std::string getValidationErrorString() const;
    /// Whether the signature is valid and the chain is `Valid`. This is the check for callers.
    bool isValidSignature() const;

private:
    bool signatureStatus;
    CertificateChainStatus status;
    std::string errorText;
};

} // namespace foundation::certificates
