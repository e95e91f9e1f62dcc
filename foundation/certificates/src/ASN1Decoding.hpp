#pragma once

#include "OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <optional>
#include <string>

namespace foundation::certificates {

/// The certificate at the start of the bytes, unchecked; null if there is none. OpenSSL's error queue is not
/// emptied: a failure adds to it.
X509UPtr x509FromDER(ByteArray const& der);

/// The characters in UTF-8; none for a null pointer and for what OpenSSL cannot convert.
std::optional<std::string> asUTF8(ASN1_STRING const* value);

} // namespace foundation::certificates
