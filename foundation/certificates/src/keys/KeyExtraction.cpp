#include "keys/KeyExtraction.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/core_names.h>

#include <cstdint>
#include <cstring>
#include <string_view>

namespace foundation::certificates {

namespace {

constexpr std::string_view prime256v1Name = "prime256v1";
constexpr char const nullKeyText[] = "Failed to sanity check EVP_PKEY. Argument is nullptr";

[[noreturn]] void refuseKeyKind(int baseId)
{
    if (baseId == EVP_PKEY_ED448) {
        throw UnsupportedEllipticCurve("Key uses Ed448, which is not currently supported");
    }
    throw UnsupportedKeyType("Key is not currently supported. OpenSSL type id: " + std::to_string(baseId));
}

OSSL_PARAMUPtr exportKey(EVP_PKEY* key, int selection, char const* failureText)
{
    OSSL_PARAM* parameters = nullptr;
    throwIfNotOne<CertificateException>(EVP_PKEY_todata(key, selection, &parameters), failureText);
    return makeOSSL_PARAMUPtr(parameters);
}

/// Returns the text up to its NUL character, but never more than the parameter's size.
std::string parameterText(OSSL_PARAM const& parameter)
{
    if (parameter.data == nullptr) {
        return {};
    }
    auto const* text = static_cast<char const*>(parameter.data);
    return std::string(text, strnlen(text, parameter.data_size));
}

/// Returns the number's absolute value as bigNumToByteArray does; no bytes without a number.
ByteArray numberIn(OSSL_PARAM const* parameters, char const* name)
{
    auto const* parameter = OSSL_PARAM_locate_const(parameters, name);
    auto const number = makeBIGNUM(BN_new());
    BIGNUM* target = number.get();
    bool const isRead =
        parameter != nullptr && target != nullptr && OSSL_PARAM_get_BN(parameter, &target) == 1;
    return isRead ? bigNumToByteArray(target) : ByteArray();
}

/// Returns the octets of a string parameter; none without it.
ByteArray octetsIn(OSSL_PARAM const* parameters, char const* name)
{
    auto const* parameter = OSSL_PARAM_locate_const(parameters, name);
    auto const* bytes = parameter == nullptr ? nullptr : static_cast<unsigned char const*>(parameter->data);
    return bytes == nullptr ? ByteArray() : ByteArray(bytes, bytes + parameter->data_size);
}

bool namesPrime256v1(OSSL_PARAM const* parameters)
{
    auto const* group = OSSL_PARAM_locate_const(parameters, OSSL_PKEY_PARAM_GROUP_NAME);
    return group != nullptr && parameterText(*group) == prime256v1Name;
}

std::optional<PublicKeyInfo> exportedKey(EVP_PKEY* key, KeyType type)
{
    OSSL_PARAM* exported = nullptr;
    if (EVP_PKEY_todata(key, EVP_PKEY_PUBLIC_KEY, &exported) != 1 || exported == nullptr) {
        return std::nullopt;
    }
    auto const parameters = makeOSSL_PARAMUPtr(exported);
    // After the export, because OpenSSL crashes on the size of a key without a curve.
    int const bits = EVP_PKEY_get_bits(key);
    if (bits < 1) {
        return std::nullopt;
    }
    auto const size = static_cast<std::uint64_t>(bits);
    if (type == KeyType::RSA) {
        ByteArray const exponent = numberIn(exported, OSSL_PKEY_PARAM_RSA_E);
        ByteArray const modulus = numberIn(exported, OSSL_PKEY_PARAM_RSA_N);
        bool const isComplete = !exponent.empty() && !modulus.empty();
        return isComplete ? std::make_optional<PublicKeyInfo>(size, exponent, modulus) : std::nullopt;
    }
    ByteArray const point = octetsIn(exported, OSSL_PKEY_PARAM_PUB_KEY);
    bool const isComplete = !point.empty() && namesPrime256v1(exported);
    return isComplete ? std::make_optional<PublicKeyInfo>(size, point, EllipticCurve::Prime256v1)
                      : std::nullopt;
}

std::optional<PublicKeyInfo> ed25519Key(EVP_PKEY* key)
{
    ByteArray bytes(32);
    std::size_t length = 0;
    int const isRead =
        EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, bytes.data(), bytes.size(), &length);
    if (isRead != 1 || length != bytes.size()) {
        return std::nullopt;
    }
    int const bits = EVP_PKEY_get_bits(key);
    return bits < 1 ? std::nullopt
                    : std::make_optional<PublicKeyInfo>(
                          static_cast<std::uint64_t>(bits), bytes, EllipticCurve::Ed25519);
}

EllipticCurve curveOfECKey(EVP_PKEY* key)
{
    auto const parameters =
        exportKey(key, EVP_PKEY_PUBLIC_KEY, "Could not extract public key information from EVP_PKEY");
    auto const* group = throwIfNull<CertificateException>(
        OSSL_PARAM_locate_const(parameters.get(), OSSL_PKEY_PARAM_GROUP_NAME),
        "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC");
    std::string const name = parameterText(*group);
    if (name != prime256v1Name) {
        throw UnsupportedEllipticCurve("ECC-based key is not using supported ECC Curve. Curve: " + name);
    }
    return EllipticCurve::Prime256v1;
}

} // namespace

