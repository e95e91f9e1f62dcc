#pragma once

/// @file
/// The OpenSSL store that one verification reads. It is private to the verification, which sets its own flags
/// and callback in it and adds its own CRLs.
///
/// The store is new and almost empty. When OpenSSL looks for certificates of a name, a look-up method adds
/// those of the trust store, by reference. So a verification costs what its path costs, and OpenSSL finds the
/// same certificates in the same order as in a full copy of the trust store.

#include "libcrypto/OpenSSLHandles.hpp"
#include "truststore/TrustedCertificates.hpp"

#include <foundation/certificates/TrustStore.hpp>

namespace foundation::certificates {

/// Returns a store in which a verification finds the trust store's certificates and CRLs; null for a trust
/// store that was moved from. Use the store for look-ups only: it does not list the trust store's
/// certificates.
///
/// Holds the trust store's lock during the call. Leaves OpenSSL's error queue unchanged. Later changes of the
/// trust store do not reach the verification.
/// @throws TrustStoreException "Failed to create X509_STORE", "Failed to add CRL to store", and as
///     copyOpenSSLStore does
X509_STOREUPtr makeVerificationStore(TrustStore const& trustStore);
/// Does the same for certificates that were read before.
X509_STOREUPtr makeVerificationStore(SharedTrustedCertificates certificates);

/// Adds a reference to a further certificate, which this verification then trusts. A certificate that the
/// store refuses is not trusted; OpenSSL queues the reason.
///
/// Always use this function instead of `X509_STORE_add_cert`: it first adds the trust store's certificates of
/// the same name, which OpenSSL would not look for any more.
/// @throws TrustStoreException as throwIfIncomplete does
void addTrustedCertificate(X509_STORE* store, X509* certificate);

/// Throws if memory ran out while the verification looked up certificates of the trust store. A verdict
/// without them may be wrong, so call this after each verification, failed or not.
/// @throws TrustStoreException "Failed to add certificate to store, CN: " and the common name
void throwIfIncomplete(X509_STORE* store);

} // namespace foundation::certificates
