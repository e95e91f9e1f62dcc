#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/export.hpp>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct pkcs7_st;

namespace foundation::certificates {

/// The implementation of PKCS7Certificate. Owns the parsed structure, which no operation changes, and the
/// list of embedded and added certificates. The structure and the list share the embedded certificates; the
/// structure has its own only of those with invalid extensions. Has no lock; the handle calls it under the
/// handle's lock. PKCS7Certificate documents the operations.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7CertificateImpl
{
public:
    /// Creates an object without structure and certificates.
    PKCS7CertificateImpl();
    /// Loads as PKCS7Certificate does.
    PKCS7CertificateImpl(ByteArray const& data);
    /// Loads as PKCS7Certificate does.
    PKCS7CertificateImpl(std::string const& data);
    /// Loads as PKCS7Certificate does.
    PKCS7CertificateImpl(std::istream& stream);
    /// Refuses a `std::filesystem::path`, as PKCS7Certificate does.
    template <typename Path, typename = detail::IfFilesystemPath<Path>>
    PKCS7CertificateImpl(Path const& file) = delete;
    /// Copies the source's structure. The guard proves that the caller holds the lock of the source's handle.
    PKCS7CertificateImpl(PKCS7CertificateImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    /// Leaves the source without certificates and structure.
    PKCS7CertificateImpl(PKCS7CertificateImpl&& other) noexcept;
    ~PKCS7CertificateImpl();

    /// Copies the source's certificates, but never its structure. A target with a structure keeps an equal
    /// copy of its own; a target without a structure stays without one. The copy constructor, which the
    /// handle uses, makes a whole copy.
    PKCS7CertificateImpl& operator=(PKCS7CertificateImpl const& other);
    /// Leaves the source without certificates and structure.
    PKCS7CertificateImpl& operator=(PKCS7CertificateImpl&& other) noexcept;

    /// See PKCS7Certificate::empty.
    bool empty() const;
    /// See PKCS7Certificate::getAsBytes.
    ByteArray getAsBytes() const;
    /// See PKCS7Certificate::getAsString.
    std::string getAsString() const;
    /// See PKCS7Certificate::getCertificates.
    std::vector<X509Certificate> getCertificates() const;
    /// See PKCS7Certificate::getNumCertificates.
    std::uint64_t getNumCertificates() const;
    /// See PKCS7Certificate::getSignedData.
    ByteArray getSignedData() const;
    /// See PKCS7Certificate::getSignerCerts.
    X509CertificateChain getSignerCerts() const;
    /// See PKCS7Certificate::verifySignature.
    PKCS7CertificateValidationResults verifySignature(
        X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const;
    /// See PKCS7Certificate::print.
    void print(std::ostream& out) const;
    /// Appends a copy. Accepts an empty certificate; the handle refuses that.
    void addCertificate(X509Certificate const& certificate);

    /// See PKCS7Certificate::operator==.
    bool operator==(PKCS7CertificateImpl const& other) const;
    /// Whether the two differ. Throws as operator== does.
    bool operator!=(PKCS7CertificateImpl const& other) const;

    /// Throws if there are no certificates.
    /// @throws PKCS7CertificateException "PKCS7Certificate has no content."
    void throwIfEmpty() const;

private:
    void init(ByteArray const& data);
    CertificateEncoding autodetectEncoding(ByteArray const& data) const;
    void readCertificates();
    /// Returns the verdict on the first signer's chain for valid signatures.
    PKCS7CertificateValidationResults
    validateFirstSigner(X509CertificateChain const& intermediates, TrustStore const& trustStore) const;

    std::vector<X509Certificate> certificates;
    std::unique_ptr<pkcs7_st, void (*)(pkcs7_st*)> pkcs7;
};

} // namespace foundation::certificates
