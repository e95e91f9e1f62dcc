#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/objects.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Attributes = std::unordered_map<std::string, std::string>;
using Texts = std::vector<std::string>;

constexpr char const noContent[] = "Error: X509Certificate has no content.";
constexpr char const noSubjectName[] = "Subject name has no CN.";
constexpr char const noIssuerName[] = "Issuer name has no CN.";
constexpr char const noSerial[] = "Internal error: Unable to get serial number.";
constexpr char const unprintableTime[] = "Error: printing the ASN1 time failed.";
constexpr char const invalidTime[] = "Invalid time format used in the certificate.";

X509Certificate load(Mutation const& mutate = {})
{
    return X509Certificate(makeRoot("root", mutate).der());
}

X509Certificate withSubject(Name const& subject)
{
    return load([&](CertificateSpec& spec) { spec.subject = subject; });
}

X509Certificate withIssuer(Name const& issuer)
{
    return load([&](CertificateSpec& spec) { spec.issuer = issuer; });
}

X509Certificate withKey(KeyHandle const& key)
{
    return load([&](CertificateSpec& spec) { spec.key = key; });
}

X509CertificateImpl implementationWithKey(KeyHandle const& key)
{
    return X509CertificateImpl(
        makeRoot("root", [&](CertificateSpec& spec) { spec.key = key; }).certificate.get());
}

X509Certificate withSerial(std::string const& serial)
{
    return load([&](CertificateSpec& spec) { spec.serialNumber = serial; });
}

Bytes numberOf(KeyHandle const& key, char const* parameter)
{
    BIGNUM* number = nullptr;
    require(EVP_PKEY_get_bn_param(key.get(), parameter, &number));
    auto const owned = own(number);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

/// Returns the end of the key's SubjectPublicKeyInfo: the encoded point or the raw key.
Bytes endOfPublicKey(KeyHandle const& key, std::size_t size)
{
    auto const der = publicKeyDer(key);
    return Bytes(der.end() - static_cast<std::ptrdiff_t>(size), der.end());
}

/// Returns an extended key usage extension with one object identifier of the given content.
Bytes usageOf(Bytes const& oidContent)
{
    auto const lengthOf = [](std::size_t size) {
        return Bytes{0x82, static_cast<unsigned char>(size >> 8U), static_cast<unsigned char>(size & 0xFFU)};
    };
    Bytes oid{0x06};
    for (unsigned char const byte : lengthOf(oidContent.size())) {
        oid.push_back(byte);
    }
    oid.insert(oid.end(), oidContent.begin(), oidContent.end());
    Bytes sequence{0x30};
    for (unsigned char const byte : lengthOf(oid.size())) {
        sequence.push_back(byte);
    }
    sequence.insert(sequence.end(), oid.begin(), oid.end());
    return sequence;
}

} // namespace

// Names

TEST(X509CertificateNames, StartWithMostSpecificAndHaveNoBlanks)
{
    auto const certificate = withSubject({{"C", "US", V_ASN1_PRINTABLESTRING}, {"O", "b"}, {"CN", "a"}});
    EXPECT_EQ(certificate.getSubjectName(), "CN=a,O=b,C=US");
    EXPECT_EQ(certificate.getIssuerName(), "CN=a,O=b,C=US");
}

TEST(X509CertificateNames, DifferForSubjectAndIssuer)
{
    auto const certificate = withIssuer({{"O", "issuer"}, {"CN", "authority"}});
    EXPECT_EQ(certificate.getSubjectName(), "CN=root");
    EXPECT_EQ(certificate.getIssuerName(), "CN=authority,O=issuer");
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"CN", "root"}}));
    EXPECT_EQ(certificate.getIssuerNameAsRDNs(), (Attributes{{"CN", "authority"}, {"O", "issuer"}}));
    EXPECT_EQ(certificate.getSubjectCommonName(), "root");
    EXPECT_EQ(certificate.getIssuerCommonName(), "authority");
}

