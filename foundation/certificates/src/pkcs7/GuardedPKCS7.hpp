#pragma once

/// @file
/// OpenSSL's PKCS7 structure, guarded against untrusted input. An optional ASN.1 member can be null: a signed
/// type can even have no body. An attribute can hold a value of any type. The library calls OpenSSL on such a
/// structure only through these functions. They are safe on every structure that loads, and on null.
///
/// verifySignatures needs a structure that no other thread uses: `PKCS7_verify` writes its members `detached`
/// and `state`. The other functions that take a constant structure, signersOf and OpenSSL's encoder only read
/// it.

#include "libcrypto/OpenSSLHandles.hpp"

namespace foundation::certificates {

/// Whether the content type is signedData or signedAndEnvelopedData.
bool hasSignedType(PKCS7 const* structure);

/// Returns the embedded certificates, which the structure owns; null if there are no certificates.
STACK_OF(X509) * embeddedCertificates(PKCS7 const* structure);

/// Puts the certificate in the place of the embedded one at the index, which must be an equal one.
void replaceEmbeddedCertificate(PKCS7* structure, int index, X509UPtr certificate);

/// Returns a copy (`PKCS7_dup`); null for null, and for a structure that OpenSSL cannot encode.
/// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if OpenSSL
///     runs out of memory
PKCS7UPtr duplicatePKCS7(PKCS7 const* structure);

/// Returns the signers' certificates (`PKCS7_get0_signers`), which must be embedded. They come in the order
/// of the signers in DER. Each has a reference of its own. It is the embedded object, except that the
/// structure is copied if its signers are in another order. Returns null and queues OpenSSL's reason if there
/// are no signers or one is not embedded.
/// @throws PKCS7CertificateException as duplicatePKCS7 does
X509StackUPtr signersOf(PKCS7* structure);

/// Whether the signatures verify (`PKCS7_verify`). If not, queues OpenSSL's reasons.
/// @throws PKCS7CertificateException as duplicatePKCS7 does
bool verifySignatures(
    PKCS7* structure, STACK_OF(X509) * certificates, X509_STORE* store, BIO* content, BIO* out, int flags);

} // namespace foundation::certificates
