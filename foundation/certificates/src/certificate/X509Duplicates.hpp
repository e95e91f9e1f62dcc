#pragma once

/// @file
/// Copies of a certificate's OpenSSL object, made from its DER form. They are for code that changes the
/// object or passes it on. X509Access shares the object instead.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <vector>

namespace foundation::certificates {

/// Returns the certificate at the start of the bytes, without the checks of a load; null if they hold none.
/// Leaves OpenSSL's error queue as it is, except that a failure adds to it.
X509UPtr x509FromDER(ByteArray const& der);

/// Returns a duplicate of the certificate, never null. Clears OpenSSL's error queue, as loading a certificate
/// does.
/// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate has
///     no content."
X509UPtr duplicateX509Of(X509Certificate const& certificate);

/// Returns a stack of duplicates in the order of the certificates. Leaves OpenSSL's error queue as it is.
/// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate has
///     no content."
X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates);

} // namespace foundation::certificates