TEST(X509CertificateNames, EscapeSpecialCharacters)
{
    EXPECT_EQ(
        withSubject(commonName(" a,b+c\"d\\e<f>g;h ")).getSubjectName(), R"(CN=\ a\,b\+c\"d\\e\<f\>g\;h\ )");
    EXPECT_EQ(withSubject(commonName("#a")).getSubjectName(), R"(CN=\#a)");
    EXPECT_EQ(withSubject(commonName("a\nb")).getSubjectName(), R"(CN=a\0Ab)");
}

TEST(X509CertificateNames, ContainUtf8InMapAndEscapesInText)
{
    auto const certificate = withSubject(commonName("J\xC3\xBCrgen"));
    EXPECT_EQ(certificate.getSubjectCommonName(), "J\xC3\xBCrgen");
    EXPECT_EQ(certificate.getSubjectName(), R"(CN=J\C3\BCrgen)");
}

TEST(X509CertificateNames, AreConvertedToUtf8)
{
    auto const wide = withSubject({{"CN", std::string("\0\xFC\x20\xAC", 4), V_ASN1_BMPSTRING}});
    EXPECT_EQ(wide.getSubjectCommonName(), "\xC3\xBC\xE2\x82\xAC");
    auto const latin = withSubject({{"CN", "\xFC", V_ASN1_T61STRING}});
    EXPECT_EQ(latin.getSubjectCommonName(), "\xC3\xBC");
}

TEST(X509CertificateNames, KeepLastOfEqualAttributesInMap)
{
    auto const certificate = withSubject({{"OU", "first"}, {"OU", "second"}, {"CN", "one"}, {"CN", "two"}});
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"OU", "second"}, {"CN", "two"}}));
    EXPECT_EQ(certificate.getSubjectCommonName(), "two");
    EXPECT_EQ(certificate.getSubjectName(), "CN=two,CN=one,OU=second,OU=first");
}

TEST(X509CertificateNames, KeepEmbeddedNul)
{
    std::string const deceptive("www.good.example\0.evil.example", 30);
    auto const certificate = withSubject(commonName(deceptive));
    EXPECT_EQ(certificate.getSubjectCommonName(), deceptive);
    EXPECT_EQ(certificate.getSubjectName(), R"(CN=www.good.example\00.evil.example)");
}

TEST(X509CertificateNames, SkipAttributesWithoutUtf8FormInMap)
{
    auto const certificate =
        withSubject({{"CN", "a"}, {"x500UniqueIdentifier", "\x01\x02", V_ASN1_BIT_STRING}});
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"CN", "a"}}));
    EXPECT_NE(certificate.getSubjectName().find("x500UniqueIdentifier="), std::string::npos);
}

TEST(X509CertificateNames, SkipCommonNameThatIsNoText)
{
    auto const certificate = withSubject({{"CN", "a"}, {"CN", "\x01", V_ASN1_BIT_STRING}});
    EXPECT_EQ(certificate.getSubjectCommonName(), "a");
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, noSubjectName,
        withSubject({{"CN", "\x01", V_ASN1_BIT_STRING}}).getSubjectCommonName());
}

TEST(X509CertificateNames, ShareOneKeyForUnknownAttributes)
{
    auto const certificate =
        withSubject({{"1.3.6.1.4.1.99999.1", "x"}, {"1.3.6.1.4.1.99999.2", "y"}, {"CN", "a"}});
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"UNDEF", "y"}, {"CN", "a"}}));
}

TEST(X509CertificateNames, KeepEmptyAttribute)
{
    auto const certificate = withSubject({{"CN", ""}, {"O", "a"}});
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"CN", ""}, {"O", "a"}}));
    EXPECT_EQ(certificate.getSubjectCommonName(), "");
    EXPECT_EQ(certificate.getSubjectName(), "O=a,CN=");
}

