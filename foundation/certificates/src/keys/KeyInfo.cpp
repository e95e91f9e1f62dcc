#include <foundation/certificates/KeyInfo.hpp>

#include <foundation/certificates/Exceptions.hpp>

namespace foundation::certificates {

namespace {

void throwIfEmpty(ByteArray const& bytes, char const* text)
{
    if (bytes.empty()) {
        throw CertificateException(text);
    }
}

/// Returns the field if a key of the actual kind has it, and throws otherwise.
template <typename Exception, typename Field>
Field const& fieldOf(KeyType required, KeyType actual, Field const& field, char const* text)
{
    if (actual != required) {
        throw Exception(text);
    }
    return field;
}

} // namespace

PublicKeyInfo::PublicKeyInfo(
    std::uint64_t keySize_, ByteArray const& publicExponent, ByteArray const& modulus)
    : keyType(KeyType::RSA),
      keySize(keySize_),
      rsaPublicExponent(publicExponent),
      rsaModulus(modulus),
      eccCurve{}
{
    throwIfEmpty(rsaPublicExponent, "Empty public exponent in public key");
    throwIfEmpty(rsaModulus, "Empty modulus in public key");
}

PublicKeyInfo::PublicKeyInfo(std::uint64_t keySize_, ByteArray const& publicPoint, EllipticCurve curve)
    : keyType(KeyType::ECC),
      keySize(keySize_),
      eccPublicPoint(publicPoint),
      eccCurve(curve)
{
    throwIfEmpty(eccPublicPoint, "Empty public point in public key");
}

KeyType PublicKeyInfo::getType() const
{
    return keyType;
}

std::uint64_t PublicKeyInfo::getKeySize() const
{
    return keySize;
}

ByteArray PublicKeyInfo::getRSAPublicExponent() const
{
    return fieldOf<NotRSAKey>(
        KeyType::RSA, keyType, rsaPublicExponent,
        "Cannot get the public exponent from the key because it is not an RSA key");
}

ByteArray PublicKeyInfo::getRSAModulus() const
{
    return fieldOf<NotRSAKey>(
        KeyType::RSA, keyType, rsaModulus,
        "Cannot get the modulus from the key because it is not an RSA key");
}

ByteArray PublicKeyInfo::getECCPublicPoint() const
{
    return fieldOf<NotECCKey>(
        KeyType::ECC, keyType, eccPublicPoint,
        "Cannot get the public point from the key because it is not an ECC key");
}

EllipticCurve PublicKeyInfo::getECCCurve() const
{
    return fieldOf<NotECCKey>(
        KeyType::ECC, keyType, eccCurve,
        "Cannot get the elliptic curve from the key because it is not an ECC key");
}

bool PublicKeyInfo::operator==(PublicKeyInfo const& other) const
{
    // The fields of the other kind are empty in both.
    return keyType == other.keyType && keySize == other.keySize &&
           rsaPublicExponent == other.rsaPublicExponent && rsaModulus == other.rsaModulus &&
           eccPublicPoint == other.eccPublicPoint && eccCurve == other.eccCurve;
}

bool PublicKeyInfo::operator!=(PublicKeyInfo const& other) const
{
    return !(*this == other);
}

PrivateKeyInfo::PrivateKeyInfo(ByteArray const& privateExponent)
    : keyType(KeyType::RSA),
      rsaPrivateExponent(privateExponent),
      eccCurve{}
{
    throwIfEmpty(rsaPrivateExponent, "Empty private exponent in private key.");
}

PrivateKeyInfo::PrivateKeyInfo(ByteArray const& privateInteger, EllipticCurve curve)
    : keyType(KeyType::ECC),
      eccPrivateInteger(privateInteger),
      eccCurve(curve)
{
    throwIfEmpty(eccPrivateInteger, "Empty private integer in private key.");
}

KeyType PrivateKeyInfo::getType() const
{
    return keyType;
}

ByteArray PrivateKeyInfo::getRSAPrivateExponent() const
{
    return fieldOf<NotRSAKey>(
        KeyType::RSA, keyType, rsaPrivateExponent,
        "Cannot get the private exponent from the key because it is not an RSA key.");
}

ByteArray PrivateKeyInfo::getECCPrivateInteger() const
{
    return fieldOf<NotECCKey>(
        KeyType::ECC, keyType, eccPrivateInteger,
        "Cannot get the private integer from the key because it is not an ECC key.");
}

EllipticCurve PrivateKeyInfo::getECCCurve() const
{
    return fieldOf<NotECCKey>(
        KeyType::ECC, keyType, eccCurve,
        "Cannot get the elliptic curve from the key because it is not an ECC key.");
}

bool PrivateKeyInfo::operator==(PrivateKeyInfo const& other) const
{
    return keyType == other.keyType && rsaPrivateExponent == other.rsaPrivateExponent &&
           eccPrivateInteger == other.eccPrivateInteger && eccCurve == other.eccCurve;
}

bool PrivateKeyInfo::operator!=(PrivateKeyInfo const& other) const
{
    return !(*this == other);
}

} // namespace foundation::certificates
