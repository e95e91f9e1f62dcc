#pragma once

#include "libcrypto/OpenSSLHandles.hpp"
#include "truststore/StoreEntries.hpp"
#include "truststore/TrustedCertificates.hpp"

#include <foundation/certificates/TrustStore.hpp>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

/// Whether the certificate may serve the usage. False for a usage outside the enumeration.
bool isValidForUsage(X509* certificate, TrustStore::Usage usage);

/// The implementation of TrustStore. Owns the OpenSSL store, whose entries are all of its state, and the
/// adder of system certificates.
///
/// Until the store is handed out, nobody outside of the library can change it or its certificates. So
/// certificates are shared with handles, with results and with other trust stores, and a copy shares the
/// whole store until one of the two changes. The first hand-out replaces the store by one whose certificates
/// are duplicates that nobody else has. From then on nothing is shared.
///
/// Nothing looks up certificates in the store, because a look-up sorts it, and getPEMStrings shows the order.
/// Verifications read TrustedCertificates instead.
///
/// Has no lock: the handle calls it under the handle's lock. Every operation that calls OpenSSL runs inside
/// an error scope with a mark, so that it leaves the caller's error queue unchanged.
class TrustStoreImpl
{
public:
    /// Uses the platform's default adder.
    TrustStoreImpl();
    TrustStoreImpl(std::unique_ptr<ISystemCertificateAdder> systemAdder);
    /// The guard proves that the caller holds the lock of the source's handle.
    TrustStoreImpl(TrustStoreImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    ~TrustStoreImpl();

    /// Shares the certificate of a handle, or adds a duplicate if it may not be shared.
    /// @throws TrustStoreException "Failed to add certificate to store"
    void addCertificate(X509* certificate);
    void addCertificates(X509CertificateChain const& chain);
    void addSystemCertificates(TrustStore::Usage usage, bool rethrowOnFailure);
    bool empty() const;
    std::size_t size() const;
    X509CertificateChain getCertificates() const;
    std::vector<std::string> getPEMStrings() const;

    /// Adds one certificate in DER form. Adders deliver their certificates through this operation.
    /// @throws TrustStoreException "Failed to parse DER data to X509 certificate. Cert size = " and the
    ///     size and the bytes
    /// @throws TrustStoreException "Failed to add certificate to store"
    void addDERCertificate(ByteArray const& der);
    /// Adds a reference to the certificate, which nobody may change afterwards. Adds a duplicate if the
    /// certificate has trust settings. Succeeds if the store holds the certificate already.
    /// @throws TrustStoreException "Failed to add certificate to store"
    void addX509(X509* certificate);
    /// Returns the certificate at the index, borrowed from the store.
    /// @throws TrustStoreException "Unsupported object type found in TrustStore", "Null X509 certificate
    ///     found in TrustStore"
    X509* x509At(unsigned index) const;
    /// Returns a separate store with duplicates of the certificates and references to the CRLs; null if
    /// OpenSSL cannot create one.
    /// @throws TrustStoreException "Failed to add CRL to store", "Failed to add certificate to store, CN: "
    ///     and the certificate's common name, and as x509At does
    X509_STOREUPtr copyStore() const;
    /// Returns a further owner of the live store.
    /// @throws TrustStoreException as copyStore does, at the first call
    std::shared_ptr<X509_STORE> handOutStore();
    /// Returns the certificates and CRLs for a verification, which later changes do not reach.
    /// @throws TrustStoreException as trustedCertificatesIn and LiveStoreReader::read do
    SharedTrustedCertificates trustedCertificates();

    /// Removes every entry that has expired, does not fit the usage, or is no certificate. Logs each of them,
    /// and their number, at severity 4.
    void removeUnsuitableCertificates(TrustStore::Usage usage);

private:
    /// A store, and what a reading of it found. Copies of a trust store have different locks, so shared
    /// content has its own for the reading.
    struct Content
    {
        explicit Content(X509_STOREUPtr openSSLStore);

        std::shared_ptr<X509_STORE> store;
        std::mutex readingMutex;
        SharedTrustedCertificates reading;
    };

    bool isHandedOut() const;
    StoreEntries readEntries() const;
    X509_STORE* store() const;
    /// Adds a reference, or a duplicate if the certificate may not be shared. May leave errors in OpenSSL's
    /// queue.
    void addShared(X509* certificate);
    /// Adds a reference. May leave errors in OpenSSL's queue.
    void addEntry(X509* certificate);
    /// Prepares a change: ends the sharing with copies, and drops the reading.
    void beginChange();

    std::shared_ptr<Content> content;
    /// Whether a copy has, or had, the same content. Nothing changes such content.
    mutable bool isContentShared = false;
    /// Present from the first hand-out on.
    std::unique_ptr<LiveStoreReader> liveReader;
    std::unique_ptr<ISystemCertificateAdder> adder;
};

} // namespace foundation::certificates
