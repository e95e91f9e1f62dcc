#pragma once

/// @file
/// What goes into a validation and what comes out of it. All classes here are plain values without locks;
/// the work is done by X509Certificate::validateCertificate and PKCS7Certificate::verifySignature.

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
    Valid = 0,        ///< the chain verified; tolerated errors do not show
    Untrusted = 1,    ///< no acceptable path to a trusted root
    SelfSigned = 2,   ///< a self-signed certificate was met and is not allowed; comes without a text
    CRLError = 3,     ///< a CRL that the check needs is missing, stale or unusable
    Revoked = 4,      ///< a certificate of the chain is revoked
    Expired = 5,      ///< a certificate of the chain has expired
    BadSignature = 6, ///< a certificate's signature does not verify
    Failed = 7        ///< all else, a certificate that is not yet valid included; a result nobody has filled
};

/// What a validation tolerates and how it handles revocation. Written by the constructor, read by the
/// validation alone.
class FOUNDATION_CERTIFICATES_EXPORT CertificateValidationOptions
{
public:
    /// Whether a self-signed certificate passes that is in no trust store: a lone one, or one on
    /// top of the chain.
    enum class AllowSelfSignedCertificate : int
    {
        No = 0, ///< the verdict is `SelfSigned`
        Yes = 1 ///< it counts as the chain's root: whoever made it is believed
    };

    /// Whether certificates pass whose end of validity lies in the past. A start in the future is
    /// never tolerated.
    enum class AllowExpiredCertificate : int
    {
        No = 0, ///< the verdict is `Expired`
        Yes = 1 ///< the end of validity is not looked at, in the whole chain
    };

    /// Whether revocation is looked at.
    enum class AllowRevokedCertificate : int
    {
        No = 0, ///< what a CRL revokes gets the verdict `Revoked`, as far as CRLs are applied at all
        Yes = 1 ///< no CRL is applied. Those that DownloadCRL asks for are fetched all the same
    };

    /// How far up the chain CRLs are applied. Without effect unless DownloadCRL asks for CRLs and all of
    /// them could be had: only a run that fetched CRLs applies any.
    enum class CheckCRL : int
    {
        None = 0,      ///< no CRL is applied
        LeafOnly = 1,  ///< that of the certificate under validation (`X509_V_FLAG_CRL_CHECK`)
        WholeChain = 2 ///< that of every certificate below the root (also `X509_V_FLAG_CRL_CHECK_ALL`)
    };

    /// Whether CRLs are fetched, and what a failure means. A few failures are thrown wherever CRLs are
    /// fetched: see X509Certificate::validateCertificate.
    enum class DownloadCRL : int
    {
        None = 0,       ///< nothing is fetched, and so no CRL is applied
        BestEffort = 1, ///< a failure is not reported, and the run goes on without any check of CRLs
        Required = 2    ///< a failure is thrown out of validateCertificate
    };

    /// Without arguments: nothing is tolerated, no CRL is fetched or applied, no second trust store.
    /// @param allowSelfSigned whether an untrusted self-signed certificate passes
    /// @param allowExpired whether expired certificates pass
    /// @param allowRevoked whether revoked certificates pass
    /// @param checkCRL which certificates a CRL is applied to
    /// @param downloadCRL whether CRLs are fetched, and what a failure means
    /// @param fallbackTrustStore a second trust store, tried when the first run ends as `Untrusted`,
    ///     `SelfSigned`, `BadSignature` or `Failed`; its answer then counts, even if it is worse
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

/// Which revocation was found in the CRLs that a validation fetched.
class FOUNDATION_CERTIFICATES_EXPORT CertificateRevocationResults
{
public:
    /// Whether a CRL named the certificate.
    enum class RevocationStatus : int
    {
        NotRevoked = 0, ///< no entry was found, or none was looked for
        Revoked = 1     ///< an entry was found
    };

    /// Holds what it is given; without arguments, that nothing is revoked.
    CertificateRevocationResults(
        RevocationStatus status = RevocationStatus::NotRevoked, std::string revocationDate = {},
        std::string revokedSerialNumber = {});

    /// Whether an entry was found.
    RevocationStatus getRevocationStatus() const;
    /// The date of the entry that matched, as `ASN1_TIME_print` writes it; empty if nothing is revoked.
    std::string getRevocationDateString() const;
    /// The serial number of the entry that matched, in decimal digits; empty if nothing is revoked.
    std::string getRevokedSerialNumberString() const;

private:
    RevocationStatus status;
    std::string revocationDate;
    std::string revokedSerialNumber;
};

/// The outcome of a validation. Copies share the root certificate's object.
class FOUNDATION_CERTIFICATES_EXPORT CertificateValidationResults
{
public:
    /// Holds what it is given, no revocation and no root; without arguments, the status `Failed`.
    CertificateValidationResults(
        CertificateChainStatus status = CertificateChainStatus::Failed, std::string errorText = {});

    /// The verdict.
    CertificateChainStatus getCertificateChainStatus() const;
    /// A report of the error with its code, depth and subject; empty for `Valid` and `SelfSigned`.
    std::string getValidationErrorString() const;
    /// Filled for the status `Revoked` alone, and there only if a CRL fetched by the run names
    /// the certificate.
    CertificateRevocationResults getCertificateRevocationResults() const;
    /// The last certificate of the chain that verified; none unless the status is `Valid`.
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

/// The outcome of a verification of signed data: one verdict on the signature, one on the signer's chain.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7CertificateValidationResults
{
public:
    /// Holds what it is given; without arguments, a signature that is not sound and the status `Failed`.
    PKCS7CertificateValidationResults(
        bool signatureStatus = false, CertificateChainStatus status = CertificateChainStatus::Failed,
        std::string const& errorText = {});

    /// Whether the signature over the content verified; says nothing of the chain.
    bool getSignatureVerificationStatus() const;
    /// The verdict on the signer's chain.
    CertificateChainStatus getCertificateChainStatus() const;
    /// What was wrong. It need not be empty where both verdicts are good.
    std::string getValidationErrorString() const;
    /// Whether the signature verified and the chain is `Valid`: the question to ask.
    bool isValidSignature() const;

private:
    bool signatureStatus;
    CertificateChainStatus status;
    std::string errorText;
};

} // namespace foundation::certificates
