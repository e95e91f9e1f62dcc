#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <optional>
#include <string>

namespace foundation::certificates {

/// The certificate at the start of the bytes, unchecked; null if there is none. OpenSSL's error queue is not
/// emptied: a failure adds to it.
X509UPtr x509FromDER(ByteArray const& der);

/// The extension's value in OpenSSL's form for it, which the caller owns; null if the certificate has no such
/// extension, or one that cannot be read.
/// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." for want
///     of memory, which must not pass for a certificate without restrictions
void* extensionOf(X509 const* certificate, int nid);

/// Whether all extensions are valid. OpenSSL reads them once, on first need, and keeps the outcome in the
/// certificate, even that there was no memory to read them: only a duplicate is read anew.
bool hasValidExtensions(X509* certificate);

/// The characters in UTF-8; none for a null pointer and for what OpenSSL cannot convert.
std::optional<std::string> asUTF8(ASN1_STRING const* value);

} // namespace foundation::certificates