TEST(X509CertificateNames, ContainEveryAttributeOfMultiValuedRdn)
{
    auto const certificate = load([](CertificateSpec& spec) {
        spec.beforeSigning = [](X509* made) {
            auto const name = makeName(commonName("a"));
            require(X509_NAME_add_entry_by_txt(
                name.get(), "OU", MBSTRING_UTF8, reinterpret_cast<unsigned char const*>("b"), 1, -1, -1));
            require(X509_set_subject_name(made, name.get()));
        };
    });
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), (Attributes{{"CN", "a"}, {"OU", "b"}}));
    EXPECT_NE(certificate.getSubjectName().find('+'), std::string::npos);
}

TEST(X509CertificateNames, MayBeEmpty)
{
    auto const certificate = withSubject({});
    EXPECT_EQ(certificate.getSubjectName(), "");
    EXPECT_EQ(certificate.getIssuerName(), "");
    EXPECT_EQ(certificate.getSubjectNameAsRDNs(), Attributes());
    EXPECT_EQ(certificate.getIssuerNameAsRDNs(), Attributes());
    EXPECT_THROWS_EXACTLY(InvalidArgument, noSubjectName, certificate.getSubjectCommonName());
    EXPECT_THROWS_EXACTLY(InvalidArgument, noIssuerName, certificate.getIssuerCommonName());
}

TEST(X509CertificateNames, FailWithoutCommonName)
{
    EXPECT_THROWS_EXACTLY(InvalidArgument, noSubjectName, withSubject({{"O", "a"}}).getSubjectCommonName());
    EXPECT_THROWS_EXACTLY(InvalidArgument, noIssuerName, withIssuer({{"O", "a"}}).getIssuerCommonName());
    EXPECT_EQ(withIssuer({{"O", "a"}}).getSubjectCommonName(), "root");
}

TEST(X509CertificateNames, MayBeLong)
{
    std::string const value(200000, 'x');
    auto const certificate = withSubject(commonName(value));
    EXPECT_EQ(certificate.getSubjectCommonName(), value);
    EXPECT_EQ(certificate.getSubjectName(), "CN=" + value);
}

// Serial number, fingerprint, signature algorithm

TEST(X509CertificateSerialNumber, IsDecimal)
{
    struct Row
    {
        char const* serial;
        char const* decimal;
    };
    for (Row const& row :
         {Row{"0x0100", "256"}, Row{"0", "0"}, Row{"1", "1"}, Row{"0xff", "255"}, Row{"-5", "-5"},
          Row{"-0x80", "-128"},
          // 20 bytes, the most that RFC 5280 (4.1.2.2) allows
          Row{"0x7fffffffffffffffffffffffffffffffffffffff",
              "730750818665451459101842416358141509827966271487"},
          // 21 bytes
          Row{"0x010000000000000000000000000000000000000000",
              "1461501637330902918203684832716283019655932542976"}}) {
        EXPECT_EQ(withSerial(row.serial).getSerialNumber(), row.decimal);
    }
}

TEST(X509CertificateSerialNumber, FailsForAnythingButAnInteger)
{
    EXPECT_THROWS_EXACTLY(X509CertificateException, noSerial, serialToDecimalString(nullptr));
    auto const text = own(ASN1_STRING_type_new(V_ASN1_OCTET_STRING));
    EXPECT_THROWS_EXACTLY(X509CertificateException, noSerial, serialToDecimalString(text.get()));
}

TEST(X509CertificateFingerprint, IsDigestOfDerForm)
{
    auto const made = makeRoot("root");
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    auto const der = made.der();
    require(EVP_Digest(der.data(), der.size(), digest, &size, EVP_sha256(), nullptr));
    std::string expected;
    for (unsigned int index = 0; index < size; ++index) {
        expected += "0123456789abcdef"[digest[index] >> 4U];
        expected += "0123456789abcdef"[digest[index] & 15U];
    }
    EXPECT_EQ(expected.size(), 64U);
    EXPECT_EQ(X509Certificate(der).getSHA256Fingerprint(), expected);
}

