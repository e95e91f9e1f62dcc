#pragma once

#include "certificate/NamesAndTimes.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace foundation::certificates {

/// The implementation of X509Certificate. Shares ownership of the parsed certificate, which nothing changes
/// after loading.
///
/// Has no lock: the handle calls it under the handle's lock. Other parts of the library use temporary objects
/// of this class to reach the OpenSSL object. Only loading opens an error scope. X509Certificate documents
/// the operations. Without content, each of them throws X509CertificateException "Error: X509Certificate has
/// no content."
///
/// Five source files implement the class:
/// - X509CertificateImpl.cpp: loading, queries and output
/// - validation/ChainVerification.cpp: verification
/// - revocation/CRLPreparation.cpp: the lookup of the root and the preparation of CRLs
/// - revocation/CRLDownload.cpp: distribution points and the download of a CRL
/// - revocation/CRLCheck.cpp: the check of a CRL and the search for a revocation
class X509CertificateImpl
{
public:
    using CRLs = std::vector<X509_CRLUPtr>;

    /// The outcome of one verification. The root is present only after success.
    struct ValidationRun;

    X509CertificateImpl();
    X509CertificateImpl(ByteArray const& data);
    X509CertificateImpl(std::string const& data);
    X509CertificateImpl(std::istream& stream);
    /// Duplicates the certificate. Refuses its key as loading does.
    X509CertificateImpl(X509* certificate);
    /// Becomes a further owner of the certificate instead of duplicating it. The result is that of the
    /// duplicating constructor, and so are the failures. Only for a certificate that OpenSSL has just parsed
    /// and whose other owners do not change it. Removes what a duplicate would not have: trust settings,
    /// alias and key identifier.
    static X509CertificateImpl adopt(X509* certificate);
    /// Shares the source's certificate. The guard proves that the caller holds the lock of the source's
    /// handle.
    X509CertificateImpl(X509CertificateImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    /// Leaves the source without content.
    X509CertificateImpl(X509CertificateImpl&& other) noexcept;
    X509CertificateImpl& operator=(X509CertificateImpl&& other) noexcept;
    ~X509CertificateImpl();

    bool empty() const;
    /// Returns a new handle, with its own lock, that shares the certificate.
    X509Certificate furtherHandle() const;
    /// Returns a duplicate that the caller owns; null if OpenSSL runs out of memory.
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
    /// Whether getModulus and getPublicExponent work. They are cheaper than the whole PublicKeyInfo, whose
    /// checks loading has already made.
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
    /// Returns the same bytes as getAsBytes; none if OpenSSL cannot encode the certificate.
    ByteArray encoding() const;
    std::string getAsString() const;
    std::string getAsPEMString() const;
    void print(std::ostream& out) const;

    CertificateValidationResults validateCertificate(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    /// Verifies against the trust store. Verifies again, against the fallback store of the options, if the
    /// first verdict is `Untrusted`, `SelfSigned`, `BadSignature` or `Failed`.
    ValidationRun validateWithFallback(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    ValidationRun verifyAgainstStore(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;
    /// Whether the options tolerate OpenSSL's error. The verify callback asks this.
    static bool isForgiven(CertificateValidationOptions const& options, int errorCode);

    X509CertificateImpl
    getRootCACertificate(X509CertificateChain const& chain, TrustStore const& trustStore) const;
    /// Fetches one CRL for each level of the list, leaf first, and adds it to the store. May append the root
    /// to the list. Returns whether every requested level has its CRL.
    bool prepareCRLs(
        CertificateValidationOptions::DownloadCRL mode, CertificateValidationOptions::CheckCRL check,
        CRLs& crls, std::vector<X509Certificate>& certificates, X509_STOREUPtr& store,
        X509CertificateChain const& chain, TrustStore const& trustStore) const;

    /// Fetches the CRL that the certificate names. Checks its signature with the issuer's key, and its next
    /// update against the clock. Adds it to the store and the list. Returns whether all this succeeded.
    bool downloadCRL(
        X509Certificate const& certificate, X509_STOREUPtr& store, CRLs& crls,
        CertificateValidationOptions::DownloadCRL mode, EVP_PKEYUPtr& issuerKey) const;
    /// Returns the revocation of the first certificate, leaf first, that the CRL of its own level names.
    CertificateRevocationResults
    findRevocation(CRLs const& crls, std::vector<X509Certificate> const& certificates) const;

    /// Returns all URIs of the CRL distribution points, in the order of the certificate.
    std::vector<std::string> getCRLDistributionPoints(X509Certificate const& certificate) const;
    /// Returns the body of the response to one GET request. Empty after any failure: it does not throw.
    std::string fetchHttpResponse(
        std::string const& host, std::string const& path,
        CertificateValidationOptions::DownloadCRL mode) const;
    /// Throws X509CertificateException with the message if CRLs are required.
    void throwIfRequired(CertificateValidationOptions::DownloadCRL mode, std::string message) const;

private:
    friend struct X509Access;

    void load(ByteArray const& data);
    /// Returns the certificate, which the caller must not change.
    X509* content() const;
    /// Reads the key in the steps whose failures getPublicKeyInfo reports.
    PublicKeyInfo publicKeyInfoInSteps() const;
    /// Encodes through a BIO, whose failures getAsBytes reports.
    ByteArray bytesByBIO() const;
    ByteArray rsaParameter(char const* name, char const* notRSAText, char const* failureText) const;

    std::shared_ptr<X509> x509;
    /// The size of the encoding; 0 until it is needed. Finding it takes OpenSSL a third of the time of an
    /// output.
    mutable std::size_t encodedSize = 0;
};

struct X509CertificateImpl::ValidationRun
{
    std::optional<X509CertificateImpl> root;
    CertificateValidationResults results;
};

} // namespace foundation::certificates
