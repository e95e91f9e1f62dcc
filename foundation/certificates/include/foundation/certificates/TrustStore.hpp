#pragma once

#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/export.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct ssl_ctx_st;
struct x509_store_st;

namespace foundation::certificates {

class ISystemCertificateAdder;
class TrustStoreImpl;

/// The set of certificates that validation, PKCS#7 verification and TLS set-up accept as trust anchors. A
/// value type: a copy is an independent store. The store holds no certificate twice. Stores, handles and
/// results share certificates in memory, except for a store whose OpenSSL store was handed out.
///
/// A failure is a TrustStoreException without OpenSSL's error text, unless noted otherwise. It leaves the
/// store usable, with what was already added, and leaves OpenSSL's error queue unchanged. Every operation
/// that reads or copies the entries throws TrustStoreException "Failed to read X509_STORE" if OpenSSL runs
/// out of memory.
///
/// A trust store that was moved from reads as empty. The three adding operations make it usable again, with
/// the platform's default adder. Copying it throws TrustStoreException "Error: TrustStore is uninitialized."
///
/// Each object has its own lock. Every operation holds it for the whole call. Moving, swapping, assigning to
/// and destroying an object take no lock on it. Do not do that while another thread uses the object. Nested
/// locks are taken in the order trust store, chain, certificate.
class FOUNDATION_CERTIFICATES_EXPORT TrustStore
{
public:
    /// The purpose of the operating system's roots.
    enum class Usage : std::uint32_t
    {
        ServerAuthentication = 0, ///< TLS servers
        Signing = 1               ///< code, mail and time stamps
    };

    /// Creates an empty store with the platform's default adder.
    /// @throws TrustStoreException "Failed to create X509_STORE", as all constructors that create a store do
    TrustStore();
    /// Creates an empty store that takes the operating system's certificates from the given adder, which must
    /// not be null.
    TrustStore(std::unique_ptr<ISystemCertificateAdder> adder);
    /// Shares the certificates and CRLs, clones the adder. Changes of one store do not reach the other. Holds
    /// the source's lock.
    /// @throws TrustStoreException "Failed to add CRL to store", "Failed to add certificate to store, CN: "
    ///     and the common name
    TrustStore(TrustStore const& other);
    /// Takes the content. The source then reads as empty.
    TrustStore(TrustStore&& other) noexcept;
    ~TrustStore();

    /// Copies, then exchanges. Holds the source's lock during the copy and takes no lock on this object.
    TrustStore& operator=(TrustStore const& other);
    /// Exchanges the contents. The source then holds what this object held.
    TrustStore& operator=(TrustStore&& other) noexcept;
    /// Exchanges the contents, without a lock on either object.
    void swap(TrustStore& other) noexcept;

    /// Adds the certificate, which may be a leaf. Does nothing if the store holds the certificate already.
    /// Locks the argument and this store one after the other.
    /// @throws TrustStoreException "Input certificate is empty.", "Failed to add certificate to store"
    void addCertificate(X509Certificate const& certificate);
    /// Adds the CA certificates of the chain (X509Certificate::isCACertificate) and skips the others. A
    /// failure ends the operation; what was added before stays.
    /// @throws TrustStoreException "Failed to add certificate to store"
    /// @throws X509CertificateChainException "Error: X509CertificateChain is uninitialized." for a
    ///     moved-from chain
    void addCertificates(X509CertificateChain const& chain);
    /// Adds the operating system's roots that fit the usage. Then removes every certificate from the store
    /// that has expired or does not fit the usage, including those that the program added.
    ///
    /// @param usage decides which certificates are added and which are removed
    /// @param rethrowOnFailure decides what happens if a system certificate cannot be parsed or added: true
    ///     throws the failure before anything is removed; false logs it at severity 16 and continues
    ///
    /// On Unix the roots come from the locations that the environment variables SSL_CERT_FILE and
    /// SSL_CERT_DIR name, or else from the system's bundle or folder. See getSystemCertificatesFile and
    /// getSystemCertificatesFolder. A program that verifies updates should pin its own root instead.
    ///
    /// Logs each removed certificate, and their number, at severity 4. A usage outside the enumeration
    /// empties the store.
    /// @throws TrustStoreException "Failed to open system certificate store: " and the locations, or Windows'
    ///     error
    /// @throws TrustStoreException "Failed to read " and the path, for either value of rethrowOnFailure, if a
    ///     bundle, a folder or a named file cannot be read
    /// @throws TrustStoreException "Failed to parse DER data to X509 certificate. Cert size = ..." if
    ///     rethrowOnFailure
    void addSystemCertificates(Usage usage, bool rethrowOnFailure = false);

    /// Whether size() is 0.
    bool empty() const;
    /// Returns the number of certificates and CRLs.
    std::size_t size() const;
    /// Returns the certificates, in the order of OpenSSL's store.
    /// @throws TrustStoreException "Unsupported object type found in TrustStore" if the store holds a CRL
    /// @throws CertificateException as X509Certificate's constructors do, for a certificate whose key the
    ///     library refuses. The operating system may provide one.
    X509CertificateChain getCertificates() const;
    /// Returns the PEM text of each certificate, as OpenSSL writes it (`PEM_write_bio_X509`).
    /// @throws TrustStoreException "Unsupported object type found in TrustStore" if the store holds a CRL
    std::vector<std::string> getPEMStrings() const;

private:
    friend std::shared_ptr<x509_store_st> getOpenSSLStore(TrustStore const& trustStore);
    friend std::unique_ptr<x509_store_st, void (*)(x509_store_st*)>
    copyOpenSSLStore(TrustStore const& trustStore);
    friend struct TrustStoreAccess;

    void ensureImpl();

    std::unique_ptr<TrustStoreImpl> impl;
    mutable std::mutex mutex;
};

/// The strategy that fetches the operating system's root certificates for a trust store.
class FOUNDATION_CERTIFICATES_EXPORT ISystemCertificateAdder
{
public:
    virtual ~ISystemCertificateAdder();
    /// Returns a new adder for a copied trust store. The caller owns it.
    virtual ISystemCertificateAdder* clone() const = 0;
    /// Delivers the system's roots that fit the usage one by one through TrustStoreImpl::addDERCertificate.
    /// If that throws a TrustStoreException, the run ends with it if rethrowOnFailure is set, and otherwise
    /// logs it and continues. Runs under the lock of the trust store: do not call the trust store.
    virtual void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) = 0;
};

} // namespace foundation::certificates
