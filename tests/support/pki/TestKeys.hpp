#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/ec.h>
#include <openssl/param_build.h>

#include <string>

namespace foundation::test {

/// Keys for test certificates. Each key is generated once per process and kept under its kind and name: the
/// same name gives the same key. P-256 is the cheap default.
KeyHandle p256Key(std::string const& name = "default");
KeyHandle rsaKey(unsigned bits = 2048, std::string const& name = "default");
/// Returns a key of type `EVP_PKEY_RSA_PSS` (id-RSASSA-PSS), which signs only with PSS.
KeyHandle rsaPssKey(unsigned bits = 2048, std::string const& name = "default");
KeyHandle p384Key(std::string const& name = "default");
KeyHandle p521Key(std::string const& name = "default");
KeyHandle secp256k1Key(std::string const& name = "default");
/// Returns a key on prime256v1 that encodes the curve as explicit parameters instead of a name.
KeyHandle explicitP256Key(std::string const& name = "default");
/// Returns a key with explicit parameters of a curve that has no name. Throws if OpenSSL refuses such curves.
KeyHandle namelessCurveKey(std::string const& name = "default");
/// Whether OpenSSL accepts curves without a name. OpenSSL 4 does not, unless it is built with
/// enable-ec_explicit_curves.
bool acceptsNamelessCurves();
constexpr char const refusesNamelessCurves[] = "This OpenSSL refuses curves without a name.";
KeyHandle ed25519Key(std::string const& name = "default");
KeyHandle ed448Key(std::string const& name = "default");
KeyHandle x25519Key(std::string const& name = "default");
/// Returns a DSA key over the 2048-bit group of RFC 5114, section 2.3. Finding a new group would take
/// seconds.
KeyHandle dsaKey(std::string const& name = "default");

/// Returns the point as the byte 4 and its two coordinates.
Bytes uncompressed(EC_GROUP const* curve, EC_POINT const* point);

/// Returns a key of the named type from the builder's parameters. With `EVP_PKEY_KEY_PARAMETERS` as
/// selection, returns the parameters of keys alone.
KeyHandle keyFrom(OSSL_PARAM_BLD& builder, char const* type, int selection);

/// Returns the private key as PKCS#8 PEM, encrypted with AES-256 if there is a passphrase.
std::string toPem(KeyHandle const& key, std::string const& passphrase = "");
/// Returns the SubjectPublicKeyInfo.
Bytes publicKeyDer(KeyHandle const& key);
/// Returns the SubjectPublicKeyInfo of a key on a curve without a name. Needs no support by OpenSSL.
Bytes namelessCurveDer();
/// Returns the PKCS#8 PrivateKeyInfo.
Bytes privateKeyDer(KeyHandle const& key);

} // namespace foundation::test
