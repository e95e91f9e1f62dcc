#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/param_build.h>

#include <string>

namespace foundation::test {

/// Keys for test certificates. Each is generated once a process and kept under its kind and name: the same
/// name gives the same key, another name another key of that kind. P-256 is the cheap default.
KeyHandle p256Key(std::string const& name = "default");
KeyHandle rsaKey(unsigned bits = 2048, std::string const& name = "default");
/// An RSA key of type `EVP_PKEY_RSA_PSS` (id-RSASSA-PSS), which signs with nothing but PSS.
KeyHandle rsaPssKey(unsigned bits = 2048, std::string const& name = "default");
KeyHandle p384Key(std::string const& name = "default");
KeyHandle p521Key(std::string const& name = "default");
KeyHandle secp256k1Key(std::string const& name = "default");
/// A key on prime256v1 whose curve is written out as numbers instead of being named.
KeyHandle explicitP256Key(std::string const& name = "default");
/// A key on a curve that is written out as numbers and is none of those that have a name.
KeyHandle namelessCurveKey(std::string const& name = "default");
KeyHandle ed25519Key(std::string const& name = "default");
KeyHandle ed448Key(std::string const& name = "default");
KeyHandle x25519Key(std::string const& name = "default");
/// DSA over a well-known group of 2048 bits (RFC 5114, 2.3), since finding a new one takes seconds.
KeyHandle dsaKey(std::string const& name = "default");

/// The key, or with `EVP_PKEY_KEY_PARAMETERS` as selection the parameters of keys, of the named type that
/// consists of what the builder has been given.
KeyHandle keyFrom(OSSL_PARAM_BLD& builder, char const* type, int selection);

/// The private key as PKCS#8 PEM, and encrypted with AES-256 if a passphrase is given.
std::string toPem(KeyHandle const& key, std::string const& passphrase = "");
/// SubjectPublicKeyInfo.
Bytes publicKeyDer(KeyHandle const& key);
/// PKCS#8 PrivateKeyInfo.
Bytes privateKeyDer(KeyHandle const& key);

} // namespace foundation::test