KeyType sanityCheckEVPKey(EVP_PKEY* key)
{
    throwIfNull<CertificateException>(key, nullKeyText);
    switch (int const baseId = EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
        return KeyType::RSA;
    case EVP_PKEY_EC:
    case EVP_PKEY_ED25519:
        return KeyType::ECC;
    default:
        refuseKeyKind(baseId);
    }
}

EllipticCurve getECCCurveFromEVPKey(EVP_PKEY* key)
{
    throwIfNull<CertificateException>(key, nullKeyText);
    switch (int const baseId = EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
        throw CertificateException("Expected the EVP_PKEY to be ECC-based. It is not.");
    case EVP_PKEY_ED25519:
        return EllipticCurve::Ed25519;
    case EVP_PKEY_EC:
        return curveOfECKey(key);
    default:
        refuseKeyKind(baseId);
    }
}

std::optional<PublicKeyInfo> readPublicKeyInfo(EVP_PKEY* key)
{
    RAIIOpenSSLErrorRemover const errors(false);
    // OpenSSL crashes on the export of a key without a kind.
    switch (key == nullptr ? EVP_PKEY_NONE : EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
        return exportedKey(key, KeyType::RSA);
    case EVP_PKEY_EC:
        return exportedKey(key, KeyType::ECC);
    case EVP_PKEY_ED25519:
        return ed25519Key(key);
    default:
        return std::nullopt;
    }
}

ByteArray bigNumToByteArray(BIGNUM const* number)
{
    throwIfNull<CertificateException>(number, "Failed to convert BIGNUM to ByteArray. Argument is nullptr.");
    int const expected = (BN_num_bits(number) + 7) / 8;
    ByteArray bytes(static_cast<std::size_t>(expected));
    int const written = BN_bn2bin(number, bytes.data());
    if (written != expected) {
        throw CertificateException(
            "Wrote " + std::to_string(written) +
            " bytes from BIGNUM to ByteArray. Expected: " + std::to_string(expected));
    }
    return bytes;
}

ByteArray ecPointToByteArray(EC_POINT const* point, EC_GROUP const* group)
{
    if (point == nullptr || group == nullptr) {
        throw CertificateException("Failed to create ByteArray from EC_POINT. Argument(s) are nullptr");
    }
    auto const context = makeBN_CTXUPtr(BN_CTX_new());
    auto const toOctets = [&](unsigned char* buffer, std::size_t size) {
        return EC_POINT_point2oct(group, point, POINT_CONVERSION_UNCOMPRESSED, buffer, size, context.get());
    };
    std::size_t const size = toOctets(nullptr, 0);
    throwIfZero<CertificateException>(size, "Failed to get number of bytes to store public point");
    ByteArray bytes(size);
    throwIfZero<CertificateException>(
        toOctets(bytes.data(), bytes.size()), "Failed to convert EC_POINT to ByteArray");
    return bytes;
}

EC_POINTUPtr byteArrayToECPoint(ByteArray const& bytes, EC_GROUP const* group)
{
    throwIfNull<CertificateException>(group, "Failed to create EC_POINT from ByteArray. Argument is nullptr");
    auto const context = makeBN_CTXUPtr(BN_CTX_new());
    auto point = makeEC_POINTUPtr(EC_POINT_new(group));
    throwIfNotOne<CertificateException>(
        EC_POINT_oct2point(group, point.get(), bytes.data(), bytes.size(), context.get()),
        "Failed to convert point from bytes to an EC_POINT");
    return point;
}

ByteArray getECCPrivateIntegerFromEVPKey(EVP_PKEY* key)
{
    auto const parameters =
        exportKey(key, EVP_PKEY_KEYPAIR, "Failed to extract information from private EVP_PKEY.");
    auto const* secret = throwIfNull<CertificateException>(
        OSSL_PARAM_locate_const(parameters.get(), OSSL_PKEY_PARAM_PRIV_KEY),
        "Could not find 'priv' in parameter list from EVP_PKEY_todata.");
    if (getECCCurveFromEVPKey(key) == EllipticCurve::Ed25519) {
        auto const* bytes = static_cast<unsigned char const*>(secret->data);
        return bytes == nullptr ? ByteArray() : ByteArray(bytes, bytes + secret->data_size);
    }
    auto number = makeBIGNUM(BN_new());
    BIGNUM* target = number.get();
    throwIfNotOne<CertificateException>(
        target == nullptr ? 0 : OSSL_PARAM_get_BN(secret, &target),
        "Failed to initialize BIGNUM with private integer data.");
    return bigNumToByteArray(number.get());
}

} // namespace foundation::certificates
