#pragma once

/// @file
/// Alternative names between values and OpenSSL's form.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/toolkit/Certificate.hpp>

#include <vector>

namespace foundation::toolkit {

/// Returns the names in their order; none for a null pointer.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::vector<AlternativeName> alternativeNamesFrom(GENERAL_NAMES const* names);

} // namespace foundation::toolkit
