#include "keys/KeyExtraction.hpp"
#include "keys/RSAKeySize.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestKeys.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/objects.h>

#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const nullKeyText[] = "Failed to sanity check EVP_PKEY. Argument is nullptr";
constexpr char const ed448Text[] = "Key uses Ed448, which is not currently supported";
constexpr char const kindText[] = "Key is not currently supported. OpenSSL type id: ";
constexpr char const curveText[] = "ECC-based key is not using supported ECC Curve. Curve: ";

BigNumberHandle number(std::string const& hexadecimal)
{
    BIGNUM* parsed = nullptr;
    BN_hex2bn(&parsed, hexadecimal.c_str());
    return own(parsed);
}

EC_GROUPUPtr p256Group()
{
    return makeEC_GROUPUPtr(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
}

/// Returns the key on prime256v1 with that scalar of 32 bytes, from its encoding by RFC 5915.
KeyHandle p256KeyOf(Bytes const& scalar)
{
    Bytes der{0x30, 0x31, 0x02, 0x01, 0x01, 0x04, 0x20};
    der.insert(der.end(), scalar.begin(), scalar.end());
    Bytes const curve{0xA0, 0x0A, 0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
    der.insert(der.end(), curve.begin(), curve.end());
    unsigned char const* position = der.data();
    return own(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(der.size())));
}

/// Returns the same key without its private part.
KeyHandle publicHalf(KeyHandle const& key)
{
    auto const der = publicKeyDer(key);
    unsigned char const* position = der.data();
    return own(d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())));
}

ByteArray numberIn(KeyHandle const& key, char const* name)
{
    BIGNUM* value = nullptr;
    require(EVP_PKEY_get_bn_param(key.get(), name, &value));
    return bigNumToByteArray(own(value).get());
}

ByteArray octetsIn(KeyHandle const& key, char const* name)
{
    ByteArray octets(200);
    std::size_t length = 0;
    require(EVP_PKEY_get_octet_string_param(key.get(), name, octets.data(), octets.size(), &length));
    octets.resize(length);
    return octets;
}

/// Returns an elliptic-curve key of which OpenSSL knows only the type.
KeyHandle keyWithoutCurve()
{
    auto key = own(EVP_PKEY_new());
    require(EVP_PKEY_set_type(key.get(), EVP_PKEY_EC));
    return key;
}

} // namespace

TEST(SanityCheckEVPKey, ReturnsKindOfSupportedKey)
{
    EXPECT_EQ(sanityCheckEVPKey(rsaKey().get()), KeyType::RSA);
    EXPECT_EQ(sanityCheckEVPKey(p256Key().get()), KeyType::ECC);
    EXPECT_EQ(sanityCheckEVPKey(ed25519Key().get()), KeyType::ECC);
    EXPECT_EQ(sanityCheckEVPKey(p384Key().get()), KeyType::ECC); // another function checks the curve
}

TEST(SanityCheckEVPKey, RefusesNull)
{
    EXPECT_THROWS_EXACTLY(CertificateException, nullKeyText, sanityCheckEVPKey(nullptr));
}

TEST(SanityCheckEVPKey, RefusesEd448AsUnsupportedCurve)
{
    EXPECT_THROWS_EXACTLY(UnsupportedEllipticCurve, ed448Text, sanityCheckEVPKey(ed448Key().get()));
}

TEST(SanityCheckEVPKey, RefusesOtherKindsWithTheirNumber)
{
    std::string const text = kindText;
    EXPECT_THROWS_EXACTLY(UnsupportedKeyType, text + "116", sanityCheckEVPKey(dsaKey().get()));
    EXPECT_THROWS_EXACTLY(UnsupportedKeyType, text + "1034", sanityCheckEVPKey(x25519Key().get()));
    EXPECT_THROWS_EXACTLY(UnsupportedKeyType, text + "912", sanityCheckEVPKey(rsaPssKey(1024).get()));
    EXPECT_THROWS_EXACTLY(UnsupportedKeyType, text + "0", sanityCheckEVPKey(own(EVP_PKEY_new()).get()));
}

