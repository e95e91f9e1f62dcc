#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <vector>

namespace foundation::certificates {

/// A stack of duplicates of the certificates, in their order. OpenSSL's error queue is left as it is.
/// @throws X509CertificateException "Error: X509Certificate has no content."
X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates);

} // namespace foundation::certificates