TEST(X509CertificateSignatureAlgorithm, IsOpenSSLsShortName)
{
    EXPECT_EQ(withKey(p256Key()).getSignatureAlgorithm(), "ecdsa-with-SHA256");
    EXPECT_EQ(withKey(rsaKey()).getSignatureAlgorithm(), "RSA-SHA256");
    EXPECT_EQ(withKey(ed25519Key()).getSignatureAlgorithm(), "ED25519");
    EXPECT_EQ(
        load([](CertificateSpec& spec) { spec.digest = EVP_sha384(); }).getSignatureAlgorithm(),
        "ecdsa-with-SHA384");
    EXPECT_EQ(
        load([](CertificateSpec& spec) {
            spec.key = rsaKey();
            spec.pssSignature = true;
        }).getSignatureAlgorithm(),
        "RSASSA-PSS");
}

TEST(X509CertificateSignatureAlgorithm, IsUndefForUnknownAlgorithm)
{
    auto der = makeRoot("root").der();
    // ecdsa-with-SHA256 becomes a number next to it, in the signed part and outside of it
    Bytes const known{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
    for (int place = 0; place < 2; ++place) {
        auto const found = std::search(der.begin(), der.end(), known.begin(), known.end());
        ASSERT_NE(found, der.end());
        *(found + 7) = 0x7F;
    }
    EXPECT_EQ(X509Certificate(der).getSignatureAlgorithm(), "UNDEF");
}

// Validity

TEST(X509CertificateValidity, ReadsAsTextAndAsTimePoint)
{
    struct Row
    {
        std::int64_t time;
        char const* text;
    };
    for (Row const& row :
         {Row{-631152000, "Jan  1 00:00:00 1950 GMT"}, Row{-1, "Dec 31 23:59:59 1969 GMT"},
          Row{0, "Jan  1 00:00:00 1970 GMT"}, Row{1, "Jan  1 00:00:01 1970 GMT"},
          Row{951782400, "Feb 29 00:00:00 2000 GMT"}, Row{2524607999, "Dec 31 23:59:59 2049 GMT"},
          Row{2524608000, "Jan  1 00:00:00 2050 GMT"}, Row{253402300799, "Dec 31 23:59:59 9999 GMT"}}) {
        SCOPED_TRACE(row.text);
        auto const starts = load([&](CertificateSpec& spec) { spec.notBefore = TimeSpec::at(row.time); });
        EXPECT_EQ(starts.getValidNotBefore(), row.text);
        EXPECT_EQ(starts.getValidNotBeforeTimePoint().time_since_epoch().count(), row.time * 10000000LL);
        auto const ends = load([&](CertificateSpec& spec) { spec.notAfter = TimeSpec::at(row.time); });
        EXPECT_EQ(ends.getValidNotAfter(), row.text);
        EXPECT_EQ(ends.getValidNotAfterTimePoint().time_since_epoch().count(), row.time * 10000000LL);
    }
}

TEST(X509CertificateValidity, CountsTicksOf100Nanoseconds)
{
    EXPECT_EQ(X509Certificate::TimePoint::duration(10), std::chrono::microseconds(1));
    EXPECT_TRUE((std::is_same_v<X509Certificate::TimePoint::clock, std::chrono::system_clock>));
}

TEST(X509CertificateValidity, FailsInBothFormsIfUnreadable)
{
    struct Row
    {
        int type;
        char const* text;
    };
    for (Row const& row :
         {Row{V_ASN1_UTCTIME, "no time at all"}, Row{V_ASN1_UTCTIME, "701301000000Z"},
          Row{V_ASN1_UTCTIME, "700101250000Z"}, Row{V_ASN1_GENERALIZEDTIME, "20200132000000Z"},
          Row{V_ASN1_GENERALIZEDTIME, "-0010101000000Z"}}) {
        SCOPED_TRACE(row.text);
        CleanErrorQueue const clean;
        auto const time = TimeSpec::raw(row.type, row.text);
        auto const starts = load([&](CertificateSpec& spec) { spec.notBefore = time; });
        EXPECT_THROWS_EXACTLY(X509CertificateException, unprintableTime, starts.getValidNotBefore());
        EXPECT_THROWS_EXACTLY(X509CertificateException, invalidTime, starts.getValidNotBeforeTimePoint());
        auto const ends = load([&](CertificateSpec& spec) { spec.notAfter = time; });
        EXPECT_THROWS_EXACTLY(X509CertificateException, unprintableTime, ends.getValidNotAfter());
        EXPECT_THROWS_EXACTLY(X509CertificateException, invalidTime, ends.getValidNotAfterTimePoint());
    }
}

// A certificate with such a time does not load with OpenSSL 3.5.
TEST(X509CertificateValidity, FailsInBothFormsIfTruncated)
{
    for (auto const& [type, text] :
         {std::pair(V_ASN1_UTCTIME, ""), std::pair(V_ASN1_UTCTIME, "garbage"),
          std::pair(V_ASN1_UTCTIME, "700101"), std::pair(V_ASN1_GENERALIZEDTIME, "2020")}) {
        SCOPED_TRACE(text);
        auto const time = TimeSpec::raw(type, text).toAsn1();
        EXPECT_THROWS_EXACTLY(X509CertificateException, unprintableTime, asn1TimeToString(time.get()));
        EXPECT_THROWS_EXACTLY(X509CertificateException, invalidTime, asn1TimeToTimePoint(time.get()));
    }
}

TEST(X509CertificateValidity, FailsForNullTime)
{
    EXPECT_THROWS_EXACTLY(X509CertificateException, unprintableTime, asn1TimeToString(nullptr));
    EXPECT_THROWS_EXACTLY(X509CertificateException, invalidTime, asn1TimeToTimePoint(nullptr));
}

// Keys

TEST(X509CertificateKey, HasModulusAndExponentIfRsa)
{
    auto const key = rsaKey();
    auto const certificate = withKey(key);
    EXPECT_EQ(certificate.getKeySize(), 2048U);
    EXPECT_EQ(certificate.getModulus(), numberOf(key, OSSL_PKEY_PARAM_RSA_N));
    EXPECT_EQ(certificate.getModulus().size(), 256U);
    EXPECT_EQ(certificate.getPublicExponent(), (ByteArray{1, 0, 1}));
    EXPECT_EQ(
        certificate.getPublicKeyInfo(),
        PublicKeyInfo(2048, ByteArray{1, 0, 1}, numberOf(key, OSSL_PKEY_PARAM_RSA_N)));
}

TEST(X509CertificateKey, HasPointIfPrime256v1)
{
    auto const key = p256Key();
    auto const point = endOfPublicKey(key, 65);
    EXPECT_EQ(point.front(), 4);
    EXPECT_EQ(withKey(key).getKeySize(), 256U);
    EXPECT_EQ(withKey(key).getPublicKeyInfo(), PublicKeyInfo(256, point, EllipticCurve::Prime256v1));
}

TEST(X509CertificateKey, HasRawKeyIfEd25519)
{
    auto const key = ed25519Key();
    auto const bits = static_cast<std::uint64_t>(EVP_PKEY_get_bits(key.get()));
    EXPECT_GT(bits, 0U);
    EXPECT_EQ(withKey(key).getKeySize(), bits);
    EXPECT_EQ(
        withKey(key).getPublicKeyInfo(),
        PublicKeyInfo(bits, endOfPublicKey(key, 32), EllipticCurve::Ed25519));
}

TEST(X509CertificateKey, HasNoModulusOrExponentUnlessRsa)
{
    for (auto const& key : {p256Key(), ed25519Key()}) {
        auto const certificate = withKey(key);
        EXPECT_THROWS_EXACTLY(
            NotRSAKey, "Cannot get the modulus from the key because it is not an RSA key",
            certificate.getModulus());
        EXPECT_THROWS_EXACTLY(
            NotRSAKey, "Cannot get the public exponent from the key because it is not an RSA key",
            certificate.getPublicExponent());
    }
}

TEST(X509CertificateImplKey, AnswersEachQueryAlone)
{
    auto const rsa = implementationWithKey(rsaKey());
    EXPECT_EQ(rsa.getKeySize(), 2048U);
    EXPECT_EQ(rsa.getModulus(), numberOf(rsaKey(), OSSL_PKEY_PARAM_RSA_N));
    EXPECT_EQ(rsa.getPublicExponent(), (ByteArray{1, 0, 1}));
    auto const ecc = implementationWithKey(p256Key());
    EXPECT_EQ(ecc.getKeySize(), 256U);
    EXPECT_EQ(ecc.getECCPublicPoint(), endOfPublicKey(p256Key(), 65));
    EXPECT_EQ(ecc.getECCCurve(), EllipticCurve::Prime256v1);
    EXPECT_NO_THROW(ecc.throwIfKeyTooWeak());
}

TEST(X509CertificateImplKey, RefusesQueriesOfOtherKeyKind)
{
    auto const rsa = implementationWithKey(rsaKey());
    auto const ecc = implementationWithKey(p256Key());
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get modulus because the certificate does not contain an RSA key",
        ecc.getModulus());
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get public exponent because the certificate does not contain an RSA key",
        ecc.getPublicExponent());
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Could not find 'pub' in parameter list from EVP_PKEY_todata",
        rsa.getECCPublicPoint());
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Expected the EVP_PKEY to be ECC-based. It is not.", rsa.getECCCurve());
}