TEST(ReadPublicKeyInfo, ReturnsNumbersOfRSAKey)
{
    for (unsigned const bits : {1023U, 1024U, 2048U}) {
        auto const key = rsaKey(bits);
        auto const info = readPublicKeyInfo(publicHalf(key).get());
        ASSERT_TRUE(info.has_value());
        EXPECT_TRUE(
            *info ==
            PublicKeyInfo(bits, numberIn(key, OSSL_PKEY_PARAM_RSA_E), numberIn(key, OSSL_PKEY_PARAM_RSA_N)));
    }
}

TEST(ReadPublicKeyInfo, ReturnsPointAndCurveOfECCKey)
{
    for (auto const& key : {p256Key(), publicHalf(p256Key()), explicitP256Key()}) {
        auto const info = readPublicKeyInfo(key.get());
        ASSERT_TRUE(info.has_value());
        EXPECT_TRUE(
            *info == PublicKeyInfo(256, octetsIn(key, OSSL_PKEY_PARAM_PUB_KEY), EllipticCurve::Prime256v1));
    }
    auto const key = ed25519Key();
    auto const info = readPublicKeyInfo(publicHalf(key).get());
    ASSERT_TRUE(info.has_value());
    EXPECT_TRUE(*info == PublicKeyInfo(256, octetsIn(key, OSSL_PKEY_PARAM_PUB_KEY), EllipticCurve::Ed25519));
}

TEST(ReadPublicKeyInfo, ReturnsNothingForOtherKeysAndLeavesErrorQueue)
{
    CleanErrorQueue const clean;
    auto const entry = queueForeignError();
    for (auto const& key :
         {KeyHandle(), own(EVP_PKEY_new()), keyWithoutCurve(), p384Key(), p521Key(), secp256k1Key(),
          ed448Key(), x25519Key(), dsaKey(), rsaPssKey(1024)}) {
        EXPECT_FALSE(readPublicKeyInfo(key.get()).has_value());
    }
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{entry});
}

TEST(ReadPublicKeyInfo, ReturnsNothingForCurveWithoutNameAndLeavesErrorQueue)
{
    if (!acceptsNamelessCurves()) {
        GTEST_SKIP() << refusesNamelessCurves;
    }
    CleanErrorQueue const clean;
    auto const entry = queueForeignError();
    EXPECT_FALSE(readPublicKeyInfo(namelessCurveKey().get()).has_value());
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{entry});
}

TEST(GetECCCurveFromEVPKey, ReturnsSupportedCurve)
{
    EXPECT_EQ(getECCCurveFromEVPKey(p256Key().get()), EllipticCurve::Prime256v1);
    EXPECT_EQ(getECCCurveFromEVPKey(publicHalf(p256Key()).get()), EllipticCurve::Prime256v1);
    EXPECT_EQ(getECCCurveFromEVPKey(ed25519Key().get()), EllipticCurve::Ed25519);
}

TEST(GetECCCurveFromEVPKey, RecognizesPrime256v1WithExplicitParameters)
{
    EXPECT_EQ(getECCCurveFromEVPKey(explicitP256Key().get()), EllipticCurve::Prime256v1);
}

