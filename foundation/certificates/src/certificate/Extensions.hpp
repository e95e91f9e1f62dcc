#pragma once

#include "libcrypto/OpenSSLHandles.hpp"

#include <vector>

namespace foundation::certificates {

inline constexpr char const unreadableExtensionsText[] =
    "Internal error: Unable to read the certificate's extensions.";

/// Returns the extension's value in OpenSSL's form for it, owned by the caller. Null if the certificate has
/// no such extension, has it more than once, or has one that cannot be decoded.
/// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if out of
///     memory: a certificate with restrictions must not pass for one without
void* extensionOf(X509 const* certificate, int nid);

/// Returns the key usage bits; null without a readable extension.
/// @throws X509CertificateException as extensionOf does
ASN1_BIT_STRINGUPtr keyUsageOf(X509 const* certificate);

/// Returns the list of extended key usages; null without a readable extension.
/// @throws X509CertificateException as extensionOf does
ASN1_OBJECTStackUPtr extendedKeyUsagesOf(X509 const* certificate);

/// Whether the list names at least one of the purposes, which are given as OpenSSL's NIDs. False for null.
bool namesAnyOf(STACK_OF(ASN1_OBJECT) const* purposes, std::vector<int> const& wantedNIDs);

/// Whether the certificate may serve at least one of the purposes, which are given as OpenSSL's NIDs. A
/// certificate without a readable extension is not restricted.
/// @throws X509CertificateException as extensionOf does
bool extendedKeyUsageAllowsAnyOf(X509 const* certificate, std::vector<int> const& wantedNIDs);

/// Whether all extensions are valid. OpenSSL parses them on first need and caches the outcome in the
/// certificate, even if it ran out of memory. Only a duplicate is parsed again. Leaves OpenSSL's error queue
/// as it is, so that a second attempt does not push out the caller's entries.
bool hasValidExtensions(X509* certificate);

/// Parses all extensions, so that running out of memory fails a load instead of a later query.
/// Extensions that are invalid by themselves do not fail. Leaves OpenSSL's error queue as it is.
/// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions."
void parseExtensions(X509* certificate);

} // namespace foundation::certificates
