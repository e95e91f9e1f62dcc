#pragma once

/// @file
/// A key's numbers as plain values. The key kinds are a closed list: RSA of at least 1024 bits,
/// elliptic-curve keys on prime256v1, and Ed25519. Certificates and bundles with any other key are refused
/// when they are loaded.

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/export.hpp>

#include <cstdint>

namespace foundation::certificates {

/// The two kinds of key, which decide what fields a key record holds.
enum class KeyType : std::uint32_t
{
    RSA = 0, ///< modulus and exponents (`EVP_PKEY_RSA`)
    ECC = 1  ///< an elliptic-curve key; Ed25519 counts as one
};

/// The curves that a key can be on.
enum class EllipticCurve : std::uint32_t
{
    Prime256v1 = 0, ///< also called P-256 and secp256r1 (`EVP_PKEY_EC`)
    Ed25519 = 1     ///< the twisted Edwards curve of RFC 8032 (`EVP_PKEY_ED25519`)
};

/// A public key's numbers: a tagged record that holds the fields of one key kind and refuses the getters of
/// the other. A plain value without a lock; a moved-from record keeps its tag and has empty arrays.
class FOUNDATION_CERTIFICATES_EXPORT PublicKeyInfo
{
public:
    /// An RSA key. The size, in bits, is stored as given.
    /// @throws CertificateException "Empty public exponent in public key", "Empty modulus in public key",
    ///     in this order
    PublicKeyInfo(std::uint64_t keySize, ByteArray const& publicExponent, ByteArray const& modulus);
    /// An elliptic-curve key. The size, in bits, is stored as given.
    /// @throws CertificateException "Empty public point in public key"
    PublicKeyInfo(std::uint64_t keySize, ByteArray const& publicPoint, EllipticCurve curve);

    /// The kind, which tells whose getters may be asked.
    KeyType getType() const;
    /// The key's size in bits.
    std::uint64_t getKeySize() const;

    /// The RSA public exponent, big-endian.
    /// @throws NotRSAKey "Cannot get the public exponent from the key because it is not an RSA key"
    ByteArray getRSAPublicExponent() const;
    /// The RSA modulus, big-endian.
    /// @throws NotRSAKey "Cannot get the modulus from the key because it is not an RSA key"
    ByteArray getRSAModulus() const;
    /// The public point as OpenSSL encodes it for prime256v1, the 32 bytes of the raw key for Ed25519.
    /// @throws NotECCKey "Cannot get the public point from the key because it is not an ECC key"
    ByteArray getECCPublicPoint() const;
    /// The curve.
    /// @throws NotECCKey "Cannot get the elliptic curve from the key because it is not an ECC key"
    EllipticCurve getECCCurve() const;

    /// Equal in kind, size and numbers. Not in constant time.
    bool operator==(PublicKeyInfo const& other) const;
    /// The opposite of operator==.
    bool operator!=(PublicKeyInfo const& other) const;

private:
    KeyType keyType;
    std::uint64_t keySize;
    ByteArray rsaPublicExponent;
    ByteArray rsaModulus;
    ByteArray eccPublicPoint;
    EllipticCurve eccCurve;
};

/// A private key's secret number: a tagged record as PublicKeyInfo is. It carries no size, and does not
/// wipe its memory.
class FOUNDATION_CERTIFICATES_EXPORT PrivateKeyInfo
{
public:
    /// An RSA key.
    /// @throws CertificateException "Empty private exponent in private key."
    PrivateKeyInfo(ByteArray const& privateExponent);
    /// An elliptic-curve key.
    /// @throws CertificateException "Empty private integer in private key."
    PrivateKeyInfo(ByteArray const& privateInteger, EllipticCurve curve);

    /// The kind, which tells whose getters may be asked.
    KeyType getType() const;

    /// The RSA private exponent, big-endian.
    /// @throws NotRSAKey "Cannot get the private exponent from the key because it is not an RSA key."
    ByteArray getRSAPrivateExponent() const;
    /// The private scalar of prime256v1, big-endian without leading zero bytes; the 32 bytes of the raw
    /// key for Ed25519.
    /// @throws NotECCKey "Cannot get the private integer from the key because it is not an ECC key."
    ByteArray getECCPrivateInteger() const;
    /// The curve.
    /// @throws NotECCKey "Cannot get the elliptic curve from the key because it is not an ECC key."
    EllipticCurve getECCCurve() const;

    /// Equal in kind and numbers. Not in constant time.
    bool operator==(PrivateKeyInfo const& other) const;
    /// The opposite of operator==.
    bool operator!=(PrivateKeyInfo const& other) const;

private:
    KeyType keyType;
    ByteArray eccPrivateInteger;
    ByteArray rsaPrivateExponent;
    EllipticCurve eccCurve;
};

} // namespace foundation::certificates
