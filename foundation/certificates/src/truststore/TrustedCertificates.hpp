#pragma once

/// @file
/// What a verification reads of a trust store, in a form that any number of verifications share without a
/// lock: immutable, ordered by subject, and with certificates in which OpenSSL has nothing left to cache.

#include "libcrypto/OpenSSLHandles.hpp"

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
///
/// OpenSSL keeps in a certificate that it could not read it, even if it ran out of memory. Such a certificate
/// is duplicated and read again.
struct TrustedCertificatesReading
{
    /// @throws TrustStoreException "Failed to add certificate to store, CN: " and the common name, "Failed to
    ///     create X509_STORE" if out of memory
    /// @throws TrustStoreException "Unsupported object type found in TrustStore", "Null X509 certificate
    ///     found in TrustStore"
    explicit TrustedCertificatesReading(X509_STORE* store);

    SharedTrustedCertificates certificates;
    /// Whether later verifications may use the result. False after a reading that lacked memory.
    bool isFinal = true;
};

/// Reads a store that was handed out, so that anybody may have changed it since the last reading. The result
/// has duplicates of the certificates, which nobody outside of the library can change.
class LiveStoreReader
{
public:
    /// Returns the last result as long as the store has the same entries in the same order. Otherwise
    /// duplicates the new certificates.
    /// @throws TrustStoreException as TrustedCertificatesReading does
    SharedTrustedCertificates read(X509_STORE* store);

    /// Returns a new store with the same entries in the same order: the duplicates, and references to the
    /// CRLs. Null if OpenSSL cannot create a store.
    /// @throws TrustStoreException "Failed to add CRL to store", and as TrustedCertificatesReading does
    X509_STOREUPtr copy(X509_STORE* store) const;

private:
    /// An entry, with a reference to its object, so that no other object gets the same address.
    struct Entry
    {
        X509UPtr certificate;
        X509_CRLUPtr crl;
        X509UPtr duplicate;
    };

    /// The entries of one reading, and whether a later reading may take over its duplicates.
    struct Reading
    {
        std::vector<Entry> entries;
        bool isFinal = true;
    };

    bool isUpToDate(X509_STORE* store) const;
    static std::vector<Entry> entriesOf(X509_STORE* store);
    Reading readAnew(X509_STORE* store) const;

    std::vector<Entry> known;
    SharedTrustedCertificates certificates;
};

} // namespace foundation::certificates
