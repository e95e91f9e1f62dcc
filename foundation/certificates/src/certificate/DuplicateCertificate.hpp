#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/X509Certificate.hpp>

namespace foundation::certificates {

/// A duplicate of the certificate's OpenSSL object, for code that holds only the handle. It goes by way of
/// the encoding, which the handle gives under its lock. OpenSSL's error queue is emptied, as whenever a
/// certificate is loaded. Never null.
/// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate has
///     no content."
X509UPtr duplicateX509Of(X509Certificate const& certificate);

} // namespace foundation::certificates