TEST(X509CertificateImplKey, FailsWithoutContent)
{
    X509CertificateImpl const empty;
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getPublicKeyInfo());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getKeySize());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getModulus());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getPublicExponent());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getECCPublicPoint());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getECCCurve());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.throwIfKeyTooWeak());
}

// Extensions

TEST(X509CertificateExtendedKeyUsages, AreDottedOidsInOrderOfExtension)
{
    auto const usagesOf = [](char const* text) {
        return load([&](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", text); })
            .getExtendedKeyUsages();
    };
    EXPECT_EQ(usagesOf("serverAuth,clientAuth"), (Texts{"1.3.6.1.5.5.7.3.1", "1.3.6.1.5.5.7.3.2"}));
    EXPECT_EQ(usagesOf("clientAuth,serverAuth"), (Texts{"1.3.6.1.5.5.7.3.2", "1.3.6.1.5.5.7.3.1"}));
    EXPECT_EQ(usagesOf("1.2.3.4.5"), (Texts{"1.2.3.4.5"}));
}

TEST(X509CertificateExtendedKeyUsages, AreEmptyWithoutReadableExtension)
{
    EXPECT_EQ(load().getExtendedKeyUsages(), Texts());
    for (Bytes const& content : {Bytes{}, Bytes{0x30, 0x05}, Bytes{0x05, 0x00}, Bytes(4, 0xFF)}) {
        CleanErrorQueue const clean;
        auto const certificate =
            load([&](CertificateSpec& spec) { spec.setRawExtension("extendedKeyUsage", content); });
        EXPECT_EQ(certificate.getExtendedKeyUsages(), Texts());
    }
}

TEST(X509CertificateExtendedKeyUsages, AreEmptyIfExtensionIsDuplicated)
{
    auto const certificate = load([](CertificateSpec& spec) {
        spec.extensions.push_back({"extendedKeyUsage", "serverAuth", std::nullopt, false});
        spec.extensions.push_back({"extendedKeyUsage", "clientAuth", std::nullopt, false});
    });
    EXPECT_EQ(certificate.getExtendedKeyUsages(), Texts());
}

TEST(X509CertificateExtendedKeyUsages, FailCleanlyForUnprintableOid)
{
    CleanErrorQueue const clean;
    Bytes endless(700, 0xFF); // one number of 700 groups of seven bits
    endless.front() = 0x2A;
    endless.back() = 0x7F;
    auto const certificate =
        load([&](CertificateSpec& spec) { spec.setRawExtension("extendedKeyUsage", usageOf(endless)); });
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "OID has invalid length: -1", certificate.getExtendedKeyUsages());
}

TEST(X509CertificatePolicies, AreDottedOidsInOrderOfExtension)
{
    auto const certificate = load([](CertificateSpec& spec) {
        spec.setExtension("certificatePolicies", "2.5.29.32.0,1.2.3.4,@qualified");
        spec.extensionSections = "[qualified]\npolicyIdentifier=1.3.5.8\nCPS.1=http://policy.example/\n";
    });
    EXPECT_EQ(certificate.getPolicies(), (Texts{"2.5.29.32.0", "1.2.3.4", "1.3.5.8"}));
}

TEST(X509CertificatePolicies, AreEmptyWithoutReadableExtension)
{
    EXPECT_EQ(load().getPolicies(), Texts());
    CleanErrorQueue const clean;
    auto const damaged = load([](CertificateSpec& spec) {
        spec.setRawExtension("certificatePolicies", {0x30, 0x05});
    });
    EXPECT_EQ(damaged.getPolicies(), Texts());
}

TEST(OidToString, WritesDigitsAndNeverAName)
{
    EXPECT_EQ(oidToString(OBJ_nid2obj(NID_server_auth)), "1.3.6.1.5.5.7.3.1");
    EXPECT_EQ(oidToString(OBJ_nid2obj(NID_commonName)), "2.5.4.3");
    constexpr char const longOid[] = "2.999.123456789012345678901234567890.1";
    EXPECT_EQ(oidToString(own(OBJ_txt2obj(longOid, 1)).get()), longOid);
}

TEST(OidToString, WritesTextsOfEachLength)
{
    std::string text = "2.999";
    while (text.size() < 300) {
        text += text.size() % 2 == 0 ? ".1" : ".23";
        EXPECT_EQ(oidToString(own(OBJ_txt2obj(text.c_str(), 1)).get()), text);
    }
    for (std::size_t const length : {126U, 127U, 128U, 129U}) {
        auto const digits = "2.999." + std::string(length - 6, '7');
        EXPECT_EQ(oidToString(own(OBJ_txt2obj(digits.c_str(), 1)).get()), digits) << length;
    }
}

TEST(OidToString, RefusesObjectWithoutNumbers)
{
    EXPECT_THROWS_EXACTLY(X509CertificateException, "OID has invalid length: 0", oidToString(nullptr));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "OID has invalid length: 0", oidToString(OBJ_nid2obj(NID_undef)));
}

