#pragma once

/// @file
/// What a verification reads of a trust store, in a form that any number of verifications share without a
/// lock: immutable and ordered by subject. OpenSSL has read each certificate, so it has nothing left to
/// cache. What it could not read stays so, even if it only ran out of memory. See isReadCompletely.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <openssl/x509_vfy.h>

#include <memory>
#include <vector>

namespace foundation::certificates {

class TrustedCertificates
{
public:
    /// Positions of certificates, from the first to behind the last.
    struct Range
    {
        int begin;
        int end;
    };

    /// Takes the certificates in the order of the store.
    /// @throws TrustStoreException "Failed to create X509_STORE" if out of memory
    TrustedCertificates(std::vector<X509UPtr> certificates, std::vector<X509_CRLUPtr> storedCRLs);

    /// Returns the positions of all certificates with the subject, which keep the order of the store.
    Range withSubject(X509_NAME const* subject) const;
    /// Returns the certificate at the position, which the caller must not change.
    X509* at(int position) const;
    std::vector<X509_CRLUPtr> const& crls() const;

private:
    X509StackUPtr bySubject;
    std::vector<X509_CRLUPtr> storeCRLs;
};

using SharedTrustedCertificates = std::shared_ptr<TrustedCertificates const>;

/// Reads a store that nobody outside of the library has. Shares its certificates.
/// @throws TrustStoreException "Failed to create X509_STORE", "Failed to read X509_STORE" if out of memory
/// @throws TrustStoreException "Unsupported object type found in TrustStore", "Null X509 certificate found in
///     TrustStore"
SharedTrustedCertificates trustedCertificatesIn(X509_STORE* store);

/// Reads a store that was handed out, so that anybody may have changed it since the last reading. The result
/// has duplicates of the certificates, which nobody outside of the library can change.
class LiveStoreReader
{
public:
    /// Returns the last result as long as the store has the same entries in the same order, and their
    /// encodings are the same. Otherwise duplicates what is new.
    /// @throws TrustStoreException "Failed to add certificate to store, CN: " and the common name, if out of
    ///     memory; and as trustedCertificatesIn does
    SharedTrustedCertificates read(X509_STORE* store);

    /// Returns a new store with the same entries in the same order: the duplicates, and references to the
    /// CRLs. Null if OpenSSL cannot create a store.
    /// @throws TrustStoreException "Failed to add CRL to store", and as read does
    X509_STOREUPtr copy(X509_STORE* store) const;

private:
    /// An entry, with a reference to its object, so that no other object gets the same address.
    struct Entry
    {
        X509UPtr certificate = makeX509(nullptr);
        X509_CRLUPtr crl = makeX509_CRL(nullptr);
        X509UPtr duplicate = makeX509(nullptr);
        /// The DER form of the certificate when it was duplicated.
        ByteArray encoding;
    };

    bool isUpToDate(X509_STORE* store) const;
    /// Whether the certificate still has the encoding. The buffer saves allocations.
    static bool isUnchanged(Entry const& entry, ByteArray& buffer);
    /// Takes over the duplicates of certificates that are known and unchanged.
    std::vector<Entry> readAnew(X509_STORE* store) const;

    std::vector<Entry> known;
    SharedTrustedCertificates certificates;
};

} // namespace foundation::certificates
