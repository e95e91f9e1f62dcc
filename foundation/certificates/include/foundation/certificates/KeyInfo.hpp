#pragma once

/// @file
/// The numbers of a key as plain values. The library supports RSA keys of at least 1024 bits, elliptic-curve
/// keys on prime256v1, and Ed25519 keys. It refuses to load certificates and bundles with any other key.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/export.hpp>

#include <cstdint>

namespace foundation::certificates {

/// The two kinds of key. The kind decides which fields a record has.
enum class KeyType : std::uint32_t
{
    RSA = 0, ///< modulus and exponents (`EVP_PKEY_RSA`)
    ECC = 1  ///< elliptic-curve keys, Ed25519 included
};

/// The curves that a key can be on.
enum class EllipticCurve : std::uint32_t
{
    Prime256v1 = 0, ///< also called P-256 and secp256r1 (`EVP_PKEY_EC`)
    Ed25519 = 1     ///< the twisted Edwards curve of RFC 8032 (`EVP_PKEY_ED25519`)
};

/// The numbers of a public key. A record has the fields of one kind of key, and the getters for the other
/// kind throw. It is a plain value without a lock. A record that was moved from keeps its kind and has empty
/// arrays.
class FOUNDATION_CERTIFICATES_EXPORT PublicKeyInfo
{
public:
    /// Creates the record of an RSA key. The size in bits is stored as given.
    /// @throws CertificateException "Empty public exponent in public key", "Empty modulus in public key",
    ///     in this order
    PublicKeyInfo(std::uint64_t keySize, ByteArray const& publicExponent, ByteArray const& modulus);
    /// Creates the record of an elliptic-curve key. The size in bits is stored as given.
    /// @throws CertificateException "Empty public point in public key"
    PublicKeyInfo(std::uint64_t keySize, ByteArray const& publicPoint, EllipticCurve curve);

    /// Returns the kind, which decides which getters may be called.
    KeyType getType() const;
    /// Returns the size of the key in bits.
    std::uint64_t getKeySize() const;

    /// Returns the public exponent of an RSA key, big-endian.
    /// @throws NotRSAKey "Cannot get the public exponent from the key because it is not an RSA key"
    ByteArray getRSAPublicExponent() const;
    /// Returns the modulus of an RSA key, big-endian.
    /// @throws NotRSAKey "Cannot get the modulus from the key because it is not an RSA key"
    ByteArray getRSAModulus() const;
    /// Returns the public point as OpenSSL encodes it for prime256v1, and the 32 bytes of the raw key for
    /// Ed25519.
    /// @throws NotECCKey "Cannot get the public point from the key because it is not an ECC key"
    ByteArray getECCPublicPoint() const;
    /// Returns the curve.
    /// @throws NotECCKey "Cannot get the elliptic curve from the key because it is not an ECC key"
    EllipticCurve getECCCurve() const;

    /// Whether kind, size and numbers are equal. Does not take constant time.
    bool operator==(PublicKeyInfo const& other) const;
    /// Whether the two differ.
    bool operator!=(PublicKeyInfo const& other) const;

private:
    KeyType keyType;
    std::uint64_t keySize;
    ByteArray rsaPublicExponent;
    ByteArray rsaModulus;
    ByteArray eccPublicPoint;
    EllipticCurve eccCurve;
};

/// The secret number of a private key. A record of one kind, as PublicKeyInfo is, but without a size. It does
/// not wipe its memory.
class FOUNDATION_CERTIFICATES_EXPORT PrivateKeyInfo
{
public:
    /// Creates the record of an RSA key.
    /// @throws CertificateException "Empty private exponent in private key."
    PrivateKeyInfo(ByteArray const& privateExponent);
    /// Creates the record of an elliptic-curve key.
    /// @throws CertificateException "Empty private integer in private key."
    PrivateKeyInfo(ByteArray const& privateInteger, EllipticCurve curve);

    /// Returns the kind, which decides which getters may be called.
    KeyType getType() const;

    /// Returns the private exponent of an RSA key, big-endian.
    /// @throws NotRSAKey "Cannot get the private exponent from the key because it is not an RSA key."
    ByteArray getRSAPrivateExponent() const;
    /// Returns the private scalar for prime256v1, big-endian and without leading zero bytes, and the 32 bytes
    /// of the raw key for Ed25519.
    /// @throws NotECCKey "Cannot get the private integer from the key because it is not an ECC key."
    ByteArray getECCPrivateInteger() const;
    /// Returns the curve.
    /// @throws NotECCKey "Cannot get the elliptic curve from the key because it is not an ECC key."
    EllipticCurve getECCCurve() const;

    /// Whether kind and numbers are equal. Does not take constant time.
    bool operator==(PrivateKeyInfo const& other) const;
    /// Whether the two differ.
    bool operator!=(PrivateKeyInfo const& other) const;

private:
    KeyType keyType;
    ByteArray eccPrivateInteger;
    ByteArray rsaPrivateExponent;
    EllipticCurve eccCurve;
};

} // namespace foundation::certificates
