#pragma once

/// @file
/// OpenSSL stores of trusted roots. Nothing changes such a store after it was made, so any number of
/// verifications may share it. It never falls back to the operating system's roots.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/Certificate.hpp>

#include <vector>

namespace foundation::toolkit {

/// Returns a store with the certificates, which it shares.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
foundation::certificates::X509_STOREUPtr makeRootStore(std::vector<Certificate> const& roots);

/// Returns a store with duplicates of the trust store's certificates, without its CRLs. It is empty for a
/// trust store that was moved from.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory.", "Internal error: Unable to
///     read the certificate's extensions."
/// @throws TrustStoreException as copyOpenSSLStore does
foundation::certificates::X509_STOREUPtr makeRootStore(foundation::certificates::TrustStore const& roots);

} // namespace foundation::toolkit
