#pragma once

/// @file
/// Turns OpenSSL's keys into the records of KeyInfo.hpp: decides which kinds of key the library accepts, and
/// returns a key's numbers as bytes. All failures are CertificateExceptions without OpenSSL's text. The
/// caller's error scope removes what OpenSSL queues.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/KeyInfo.hpp>

#include <optional>

namespace foundation::certificates {

/// Returns the kind of the key: RSA, or ECC for `EVP_PKEY_EC` and `EVP_PKEY_ED25519`.
/// @throws CertificateException "Failed to sanity check EVP_PKEY. Argument is nullptr"
/// @throws UnsupportedEllipticCurve "Key uses Ed448, which is not currently supported"
/// @throws UnsupportedKeyType "Key is not currently supported. OpenSSL type id: " and the number
KeyType sanityCheckEVPKey(EVP_PKEY* key);

/// Returns the curve of an elliptic-curve key. Refuses other keys as sanityCheckEVPKey does.
/// @throws CertificateException "Expected the EVP_PKEY to be ECC-based. It is not."
/// @throws CertificateException "Could not extract public key information from EVP_PKEY"
/// @throws CertificateException "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC"
/// @throws UnsupportedEllipticCurve "ECC-based key is not using supported ECC Curve. Curve: " and its name
EllipticCurve getECCCurveFromEVPKey(EVP_PKEY* key);

/// Returns the record of a public key. Reads all its numbers by one call, which is much cheaper than one for
/// each. Returns nothing if any step fails or the key is not accepted. Leaves OpenSSL's error queue
/// as it is.
std::optional<PublicKeyInfo> readPublicKeyInfo(EVP_PKEY* key);

/// Returns the number's absolute value, big-endian and without leading zero bytes; no bytes for zero.
/// @throws CertificateException "Failed to convert BIGNUM to ByteArray. Argument is nullptr.", or "Wrote
///     ... bytes from BIGNUM to ByteArray. Expected: ..."
ByteArray bigNumToByteArray(BIGNUM const* number);

/// Returns the point in uncompressed form.
/// @throws CertificateException "Failed to create ByteArray from EC_POINT. Argument(s) are nullptr",
///     "Failed to get number of bytes to store public point", "Failed to convert EC_POINT to ByteArray"
ByteArray ecPointToByteArray(EC_POINT const* point, EC_GROUP const* group);

/// Returns the point of the group that the bytes encode, in any of the standard's forms.
/// @throws CertificateException "Failed to create EC_POINT from ByteArray. Argument is nullptr", "Failed to
///     convert point from bytes to an EC_POINT"
EC_POINTUPtr byteArrayToECPoint(ByteArray const& bytes, EC_GROUP const* group);

/// Returns the raw key for Ed25519. For prime256v1, returns the scalar as bigNumToByteArray does, so at most
/// 32 bytes.
/// @throws CertificateException "Failed to extract information from private EVP_PKEY.", "Could not find
///     'priv' in parameter list from EVP_PKEY_todata.", "Failed to initialize BIGNUM with private
///     integer data."
ByteArray getECCPrivateIntegerFromEVPKey(EVP_PKEY* key);

} // namespace foundation::certificates
