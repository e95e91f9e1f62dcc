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

/// The set of certificates that validation, PKCS#7 verification and TLS set-up accept as anchors. A
/// value type: a copy is an independent store, which shares no certificate with its source. No
/// certificate is held twice.
///
/// Every failure of the class's own is a TrustStoreException with nothing of OpenSSL in its text; it leaves
/// the store usable, with what was already added still in it, and OpenSSL's error queue as it was.
///
/// A trust store that was moved from reads as empty, and becomes usable again through the three adding
/// operations, with the platform's default adder. Copying it throws TrustStoreException "Error: TrustStore
/// is uninitialized."
///
/// Each object has a lock of its own, held by every operation for its whole run; moving, swapping,
/// assigning to and destroying an object take no lock on it. Where locks nest, the order is trust store,
/// chain, certificate.
class FOUNDATION_CERTIFICATES_EXPORT TrustStore
{
public:
    /// What the operating system's roots are wanted for.
    enum class Usage : std::uint32_t
    {
        ServerAuthentication = 0, ///< TLS servers
        Signing = 1               ///< code, mail and time stamps
    };

    /// An empty store with the platform's default adder.
    /// @throws TrustStoreException "Failed to create X509_STORE", as do all constructors that make a store
    TrustStore();
    /// An empty store that takes the operating system's certificates through the given adder, which
    /// must not be null.
    TrustStore(std::unique_ptr<ISystemCertificateAdder> adder);
    /// A deep copy: certificates are duplicated, CRLs shared, the adder cloned. Holds the source's lock.
    /// @throws TrustStoreException "Failed to add CRL to store", "Failed to add certificate to store, CN: "
    ///     and the common name
    TrustStore(TrustStore const& other);
    /// Takes over the content. The source reads as empty from then on.
    TrustStore(TrustStore&& other) noexcept;
    ~TrustStore();

    /// Copies, then exchanges: holds the source's lock during the copy, and takes none on this object.
    TrustStore& operator=(TrustStore const& other);
    /// Exchanges the two contents: the source is left holding what this object held.
    TrustStore& operator=(TrustStore&& other) noexcept;
    /// Exchanges the two contents, without a lock on either.
    void swap(TrustStore& other) noexcept;

    /// Adds a duplicate of the certificate, a leaf too; one that is there already is a silent success. The
    /// argument is copied before this store's lock is taken.
    /// @throws TrustStoreException "Input certificate is empty.", "Failed to add certificate to store"
    void addCertificate(X509Certificate const& certificate);
    /// Adds the CA certificates of the chain (X509Certificate::isCACertificate) and passes over the others
    /// without a word. A failure ends the operation; what was added before stays.
    /// @throws TrustStoreException "Failed to add certificate to store"
    /// @throws X509CertificateChainException "Error: X509CertificateChain is uninitialized." for a
    ///     moved-from chain
    void addCertificates(X509CertificateChain const& chain);
    /// Brings in the operating system's roots that fit the usage, then removes from the whole store,
    /// certificates added by hand included, whatever has expired or is unfit for the usage.
    ///
    /// @param usage what the roots are wanted for; decides which are added and which are removed
    /// @param rethrowOnFailure what happens to a system certificate that cannot be parsed or added:
    ///     true ends the operation with its failure, before anything is removed; false logs it at
    ///     severity 16 and goes on
    ///
    /// Each certificate removed, and their number, is logged at severity 4. A usage outside the enumeration
    /// empties the store.
    /// @throws TrustStoreException "Failed to open system certificate store: " and the cause
    /// @throws TrustStoreException "Failed to parse DER data to X509 certificate. Cert size = ..." if
    ///     rethrowOnFailure
    void addSystemCertificates(Usage usage, bool rethrowOnFailure = false);

    /// Whether size() is 0.
    bool empty() const;
    /// The number of entries, certificates and CRLs alike.
    std::size_t size() const;
    /// The certificates, in the order of OpenSSL's store.
    /// @throws TrustStoreException "Unsupported object type found in TrustStore" if the store holds a CRL
    /// @throws CertificateException as X509Certificate's constructors do, for a certificate whose key the
    ///     library refuses: a store fed by the operating system may hold one
    X509CertificateChain getCertificates() const;
    /// The PEM text of each certificate, as OpenSSL writes it (`PEM_write_bio_X509`).
    /// @throws TrustStoreException "Unsupported object type found in TrustStore" if the store holds a CRL
    std::vector<std::string> getPEMStrings() const;

private:
    friend std::shared_ptr<x509_store_st> getOpenSSLStore(TrustStore const& trustStore);
    friend std::unique_ptr<x509_store_st, void (*)(x509_store_st*)>
    copyOpenSSLStore(TrustStore const& trustStore);

    void ensureImpl();

    std::unique_ptr<TrustStoreImpl> impl;
    mutable std::mutex mutex;
};

/// The strategy that fetches the operating system's root certificates for a trust store.
class FOUNDATION_CERTIFICATES_EXPORT ISystemCertificateAdder
{
public:
    virtual ~ISystemCertificateAdder();
    /// A new object, owned by the caller: the adder of a copied trust store.
    virtual ISystemCertificateAdder* clone() const = 0;
    /// Delivers the system's roots that fit the usage one by one through
    /// TrustStoreImpl::addDERCertificate. A TrustStoreException there ends the run with that exception if
    /// rethrowOnFailure is set, and otherwise is logged and passed over. Runs under the lock of the trust
    /// store, which must not be called back.
    virtual void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) = 0;
};

} // namespace foundation::certificates
