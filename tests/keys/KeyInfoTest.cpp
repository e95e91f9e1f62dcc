#include "support/assertions/ExactThrow.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/KeyInfo.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

using namespace foundation::certificates;

namespace {

ByteArray const exponent{1, 0, 1};
ByteArray const modulus{0xC0, 0xFF, 0xEE};
ByteArray const point{4, 1, 2, 3};
ByteArray const secret{9, 8, 7};

PublicKeyInfo const rsaPublic(2048, exponent, modulus);
PublicKeyInfo const eccPublic(256, point, EllipticCurve::Prime256v1);
PrivateKeyInfo const rsaPrivate(secret);
PrivateKeyInfo const eccPrivate(secret, EllipticCurve::Ed25519);

} // namespace

TEST(KeyEnumerations, KeepTheirValues)
{
    EXPECT_EQ(static_cast<int>(KeyType::RSA), 0);
    EXPECT_EQ(static_cast<int>(KeyType::ECC), 1);
    EXPECT_EQ(static_cast<int>(EllipticCurve::Prime256v1), 0);
    EXPECT_EQ(static_cast<int>(EllipticCurve::Ed25519), 1);
    EXPECT_EQ(sizeof(KeyType), 4U);
    EXPECT_EQ(sizeof(EllipticCurve), 4U);
}

TEST(PublicKeyInfo, RSARecordReturnsItsNumbers)
{
    EXPECT_EQ(rsaPublic.getType(), KeyType::RSA);
    EXPECT_EQ(rsaPublic.getKeySize(), 2048U);
    EXPECT_EQ(rsaPublic.getRSAPublicExponent(), exponent);
    EXPECT_EQ(rsaPublic.getRSAModulus(), modulus);
}

TEST(PublicKeyInfo, RSARecordRefusesECCGetters)
{
    EXPECT_THROWS_EXACTLY(
        NotECCKey, "Cannot get the public point from the key because it is not an ECC key",
        rsaPublic.getECCPublicPoint());
    EXPECT_THROWS_EXACTLY(
        NotECCKey, "Cannot get the elliptic curve from the key because it is not an ECC key",
        rsaPublic.getECCCurve());
}

TEST(PublicKeyInfo, ECCRecordReturnsItsNumbers)
{
    EXPECT_EQ(eccPublic.getType(), KeyType::ECC);
    EXPECT_EQ(eccPublic.getKeySize(), 256U);
    EXPECT_EQ(eccPublic.getECCPublicPoint(), point);
    EXPECT_EQ(eccPublic.getECCCurve(), EllipticCurve::Prime256v1);
    EXPECT_EQ(PublicKeyInfo(256, point, EllipticCurve::Ed25519).getECCCurve(), EllipticCurve::Ed25519);
}

TEST(PublicKeyInfo, ECCRecordRefusesRSAGetters)
{
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get the public exponent from the key because it is not an RSA key",
        eccPublic.getRSAPublicExponent());
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get the modulus from the key because it is not an RSA key",
        eccPublic.getRSAModulus());
}

TEST(PublicKeyInfo, RefusesEmptyNumbersExponentFirst)
{
    ByteArray const none;
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty public exponent in public key", PublicKeyInfo(2048, none, modulus));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty public exponent in public key", PublicKeyInfo(2048, none, none));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty modulus in public key", PublicKeyInfo(2048, exponent, none));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty public point in public key",
        PublicKeyInfo(256, none, EllipticCurve::Prime256v1));
}

TEST(PublicKeyInfo, StoresAnySizeUnchanged)
{
    EXPECT_EQ(PublicKeyInfo(0, point, EllipticCurve::Prime256v1).getKeySize(), 0U);
    EXPECT_EQ(PublicKeyInfo(UINT64_MAX, exponent, modulus).getKeySize(), UINT64_MAX);
}

TEST(PublicKeyInfo, ComparesKindSizeAndNumbers)
{
    constexpr bool equal = true;
    constexpr bool different = false;
    struct Row
    {
        PublicKeyInfo left;
        PublicKeyInfo right;
        bool areEqual;
    };
    PublicKeyInfo const sameNumbersAsPoint(256, point, point);
    for (Row const& row :
         {Row{rsaPublic, PublicKeyInfo(2048, exponent, modulus), equal},
          Row{rsaPublic, PublicKeyInfo(2049, exponent, modulus), different},
          Row{rsaPublic, PublicKeyInfo(2048, {3}, modulus), different},
          Row{rsaPublic, PublicKeyInfo(2048, exponent, {1}), different},
          Row{rsaPublic, PublicKeyInfo(2048, {0, 1, 0, 1}, modulus), different},
          Row{eccPublic, PublicKeyInfo(256, point, EllipticCurve::Prime256v1), equal},
          Row{eccPublic, PublicKeyInfo(255, point, EllipticCurve::Prime256v1), different},
          Row{eccPublic, PublicKeyInfo(256, {4}, EllipticCurve::Prime256v1), different},
          Row{eccPublic, PublicKeyInfo(256, point, EllipticCurve::Ed25519), different},
          Row{eccPublic, sameNumbersAsPoint, different}}) {
        EXPECT_EQ(row.left == row.right, row.areEqual);
        EXPECT_EQ(row.right == row.left, row.areEqual);
        EXPECT_EQ(row.left != row.right, !row.areEqual);
    }
}

