#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/TrustStore.hpp>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

/// Whether a certificate of the operating system's may serve the usage; false for a usage outside
/// the enumeration.
bool isValidForUsage(X509* certificate, TrustStore::Usage usage);

/// The implementation of TrustStore: owns the OpenSSL store, whose stack of objects is all the state there
/// is, and the adder of system certificates.
///
/// It has no lock: its handle calls it under the handle's. Whatever calls OpenSSL here runs inside an error
/// scope with a mark, so that the caller's error queue is the same afterwards.
class TrustStoreImpl
{
public:
    /// With the platform's default adder.
    TrustStoreImpl();
    TrustStoreImpl(std::unique_ptr<ISystemCertificateAdder> systemAdder);
    /// The guard proves that the caller holds the lock of the source's handle.
    TrustStoreImpl(TrustStoreImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    ~TrustStoreImpl();

    void addCertificate(X509Certificate const& certificate);
    void addCertificates(X509CertificateChain const& chain);
    void addSystemCertificates(TrustStore::Usage usage, bool rethrowOnFailure);
    bool empty() const;
    std::size_t size() const;
    X509CertificateChain getCertificates() const;
    std::vector<std::string> getPEMStrings() const;

    /// The way in which an adder feeds the store: one certificate in DER form.
    /// @throws TrustStoreException "Failed to parse DER data to X509 certificate. Cert size = " and the
    ///     size and the bytes
    /// @throws TrustStoreException "Failed to add certificate to store"
    void addDERCertificate(ByteArray const& der);
    /// Adds a reference to the certificate; one that is there already is a success.
    void addX509(X509* certificate);
    /// The certificate at the index, borrowed from the store.
    /// @throws TrustStoreException "Unsupported object type found in TrustStore", "Null X509 certificate
    ///     found in TrustStore"
    X509* x509At(unsigned index) const;
    /// A separate store with duplicates of the certificates and references to the CRLs; null if
    /// OpenSSL makes none.
    X509_STOREUPtr copyStore() const;
    /// A further owner of the live store.
    std::shared_ptr<X509_STORE> getStore() const;

    /// Removes from the whole store what has expired, what is unfit for the usage, and what is no
    /// certificate.
    void removeUnsuitableCertificates(TrustStore::Usage usage);

private:
    std::shared_ptr<X509_STORE> store;
    std::unique_ptr<ISystemCertificateAdder> adder;
};

} // namespace foundation::certificates
