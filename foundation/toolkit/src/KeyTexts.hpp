#pragma once

/// @file
/// Private keys between PEM text and OpenSSL's object. The text and all copies in between are wiped.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/toolkit/PrivateKeys.hpp>

namespace foundation::toolkit {

/// Whether there is a key and OpenSSL knows its size. OpenSSL computes size and strength when it reads a key.
/// If it runs out of memory for them, they stay 0 without an error.
bool hasSize(EVP_PKEY const* key);

/// Returns the private key that the PEM text holds, never null.
/// @throws certificates::InvalidArgument "The text holds no private key that can be read without a
///     passphrase."
/// @throws certificates::CertificateException "Internal error: The private key could not be read." if
///     OpenSSL runs out of memory
certificates::EVP_PKEYUPtr privateKeyFromPEM(SecretString const& text);

/// Returns the key as PKCS#8 PEM text, which is encrypted if there is a passphrase.
/// @throws certificates::CertificateException "Internal error: The private key could not be written."
SecretString privateKeyToPEM(EVP_PKEY* key, SecretString const* passphrase = nullptr);

} // namespace foundation::toolkit