TEST(X509CertificateIsCA, AgreesWithOpenSSL)
{
    EXPECT_TRUE(load().isCACertificate());
    EXPECT_FALSE(X509Certificate(makeSelfSignedLeaf("leaf").der()).isCACertificate());
    auto const isCA = [](Mutation const& mutate) { return load(mutate).isCACertificate(); };
    // Self-signed of version 1, as old roots are
    EXPECT_TRUE(isCA([](CertificateSpec& spec) {
        spec.version = X509_VERSION_1;
        spec.extensions.clear();
    }));
    EXPECT_TRUE(isCA([](CertificateSpec& spec) { spec.removeExtension("basicConstraints"); }));
    EXPECT_FALSE(isCA(
        [](CertificateSpec& spec) { spec.removeExtension("basicConstraints").removeExtension("keyUsage"); }));
    EXPECT_FALSE(isCA([](CertificateSpec& spec) { spec.setExtension("keyUsage", "digitalSignature"); }));
    CleanErrorQueue const clean;
    EXPECT_FALSE(isCA([](CertificateSpec& spec) { spec.setRawExtension("basicConstraints", {0x30, 0x05}); }));
}

TEST(X509CertificateIsSelfSigned, ComparesOnlyNames)
{
    EXPECT_TRUE(load().isSelfSigned());
    EXPECT_FALSE(withIssuer(commonName("other")).isSelfSigned());
    EXPECT_FALSE(X509Certificate(makeIntermediate(makeRoot("root"), "ca").der()).isSelfSigned());
    // Issued by another CA with the same name
    EXPECT_TRUE(X509Certificate(makeIntermediate(
                                    makeRoot("root"), "root",
                                    [](CertificateSpec& spec) { spec.key = p256Key("another"); })
                                    .der())
                    .isSelfSigned());
    EXPECT_TRUE(load([](CertificateSpec& spec) { spec.damagedSignature = true; }).isSelfSigned());
    // The same text in another encoding
    EXPECT_TRUE(withIssuer({{"CN", "root", V_ASN1_PRINTABLESTRING}}).isSelfSigned());
}

