#pragma once

/// @file
/// Alternative names between values and OpenSSL's form. No value passes through OpenSSL's configuration
/// language, so no character of a value is syntax.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/toolkit/Certificate.hpp>

#include <vector>

namespace foundation::toolkit {

/// Returns the names in their order; none for a null pointer.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::vector<AlternativeName> alternativeNamesFrom(GENERAL_NAMES const* names);

/// Returns the names in their order, never null.
/// @throws certificates::InvalidArgument "Invalid alternative name: " and the value; "Alternative names of
///     this kind cannot be made."
/// @throws certificates::CertificateException "Internal error: The alternative names could not be made."
certificates::GENERAL_NAMEStackUPtr generalNamesFrom(std::vector<AlternativeName> const& names);

} // namespace foundation::toolkit
