#pragma once

/// @file
/// Which keys certificates are made for, and with which digest a key signs.

#include "libcrypto/OpenSSLHandles.hpp"

#include <string_view>

namespace foundation::toolkit {

/// Whether the key is of OpenSSL's type with that name, such as "EC". Unlike EVP_PKEY_is_a, this allocates no
/// memory, so that no key looks like one of another kind.
bool isOfKind(EVP_PKEY const* key, std::string_view kind);

/// Refuses a public key that no valid certificate can have, or that OpenSSL's default security level refuses.
/// @throws certificates::InvalidArgument "The key is of a kind that certificates are not made for.", "The
///     key is too weak.", "The key has explicit curve parameters."
void requireCertifiableKey(EVP_PKEY* key);

/// Returns the digest to sign with: the one that the key prescribes, or one as strong as the key. Null for
/// keys that sign without a digest, such as Ed25519.
EVP_MD const* digestFor(EVP_PKEY* key);

/// Whether both have the same public key.
/// @throws certificates::CertificateException errorText if OpenSSL runs out of memory
bool isSamePublicKey(EVP_PKEY* first, EVP_PKEY* second, char const* errorText);

} // namespace foundation::toolkit
