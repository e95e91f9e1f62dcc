#pragma once

/// @file
/// The OpenSSL store that one verification reads. It is private to the verification, which sets its own flags
/// and callback in it and adds its own CRLs.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/TrustStore.hpp>

namespace foundation::certificates {

/// Returns a store in which a verification finds the trust store's certificates and CRLs; null for a trust
/// store that was moved from. Use the store for look-ups only: nothing may list or change its certificates.
///
/// Holds the trust store's lock during the call. Leaves OpenSSL's error queue unchanged.
/// @throws TrustStoreException as copyOpenSSLStore does
X509_STOREUPtr makeVerificationStore(TrustStore const& trustStore);

/// Adds a reference to a further certificate, which this verification then trusts. A certificate that the
/// store refuses is not trusted; OpenSSL queues the reason.
///
/// Always use this function instead of `X509_STORE_add_cert`: the store may not hold the trust store's
/// certificates of the same name yet.
void addTrustedCertificate(X509_STORE* store, X509* certificate);

} // namespace foundation::certificates