TEST(X509CertificateIsValidForDigitalSigning, DependsOnBothUsages)
{
    enum class Signing
    {
        Allowed,
        Refused
    };
    struct Row
    {
        char const* keyUsage;
        char const* extendedKeyUsage;
        Signing expected;
    };
    constexpr char const absent[] = "";
    for (Row const& row : {
             Row{"digitalSignature", absent, Signing::Allowed},
             Row{"critical,digitalSignature,keyEncipherment", absent, Signing::Allowed},
             Row{"digitalSignature", "codeSigning", Signing::Allowed},
             Row{"digitalSignature", "serverAuth,codeSigning,clientAuth", Signing::Allowed},
             Row{"digitalSignature", "serverAuth", Signing::Refused},
             Row{"digitalSignature", "anyExtendedKeyUsage", Signing::Refused},
             Row{"nonRepudiation", absent, Signing::Refused},
             Row{"nonRepudiation", "codeSigning", Signing::Refused},
             Row{absent, absent, Signing::Refused},
             Row{absent, "codeSigning", Signing::Refused},
         }) {
        auto const certificate = load([&](CertificateSpec& spec) {
            spec.removeExtension("keyUsage");
            if (*row.keyUsage != '\0') {
                spec.setExtension("keyUsage", row.keyUsage);
            }
            if (*row.extendedKeyUsage != '\0') {
                spec.setExtension("extendedKeyUsage", row.extendedKeyUsage);
            }
        });
        EXPECT_EQ(certificate.isValidForDigitalSigning(), row.expected == Signing::Allowed)
            << row.keyUsage << '/' << row.extendedKeyUsage;
    }
}

