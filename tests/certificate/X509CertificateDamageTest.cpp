#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <optional>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Returns a certificate with content for every query.
CertificateAndKey sample(KeyHandle const& key)
{
    return makeRoot("sample", [&](CertificateSpec& spec) {
        spec.key = key;
        spec.subject = {
            {"C", "DE", V_ASN1_PRINTABLESTRING}, {"OU", "eins"}, {"OU", "zwei"}, {"CN", "sample"}};
        spec.setExtension("extendedKeyUsage", "serverAuth,codeSigning");
        spec.setExtension("certificatePolicies", "1.2.3.4,2.5.29.32.0");
    });
}

/// Expects that every query answers or throws an exception of the library's family.
void expectAnswersOrCleanFailures(X509Certificate& certificate)
{
    for (auto const& query : operationsWithoutOthers(certificateOperations())) {
        try {
            query.answer(certificate, sharedObjects());
        } catch (CertificateException const& /*failure*/) {
            continue;
        } catch (std::exception const& other) {
            ADD_FAILURE() << query.name << ": " << other.what();
        }
    }
}

/// Expects that the data loads as a certificate whose queries answer, or fails with an exception of the
/// library and an empty queue.
template <class Data>
void expectCleanOutcome(Data const& data)
{
    std::optional<X509Certificate> certificate;
    try {
        certificate.emplace(data);
    } catch (CertificateException const& refusal) {
        EXPECT_STRNE(refusal.what(), "");
        EXPECT_TRUE(queueIsEmpty());
        return;
    }
    EXPECT_TRUE(queueIsEmpty());
    expectAnswersOrCleanFailures(*certificate);
    drainErrorQueue();
}

template <class Data>
void expectCleanOutcomeOfEveryTruncation(Data const& data)
{
    for (std::size_t size = 0; size < data.size(); ++size) {
        SCOPED_TRACE(size);
        expectCleanOutcome(Data(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size)));
    }
}

template <class Data>
void expectCleanOutcomeOfEveryDamagedByte(Data const& data, std::initializer_list<unsigned char> masks)
{
    for (std::size_t position = 0; position < data.size(); ++position) {
        SCOPED_TRACE(position);
        for (unsigned char const mask : masks) {
            Data damaged = data;
            damaged[position] = static_cast<typename Data::value_type>(damaged[position] ^ mask);
            expectCleanOutcome(damaged);
        }
    }
}

/// Returns the DER element: tag, length, content.
Bytes asn1(unsigned char tag, Bytes const& content)
{
    auto const lengthByte = [&](unsigned shift) {
        return static_cast<unsigned char>(content.size() >> shift & 0xFFU);
    };
    auto encoded = content.size() < 128 ? Bytes{tag, lengthByte(0)}
                                        : Bytes{tag, 0x83, lengthByte(16), lengthByte(8), lengthByte(0)};
    encoded.insert(encoded.end(), content.begin(), content.end());
    return encoded;
}

Bytes rsaPublicKey(Bytes const& modulus, Bytes const& exponent)
{
    auto numbers = asn1(V_ASN1_INTEGER, modulus);
    auto const second = asn1(V_ASN1_INTEGER, exponent);
    numbers.insert(numbers.end(), second.begin(), second.end());
    return asn1(V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED, numbers);
}

/// Returns a certificate with these bytes as its public key.
Bytes withPublicKey(int algorithm, int parameterType, Bytes const& bits)
{
    return makeRoot(
               "sample",
               [&](CertificateSpec& spec) {
                   spec.beforeSigning = [&](X509* certificate) {
                       void* const parameter =
                           parameterType == V_ASN1_OBJECT ? OBJ_nid2obj(NID_X9_62_prime256v1) : nullptr;
                       auto* const copy =
                           static_cast<unsigned char*>(OPENSSL_memdup(bits.data(), bits.size()));
                       require(X509_PUBKEY_set0_param(
                           changeable(X509_get_X509_PUBKEY(certificate)), OBJ_nid2obj(algorithm),
                           parameterType, parameter, copy, static_cast<int>(bits.size())));
                   };
               })
        .der();
}

class DamagedX509Certificate : public testing::Test
{
    CleanErrorQueue const clean;
};

} // namespace

TEST_F(DamagedX509Certificate, FailsCleanlyAtEveryTruncationOfDer)
{
    expectCleanOutcomeOfEveryTruncation(sample(p256Key()).der());
    expectCleanOutcomeOfEveryTruncation(sample(rsaKey(1024)).der());
}