TEST(GetECCCurveFromEVPKey, RefusesOtherCurvesByName)
{
    std::string const text = curveText;
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, text + "secp384r1", getECCCurveFromEVPKey(p384Key().get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, text + "secp521r1", getECCCurveFromEVPKey(p521Key().get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, text + "secp256k1", getECCCurveFromEVPKey(secp256k1Key().get()));
}

TEST(GetECCCurveFromEVPKey, RefusesNullAndOtherKinds)
{
    EXPECT_THROWS_EXACTLY(CertificateException, nullKeyText, getECCCurveFromEVPKey(nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Expected the EVP_PKEY to be ECC-based. It is not.",
        getECCCurveFromEVPKey(rsaKey().get()));
    EXPECT_THROWS_EXACTLY(UnsupportedEllipticCurve, ed448Text, getECCCurveFromEVPKey(ed448Key().get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, std::string(kindText) + "116", getECCCurveFromEVPKey(dsaKey().get()));
}

TEST(GetECCCurveFromEVPKey, RefusesKeyThatCannotBeExported)
{
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Could not extract public key information from EVP_PKEY",
        getECCCurveFromEVPKey(keyWithoutCurve().get()));
}

TEST(GetECCCurveFromEVPKey, RefusesCurveWithoutName)
{
    if (!acceptsNamelessCurves()) {
        GTEST_SKIP() << refusesNamelessCurves;
    }
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC",
        getECCCurveFromEVPKey(namelessCurveKey().get()));
}

TEST(BigNumToByteArray, WritesBigEndianWithoutLeadingZeros)
{
    EXPECT_EQ(bigNumToByteArray(number("0").get()), ByteArray());
    EXPECT_EQ(bigNumToByteArray(number("1").get()), ByteArray{1});
    EXPECT_EQ(bigNumToByteArray(number("FF").get()), ByteArray{0xFF});
    EXPECT_EQ(bigNumToByteArray(number("100").get()), (ByteArray{1, 0}));
    EXPECT_EQ(bigNumToByteArray(number("0000010203").get()), (ByteArray{1, 2, 3}));
}

TEST(BigNumToByteArray, IgnoresSign)
{
    EXPECT_EQ(bigNumToByteArray(number("-8001").get()), (ByteArray{0x80, 0x01}));
}

TEST(BigNumToByteArray, RefusesNull)
{
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Failed to convert BIGNUM to ByteArray. Argument is nullptr.",
        bigNumToByteArray(nullptr));
}

TEST(PointConversion, WritesUncompressedFormAndReadsItBack)
{
    auto const group = p256Group();
    EC_POINT const* generator = EC_GROUP_get0_generator(group.get());
    auto const bytes = ecPointToByteArray(generator, group.get());
    ASSERT_EQ(bytes.size(), 65U);
    EXPECT_EQ(bytes.front(), 4);
    auto const point = byteArrayToECPoint(bytes, group.get());
    EXPECT_EQ(EC_POINT_cmp(group.get(), point.get(), generator, nullptr), 0);
}

TEST(PointConversion, ReadsCompressedForm)
{
    auto const group = p256Group();
    EC_POINT const* generator = EC_GROUP_get0_generator(group.get());
    ByteArray compressed(33);
    ASSERT_EQ(
        EC_POINT_point2oct(
            group.get(), generator, POINT_CONVERSION_COMPRESSED, compressed.data(), compressed.size(),
            nullptr),
        compressed.size());
    auto const point = byteArrayToECPoint(compressed, group.get());
    EXPECT_EQ(EC_POINT_cmp(group.get(), point.get(), generator, nullptr), 0);
}

TEST(PointConversion, WritesPointAtInfinityAsZeroByte)
{
    auto const group = p256Group();
    auto const infinity = makeEC_POINTUPtr(EC_POINT_new(group.get()));
    EXPECT_EQ(ecPointToByteArray(infinity.get(), group.get()), ByteArray{0});
}

