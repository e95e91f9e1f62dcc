#pragma once

#include "certificate/NamesAndTimes.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace foundation::certificates {

/// The implementation of X509Certificate: owns a share of the parsed certificate, which nothing writes
/// to after loading.
///
/// It has no lock and opens no error scope but where it loads. Its handle calls it under the handle's lock;
/// chain, trust store, validation and containers make temporaries of it to get at the OpenSSL object. Its
/// operations are described at the handle; each of them throws X509CertificateException "Error:
/// X509Certificate has no content." without content.
///
/// Four source files share the class: loading, queries and output (X509CertificateImpl.cpp), verification
/// (ChainVerification.cpp), the preparation of CRLs and the lookup of the root (CRLPreparation.cpp), and
/// revocation (CRLCheck.cpp), which stands on the download (CRLDownload.cpp).
class X509CertificateImpl
{
public:
    using CRLs = std::vector<X509_CRLUPtr>;

    /// The outcome of one verification; the root is there only after success.
    struct ValidationRun;

    X509CertificateImpl();
    X509CertificateImpl(ByteArray const& data);
    X509CertificateImpl(std::string const& data);
    X509CertificateImpl(std::istream& stream);
    /// Duplicates the certificate, and refuses an unfit key as loading does.
    X509CertificateImpl(X509* certificate);
    /// Shares the source's certificate. The guard proves that the caller holds the lock of the
    /// source's handle.
    X509CertificateImpl(X509CertificateImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    /// Leaves the source without content.
    X509CertificateImpl(X509CertificateImpl&& other) noexcept;
    X509CertificateImpl& operator=(X509CertificateImpl&& other) noexcept;
    ~X509CertificateImpl();

    bool empty() const;
    /// A handle of its own, with a lock of its own, on the same certificate.
    X509Certificate furtherHandle() const;
    /// A duplicate that the caller owns.
    X509* duplicateX509() const;

    std::string getSubjectName() const;
    std::string getIssuerName() const;
    std::unordered_map<std::string, std::string> getSubjectNameAsRDNs() const;
    std::unordered_map<std::string, std::string> getIssuerNameAsRDNs() const;
    std::string getSubjectCommonName() const;
    std::string getIssuerCommonName() const;
    std::string getSerialNumber() const;
    std::string getSHA256Fingerprint() const;
    std::string getSignatureAlgorithm() const;
    std::string getValidNotBefore() const;
    std::string getValidNotAfter() const;
    X509Certificate::TimePoint getValidNotBeforeTimePoint() const;
    X509Certificate::TimePoint getValidNotAfterTimePoint() const;
    std::vector<std::string> getExtendedKeyUsages() const;
    std::vector<std::string> getPolicies() const;
    bool isCACertificate() const;
    bool isSelfSigned() const;
    bool isValidForDigitalSigning() const;

    PublicKeyInfo getPublicKeyInfo() const;
    /// Whether one number of the key may be asked for alone. What the record refuses besides, it has refused
    /// when the certificate was loaded.
    bool hasRSAKey() const;
    std::uint64_t getKeySize() const;
    /// @throws NotRSAKey "Cannot get modulus because the certificate does not contain an RSA key"
    /// @throws X509CertificateException "Failed to get the modulus for the public key"
    ByteArray getModulus() const;
    /// @throws NotRSAKey "Cannot get public exponent because the certificate does not contain an RSA key"
    /// @throws X509CertificateException "Failed to get the public exponent for the public key"
    ByteArray getPublicExponent() const;
    /// @throws CertificateException "Failed to extract public point from public EVP_PKEY", "Could not find
    ///     'pub' in parameter list from EVP_PKEY_todata"
    ByteArray getECCPublicPoint() const;
    EllipticCurve getECCCurve() const;
    /// @throws X509CertificateException "RSA key size does not meet minimum cryptographic requirements"
    void throwIfKeyTooWeak() const;

    ByteArray getAsBytes() const;
    std::string getAsString() const;
    std::string getAsPEMString() const;
    void print(std::ostream& out) const;

    CertificateValidationResults validateCertificate(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    /// One run, and a second one with the options' fallback store if the first ended as `Untrusted`,
    /// `SelfSigned`, `BadSignature` or `Failed`.
    ValidationRun validateWithFallback(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    ValidationRun verifyAgainstStore(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    /// What the verify callback asks: whether the options tolerate OpenSSL's error.
    static bool isForgiven(CertificateValidationOptions const& options, int errorCode);

    X509CertificateImpl
    getRootCACertificate(X509CertificateChain const& chain, TrustStore const& trustStore) const;
    /// Fetches one CRL for each level of the working list, leaf first, and adds it to the store; says
    /// whether every level that was asked for got its CRL. May append the root to the list.
    bool prepareCRLs(
        CertificateValidationOptions::DownloadCRL mode, CertificateValidationOptions::CheckCRL check,
        CRLs& crls, std::vector<X509Certificate>& certificates, X509_STOREUPtr& store,
        X509CertificateChain const& chain, TrustStore const& trustStore) const;

    /// Fetches the CRL that the certificate names, checks its signature against the issuer's key and its
    /// next update against the clock, and adds it to the store and the list. Whether all this succeeded.
    bool downloadCRL(
        X509Certificate const& certificate, X509_STOREUPtr& store, CRLs& crls,
        CertificateValidationOptions::DownloadCRL mode, EVP_PKEYUPtr& issuerKey) const;
    /// The first certificate, from the leaf upward, that the CRL of its own level names.
    CertificateRevocationResults
    findRevocation(CRLs const& crls, std::vector<X509Certificate> const& certificates) const;

    /// All URIs of the certificate's CRL distribution points, in the certificate's order.
    std::vector<std::string> getCRLDistributionPoints(X509Certificate const& certificate) const;
    /// The body of the answer to one GET request; empty after any failure, which is never thrown.
    std::string fetchHttpResponse(
        std::string const& host, std::string const& path,
        CertificateValidationOptions::DownloadCRL mode) const;
    /// Throws X509CertificateException with the message if CRLs are required; drops it otherwise.
    void throwIfRequired(CertificateValidationOptions::DownloadCRL mode, std::string message) const;

private:
    friend struct X509Access;

    void load(ByteArray const& data);
    /// The certificate, which the caller only reads.
    X509* content() const;
    ByteArray rsaParameter(char const* name, char const* notRSAText, char const* failureText) const;

    std::shared_ptr<X509> x509;
};

struct X509CertificateImpl::ValidationRun
{
    std::optional<X509CertificateImpl> root;
    CertificateValidationResults results;
};

} // namespace foundation::certificates