TEST(X509CertificateIsValidForDigitalSigning, TreatsDamagedExtensionAsAbsent)
{
    CleanErrorQueue const clean;
    EXPECT_FALSE(load([](CertificateSpec& spec) {
                     spec.setRawExtension("keyUsage", {0x30, 0x05});
                 }).isValidForDigitalSigning());
    EXPECT_TRUE(load([](CertificateSpec& spec) {
                    spec.setExtension("keyUsage", "digitalSignature");
                    spec.setRawExtension("extendedKeyUsage", {0x30, 0x05});
                }).isValidForDigitalSigning());
}

// The error queue

TEST(X509CertificateQueries, KeepErrorsOfCallerInQueue)
{
    auto const& others = sharedObjects();
    CleanErrorQueue const clean;
    auto certificate = load([](CertificateSpec& spec) {
        spec.key = rsaKey(1024);
        spec.setExtension("keyUsage", "digitalSignature");
    });
    for (auto const& query : operationsWithoutOthers(certificateOperations())) {
        SCOPED_TRACE(query.name);
        auto const foreign = queueForeignError();
        EXPECT_NO_THROW(query.answer(certificate, others));
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    }
}

TEST(X509CertificateQueries, FailTheSameWithErrorsOfCallerInQueue)
{
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    EXPECT_THROWS_EXACTLY(InvalidArgument, noSubjectName, withSubject({}).getSubjectCommonName());
    queueForeignError();
    X509Certificate const empty;
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getSerialNumber());
    EXPECT_EQ(oldestError(), foreign);
}