TEST(PublicKeyInfo, IsCopiedAsValue)
{
    PublicKeyInfo const copy(rsaPublic);
    EXPECT_EQ(copy, rsaPublic);
    PublicKeyInfo assigned(eccPublic);
    assigned = rsaPublic;
    EXPECT_EQ(assigned, rsaPublic);
}

TEST(PublicKeyInfo, KeepsKindAndEmptyNumbersAfterMove)
{
    PublicKeyInfo source(rsaPublic);
    PublicKeyInfo const target(std::move(source));
    EXPECT_EQ(target, rsaPublic);
    EXPECT_EQ(source.getType(), KeyType::RSA); // NOLINT(bugprone-use-after-move): what is left is documented
    EXPECT_TRUE(source.getRSAModulus().empty());
    EXPECT_TRUE(source.getRSAPublicExponent().empty());
}

TEST(PrivateKeyInfo, RSARecordReturnsItsNumber)
{
    EXPECT_EQ(rsaPrivate.getType(), KeyType::RSA);
    EXPECT_EQ(rsaPrivate.getRSAPrivateExponent(), secret);
}

TEST(PrivateKeyInfo, RSARecordRefusesECCGetters)
{
    EXPECT_THROWS_EXACTLY(
        NotECCKey, "Cannot get the private integer from the key because it is not an ECC key.",
        rsaPrivate.getECCPrivateInteger());
    EXPECT_THROWS_EXACTLY(
        NotECCKey, "Cannot get the elliptic curve from the key because it is not an ECC key.",
        rsaPrivate.getECCCurve());
}

TEST(PrivateKeyInfo, ECCRecordReturnsItsNumber)
{
    EXPECT_EQ(eccPrivate.getType(), KeyType::ECC);
    EXPECT_EQ(eccPrivate.getECCPrivateInteger(), secret);
    EXPECT_EQ(eccPrivate.getECCCurve(), EllipticCurve::Ed25519);
}

TEST(PrivateKeyInfo, ECCRecordRefusesRSAGetter)
{
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get the private exponent from the key because it is not an RSA key.",
        eccPrivate.getRSAPrivateExponent());
}

TEST(PrivateKeyInfo, RefusesEmptyNumbers)
{
    ByteArray const none;
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty private exponent in private key.", PrivateKeyInfo(none));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty private integer in private key.",
        PrivateKeyInfo(none, EllipticCurve::Prime256v1));
}

TEST(PrivateKeyInfo, ComparesKindAndNumbers)
{
    constexpr bool equal = true;
    constexpr bool different = false;
    struct Row
    {
        PrivateKeyInfo left;
        PrivateKeyInfo right;
        bool areEqual;
    };
    ByteArray const other{1};
    for (Row const& row :
         {Row{rsaPrivate, PrivateKeyInfo(secret), equal}, Row{rsaPrivate, PrivateKeyInfo(other), different},
          Row{eccPrivate, PrivateKeyInfo(secret, EllipticCurve::Ed25519), equal},
          Row{eccPrivate, PrivateKeyInfo(other, EllipticCurve::Ed25519), different},
          Row{eccPrivate, PrivateKeyInfo(secret, EllipticCurve::Prime256v1), different},
          Row{rsaPrivate, PrivateKeyInfo(secret, EllipticCurve::Prime256v1), different}}) {
        EXPECT_EQ(row.left == row.right, row.areEqual);
        EXPECT_EQ(row.right == row.left, row.areEqual);
        EXPECT_EQ(row.left != row.right, !row.areEqual);
    }
}

TEST(PrivateKeyInfo, KeepsKindAndEmptyNumbersAfterMove)
{
    PrivateKeyInfo source(eccPrivate);
    PrivateKeyInfo target(rsaPrivate);
    target = std::move(source);
    EXPECT_EQ(target, eccPrivate);
    EXPECT_EQ(source.getType(), KeyType::ECC); // NOLINT(bugprone-use-after-move): what is left is documented
    EXPECT_TRUE(source.getECCPrivateInteger().empty());
}