TEST_F(DamagedX509Certificate, FailsCleanlyAtEveryTruncationOfPem)
{
    expectCleanOutcomeOfEveryTruncation(sample(p256Key()).pem());
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithEveryDamagedByteOfDer)
{
    expectCleanOutcomeOfEveryDamagedByte(sample(p256Key()).der(), {0x01, 0x04, 0x80, 0xFF});
    expectCleanOutcomeOfEveryDamagedByte(sample(ed25519Key()).der(), {0x20, 0x7F});
    expectCleanOutcomeOfEveryDamagedByte(sample(rsaKey(1024)).der(), {0x02, 0x80});
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithEveryDamagedByteOfPem)
{
    expectCleanOutcomeOfEveryDamagedByte(sample(p256Key()).pem(), {0x01, 0x80});
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithoutAnyValidByte)
{
    expectCleanOutcome(ByteArray(1, 0));
    expectCleanOutcome(ByteArray(1000, 0));
    expectCleanOutcome(ByteArray(1000, 0xFF));
    expectCleanOutcome(ByteArray(1000, 0x30));
    expectCleanOutcome(ByteArray{0x30, 0x84, 0x7F, 0xFF, 0xFF, 0xFF});
    expectCleanOutcome(ByteArray{0x30, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    expectCleanOutcome(ByteArray{0x30, 0x80, 0, 0});
}

TEST_F(DamagedX509Certificate, FailsCleanlyIfNestedDeeply)
{
    // Nested elements of indefinite length.
    ByteArray nested;
    for (int depth = 0; depth < 100000; ++depth) {
        nested.push_back(0x30);
        nested.push_back(0x80);
    }
    expectCleanOutcome(nested);
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithBrokenExtension)
{
    for (char const* extension :
         {"keyUsage", "extendedKeyUsage", "certificatePolicies", "basicConstraints", "subjectKeyIdentifier",
          "authorityKeyIdentifier", "crlDistributionPoints", "subjectAltName", "nameConstraints"}) {
        for (Bytes const& content :
             {Bytes{}, Bytes{0x00}, Bytes{0x30, 0x05}, Bytes{0x05, 0x00}, Bytes(8, 0xFF)}) {
            SCOPED_TRACE(extension);
            for (bool const critical : {false, true}) {
                expectCleanOutcome(makeRoot("sample", [&](CertificateSpec& spec) {
                                       spec.setRawExtension(extension, content, critical);
                                   }).der());
            }
        }
    }
}

TEST_F(DamagedX509Certificate, IsRefusedIfItsRsaKeyHasZeroAsNumber)
{
    Bytes const modulus(129, 0x7F);
    Bytes const exponent{1, 0, 1};
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty modulus in public key",
        X509Certificate(withPublicKey(NID_rsaEncryption, V_ASN1_NULL, rsaPublicKey({0}, exponent))));
    EXPECT_TRUE(queueIsEmpty());
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Empty public exponent in public key",
        X509Certificate(withPublicKey(NID_rsaEncryption, V_ASN1_NULL, rsaPublicKey(modulus, {0}))));
    EXPECT_TRUE(queueIsEmpty());
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithOddRsaKey)
{
    Bytes const exponent{1, 0, 1};
    for (Bytes const& modulus :
         {Bytes{0}, Bytes{1}, Bytes{0x80}, Bytes(128, 0xFF), Bytes(129, 2), Bytes(65536, 5)}) {
        expectCleanOutcome(withPublicKey(NID_rsaEncryption, V_ASN1_NULL, rsaPublicKey(modulus, exponent)));
        expectCleanOutcome(withPublicKey(NID_rsaEncryption, V_ASN1_NULL, rsaPublicKey(exponent, modulus)));
        expectCleanOutcome(withPublicKey(NID_rsaEncryption, V_ASN1_UNDEF, rsaPublicKey(modulus, modulus)));
    }
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithOddPoint)
{
    auto const whole = publicKeyDer(p256Key());
    Bytes const point(whole.end() - 65, whole.end());
    Bytes compressed(point.begin(), point.begin() + 33);
    compressed[0] = static_cast<unsigned char>(2 + (point.back() & 1));
    for (Bytes const& bits :
         {point, compressed, Bytes{0}, Bytes(65, 4), Bytes(point.begin(), point.end() - 1)}) {
        for (int const parameterType : {V_ASN1_OBJECT, V_ASN1_NULL, V_ASN1_UNDEF}) {
            expectCleanOutcome(withPublicKey(NID_X9_62_id_ecPublicKey, parameterType, bits));
        }
    }
}

TEST_F(DamagedX509Certificate, FailsCleanlyWithEd25519KeyOfAnyLength)
{
    for (std::size_t const size : {1U, 31U, 32U, 33U, 57U}) {
        expectCleanOutcome(withPublicKey(NID_ED25519, V_ASN1_UNDEF, Bytes(size, 9)));
    }
}
