#pragma once

/// @file
/// OpenSSL's PKCS7 structure as a stranger may have left it. What ASN.1 calls optional may be null, down to
/// a signed type that has no body at all, and an attribute may hold a value of any type. These are the
/// calls that the library makes on a structure; they are safe on whatever loads, and on null.

#include "libcrypto/OpenSSLHandles.hpp"

namespace foundation::certificates {

/// Whether the content type is signedData or signedAndEnvelopedData.
bool isSigned(PKCS7 const* structure);

/// The embedded certificates, which the structure keeps; null where there are none.
STACK_OF(X509) * embeddedCertificates(PKCS7 const* structure);

/// `PKCS7_dup`: a separate copy; null for null, and for what OpenSSL cannot encode.
/// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." for want of
///     memory
PKCS7UPtr duplicate(PKCS7 const* structure);

/// `PKCS7_get0_signers`: the signers' certificates, found among the embedded ones, each with a reference of
/// its own; null where OpenSSL finds none, with its reason queued.
X509StackUPtr signersOf(PKCS7* structure);

/// `PKCS7_verify`: whether it succeeded; otherwise OpenSSL's reasons are queued.
bool verifies(
    PKCS7* structure, STACK_OF(X509) * certificates, X509_STORE* store, BIO* content, BIO* out, int flags);

} // namespace foundation::certificates
