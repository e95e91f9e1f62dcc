#pragma once

/// @file
/// Copies of a certificate's OpenSSL object, made from its DER form, for what X509Access may not share.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <vector>

namespace foundation::certificates {

/// Returns a further owner of the object.
X509UPtr furtherReference(X509* certificate);

/// Returns the certificate at the start of the bytes, without the checks of a load; null if they hold none.
/// Leaves OpenSSL's error queue as it is, except that a failure adds to it.
X509UPtr x509FromDER(ByteArray const& der);

/// Whether OpenSSL has read the key and all extensions, so that no later use changes the object. Reads the
/// extensions if nothing has read them yet. Leaves OpenSSL's error queue as it is.
///
/// OpenSSL keeps in the object what it could not read, even if it ran out of memory. Only a duplicate is read
/// again. A certificate with equal names that is not self-signed also counts as not read: running out of
/// memory has the same sign.
bool isReadCompletely(X509* certificate);

/// Whether somebody has declared what the certificate is trusted for. A duplicate has no such settings.
bool hasTrustSettings(X509* certificate);

/// Returns the certificate for one verification: a further reference, or a duplicate if OpenSSL could not
/// read it completely. OpenSSL queues such an error only when it reads the certificate for the first time,
/// and every verification is to queue it. Null if OpenSSL runs out of memory.
X509UPtr forVerification(X509* certificate);

/// Whether handles and trust stores may share the object: it is read completely and has no trust settings.
bool mayBeShared(X509* certificate);

/// Returns the DER form; empty if OpenSSL cannot encode the certificate.
ByteArray encodingOf(X509* certificate);

/// Whether both certificates have the same DER form.
bool haveSameEncoding(X509* left, X509* right);

/// Returns the certificate's object, never null: a further reference if mayBeShared allows it, otherwise a
/// duplicate. The object must not be changed. Clears OpenSSL's error queue, as loading a certificate does.
/// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate has
///     no content."
X509UPtr readableX509Of(X509Certificate const& certificate);

/// Returns a stack of the certificates in their order, for one verification. The stack shares those that
/// mayBeShared allows, and has duplicates of the others: each verification must find the errors of invalid
/// extensions. Leaves OpenSSL's error queue as it is.
/// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate has
///     no content."
X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates);

} // namespace foundation::certificates