TEST(PointConversion, RefusesNull)
{
    constexpr char const nullText[] = "Failed to create ByteArray from EC_POINT. Argument(s) are nullptr";
    auto const group = p256Group();
    auto const* generator = EC_GROUP_get0_generator(group.get());
    EXPECT_THROWS_EXACTLY(CertificateException, nullText, ecPointToByteArray(nullptr, group.get()));
    EXPECT_THROWS_EXACTLY(CertificateException, nullText, ecPointToByteArray(generator, nullptr));
    EXPECT_THROWS_EXACTLY(CertificateException, nullText, ecPointToByteArray(nullptr, nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Failed to create EC_POINT from ByteArray. Argument is nullptr",
        byteArrayToECPoint({4}, nullptr));
}

TEST(PointConversion, RefusesBytesThatEncodeNoPointOfGroup)
{
    auto const group = p256Group();
    auto offTheCurve = ecPointToByteArray(EC_GROUP_get0_generator(group.get()), group.get());
    offTheCurve.back() ^= 1;
    for (ByteArray const& bytes : {ByteArray(), ByteArray{9}, ByteArray(65, 0xFF), offTheCurve}) {
        EXPECT_THROWS_EXACTLY(
            CertificateException, "Failed to convert point from bytes to an EC_POINT",
            byteArrayToECPoint(bytes, group.get()));
    }
}

TEST(PointConversion, RefusesPointOfAnotherGroup)
{
    auto const group = p256Group();
    auto const other = makeEC_GROUPUPtr(EC_GROUP_new_by_curve_name(NID_secp384r1));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Failed to get number of bytes to store public point",
        ecPointToByteArray(EC_GROUP_get0_generator(other.get()), group.get()));
}

TEST(GetECCPrivateIntegerFromEVPKey, ReturnsScalarWithoutLeadingZeros)
{
    Bytes scalar(32, 0x5A);
    EXPECT_EQ(getECCPrivateIntegerFromEVPKey(p256KeyOf(scalar).get()), scalar);
    scalar[0] = 0;
    EXPECT_EQ(getECCPrivateIntegerFromEVPKey(p256KeyOf(scalar).get()), ByteArray(31, 0x5A));
    Bytes one(32, 0);
    one.back() = 1;
    EXPECT_EQ(getECCPrivateIntegerFromEVPKey(p256KeyOf(one).get()), ByteArray{1});
}

TEST(GetECCPrivateIntegerFromEVPKey, ReturnsRawEd25519KeyWithLeadingZeros)
{
    Bytes raw(32, 0);
    raw.back() = 7;
    auto const key = own(EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, raw.data(), raw.size()));
    EXPECT_EQ(getECCPrivateIntegerFromEVPKey(key.get()), raw);
}

TEST(GetECCPrivateIntegerFromEVPKey, RefusesKeyThatCannotBeExported)
{
    constexpr char const text[] = "Failed to extract information from private EVP_PKEY.";
    EXPECT_THROWS_EXACTLY(CertificateException, text, getECCPrivateIntegerFromEVPKey(nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, text, getECCPrivateIntegerFromEVPKey(keyWithoutCurve().get()));
}

TEST(GetECCPrivateIntegerFromEVPKey, RefusesKeyWithoutPrivateInteger)
{
    constexpr char const text[] = "Could not find 'priv' in parameter list from EVP_PKEY_todata.";
    EXPECT_THROWS_EXACTLY(CertificateException, text, getECCPrivateIntegerFromEVPKey(rsaKey().get()));
    EXPECT_THROWS_EXACTLY(
        CertificateException, text, getECCPrivateIntegerFromEVPKey(publicHalf(p256Key()).get()));
    EXPECT_THROWS_EXACTLY(
        CertificateException, text, getECCPrivateIntegerFromEVPKey(publicHalf(ed25519Key()).get()));
}

TEST(GetECCPrivateIntegerFromEVPKey, RefusesOtherCurvesAndKinds)
{
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, std::string(curveText) + "secp384r1",
        getECCPrivateIntegerFromEVPKey(p384Key().get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, ed448Text, getECCPrivateIntegerFromEVPKey(ed448Key().get()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, std::string(kindText) + "116", getECCPrivateIntegerFromEVPKey(dsaKey().get()));
}

TEST(RSAKeySize, BelowMinimumIsRefused)
{
    constexpr char const text[] = "RSA key size does not meet minimum cryptographic requirements";
    for (unsigned const bits : {0U, 512U, 1023U}) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, text, throwIfWeakRSAKey<X509CertificateException>(bits));
    }
    for (unsigned const bits : {1024U, 1025U, 16384U}) {
        EXPECT_NO_THROW(throwIfWeakRSAKey<X509CertificateException>(bits));
    }
}
