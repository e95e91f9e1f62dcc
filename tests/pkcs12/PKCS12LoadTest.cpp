#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/StreamBuffers.hpp"

#include "pkcs12/PKCS12CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <sstream>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const notABundleText[] = "Error: Loading PKSC12 certificate failed. Reason=";
constexpr char const wrongPassphraseText[] = "Input passphrase is incorrect. OpenSSL error message=";
constexpr char const notParsedText[] = "Error: Parsing PKSC12 certificate failed.";

CertificateAndKey const& server()
{
    static auto const made = makeSelfSignedLeaf("server");
    return made;
}

Bytes bundle(std::string const& passphrase)
{
    return toDer(makePkcs12(server(), passphrase));
}

Bytes bundle(std::function<void(Pkcs12Spec&)> const& mutate)
{
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = server().certificate;
    spec.key = server().key;
    mutate(spec);
    return toDer(makePkcs12(spec));
}

Bytes keyBundle(KeyHandle const& key)
{
    return bundle([&](Pkcs12Spec& spec) {
        spec.certificate = nullptr;
        spec.key = key;
    });
}

/// Returns a bundle with one passphrase for its content and another for its MAC.
Bytes bundleOfTwoPassphrases(std::string const& ofContent, std::string const& ofMac)
{
    Pkcs12Spec spec;
    spec.passphrase = ofContent;
    spec.certificate = server().certificate;
    spec.key = server().key;
    spec.withoutMac = true;
    auto const made = makePkcs12(spec);
    require(PKCS12_set_mac(
        made.get(), ofMac.data(), static_cast<int>(ofMac.size()), nullptr, 0, 16, EVP_sha256()));
    return toDer(made);
}

Pkcs12Handle parsed(Bytes const& bytes)
{
    return own(d2i_PKCS12_bio(readerOf(bytes).get(), nullptr));
}

/// Returns OpenSSL's reason for the failure of the call, and empties the queue.
std::string reasonOf(std::function<bool()> const& call)
{
    CleanErrorQueue const queue;
    EXPECT_FALSE(call());
    return oldestReasonText();
}

std::string reasonOfParsing(Bytes const& bytes, char const* passphrase)
{
    auto const bundle = parsed(bytes);
    return reasonOf([&] {
        EVP_PKEY* key = nullptr;
        X509* certificate = nullptr;
        return PKCS12_parse(bundle.get(), passphrase, &key, &certificate, nullptr) != 0;
    });
}

bool legacyProviderIsLoaded()
{
    return OSSL_PROVIDER_available(nullptr, "legacy") == 1;
}

template <class Expected>
bool fails(Bytes const& bytes, std::string const& passphrase, std::string const& text)
{
    try {
        PKCS12Certificate const loaded(bytes, passphrase);
    } catch (Expected const& failure) {
        return text == failure.what();
    }
    return false;
}

[[noreturn]] void exitWith(bool success)
{
    std::exit(success ? 0 : 1);
}

class PKCS12LegacyProvider : public testing::Test
{
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// The algorithms that protect a bundle.
struct CipherRow
{
    explicit CipherRow(char const* theName) : name(theName) {}

    CipherRow& key(int value)
    {
        keyCipher = value;
        return *this;
    }

    CipherRow& certificate(int value)
    {
        certificateCipher = value;
        return *this;
    }

    CipherRow& mac(EVP_MD const* value)
    {
        macDigest = value;
        return *this;
    }

    char const* name;
    int keyCipher = 0;
    int certificateCipher = 0;
    EVP_MD const* macDigest = nullptr;
};

constexpr char const noNameText[] = "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC";

/// Expects a bundle with a certificate with the key to be refused because of the certificate, beside its own
/// key or not.
void expectReportedForCertificate(KeyHandle const& key, char const* reason)
{
    auto const leaf = makeSelfSignedLeaf("unsupported", [&](CertificateSpec& spec) { spec.key = key; });
    auto const expected =
        std::string("Error: Unable to parse X509 certificate(s) inside PKCS12 certificate.") + reason;
    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, expected, PKCS12Certificate(toDer(makePkcs12(leaf, "secret")), "secret"));
    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, expected,
        PKCS12Certificate(
            bundle([&](Pkcs12Spec& spec) { spec.furtherCertificates = {leaf.certificate}; }), "secret"));
}

} // namespace

TEST(PKCS12Load, BytesLoad)
{
    PKCS12Certificate const loaded(bundle("secret"), "secret");

    EXPECT_FALSE(loaded.empty());
    EXPECT_EQ(loaded.getCertificate(), X509Certificate(server().der()));
    EXPECT_TRUE(loaded.getCAChain().empty());
    EXPECT_TRUE(loaded.getPrivateKeyInfo().has_value());
}

TEST(PKCS12Load, StreamLoadsAndKeepsItsState)
{
    auto const bytes = bundle("secret");
    std::istringstream stream("skipped" + std::string(bytes.begin(), bytes.end()));
    stream.ignore(7);

    PKCS12Certificate const loaded(stream, "secret");

    EXPECT_EQ(loaded.getAsBytes(), bytes);
    EXPECT_TRUE(stream.good());
}

TEST(PKCS12Load, StreamThatIsNotGoodIsNotRead)
{
    for (auto const state : {std::ios::failbit, std::ios::eofbit, std::ios::badbit}) {
        std::istringstream stream("content");
        stream.setstate(state);

        EXPECT_THROWS_EXACTLY(
            InvalidArgument, "The input PKCS12 certificate data stream is invalid.",
            PKCS12Certificate(stream, "secret"));

        stream.clear();
        EXPECT_EQ(stream.tellg(), 0);
    }
}

TEST(PKCS12Load, UnreadableStreamReportsItsCause)
{
    BrokenBuffer buffer("the disk is gone");
    std::istream stream(&buffer);

    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The input PKCS12 certificate data stream is invalid. Reason:the disk is gone",
        PKCS12Certificate(stream, "secret"));
}

TEST(PKCS12Load, EmptyInputIsRefused)
{
    constexpr char const text[] = "The provided PKCS12 certificate bytearray has no content.";
    std::istringstream stream;

    EXPECT_THROWS_EXACTLY(InvalidArgument, text, PKCS12Certificate(ByteArray(), "secret"));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, PKCS12Certificate(stream, "secret"));
}

#if SIZE_MAX > UINT32_MAX // no input is that long on 32-bit systems
TEST(PKCS12Load, InputBeyondTheRangeOfIntIsRefused)
{
    ByteArray const bytes(std::size_t{1} << 31U);

    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException,
        "Internal error: The given certificate data could not be written to a buffer.",
        PKCS12Certificate(bytes, "secret"));
}

TEST(PKCS12Load, PassphraseBeyondTheRangeOfIntIsRefused)
{
    std::string const passphrase(std::size_t{1} << 31U, 'x');

    EXPECT_THROWS_EXACTLY(
        IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bundle("secret"), passphrase));
}
#endif

TEST(PKCS12Load, OtherDataReportsOpenSSLsReason)
{
    auto const der = bundle("secret");
    std::string const pem = server().pem();
    std::vector<Bytes> const inputs{
        Bytes(pem.begin(), pem.end()), server().der(), {0}, {0x30, 0x00}, Bytes(der.begin(), der.end() - 1)};
    for (auto const& input : inputs) {
        auto const reason =
            reasonOf([&] { return d2i_PKCS12_bio(readerOf(input).get(), nullptr) != nullptr; });

        EXPECT_THROWS_EXACTLY(
            PKCS12CertificateException, notABundleText + reason, PKCS12Certificate(input, "secret"));
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(PKCS12Load, WrongPassphraseDiffersFromDamagedBundle)
{
    auto const bytes = bundle("secret");
    for (std::string const passphrase : {"", "Secret", "secret ", "secre"}) {
        auto const reason = reasonOf([&] {
            return PKCS12_verify_mac(
                       parsed(bytes).get(), passphrase.c_str(), static_cast<int>(passphrase.size())) != 0;
        });

        EXPECT_THROWS_EXACTLY(
            IncorrectPassphrase, wrongPassphraseText + reason, PKCS12Certificate(bytes, passphrase));
    }
}

TEST(PKCS12Load, BundleWithoutMacReportsIncorrectPassphrase)
{
    auto const bytes = bundle([](Pkcs12Spec& spec) { spec.withoutMac = true; });

    EXPECT_THROWS_EXACTLY(
        IncorrectPassphrase, wrongPassphraseText + reasonText(ERR_LIB_PKCS12, PKCS12_R_MAC_ABSENT),
        PKCS12Certificate(bytes, "secret"));
}

TEST(PKCS12Load, AnyPassphraseThatOpenSSLAcceptsOpens)
{
    struct Row
    {
        char const* what;
        std::string passphrase;
    };
    Row const rows[] = {
        {"empty", ""},
        {"one character", "x"},
        {"a thousand characters", std::string(1000, 'p')},
        {"UTF-8 of two bytes", "Pa\xC3\x9Fwort"},
        {"UTF-8 beyond the basic plane", "\xF0\x9F\x94\x91 key"},
        {"not UTF-8", "\xFF\xFE\xE9"},
        {"line ends and blanks", " a\r\n\tb "},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        auto const bytes = bundle(row.passphrase);

        EXPECT_EQ(PKCS12Certificate(bytes, row.passphrase).getCertificate(), X509Certificate(server().der()));
        EXPECT_THROWS_WITH_PREFIX(
            IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bytes, row.passphrase + "x"));
    }
}

TEST(PKCS12Load, EmptyPassphraseDiffersFromNone)
{
    auto const made =
        own(PKCS12_create(nullptr, "key", server().key.get(), nullptr, nullptr, 0, 0, 16, 16, 0));
    ASSERT_EQ(PKCS12_verify_mac(made.get(), nullptr, 0), 1);

    EXPECT_THROWS_EXACTLY(IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(toDer(made), ""));
}

TEST(PKCS12Load, MacCheckUsesTheWholePassphrase)
{
    auto const bytes = bundle("secret");

    EXPECT_THROWS_EXACTLY(
        IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bytes, std::string("secret\0more", 11)));
}

TEST(PKCS12Load, DecryptionUsesThePassphraseUpToItsFirstNul)
{
    std::string const passphrase("secret\0more", 11);
    auto const bytes = bundleOfTwoPassphrases("secret", passphrase);
    auto const reason = reasonOfParsing(bytes, "secret");

    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, notParsedText + reason, PKCS12Certificate(bytes, passphrase));
    EXPECT_TRUE(queueIsEmpty());
}

TEST(PKCS12Load, ContentThatDoesNotDecryptReportsOpenSSLsReason)
{
    auto const bytes = bundleOfTwoPassphrases("inner", "outer");
    auto const reason = reasonOfParsing(bytes, "outer");

    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, notParsedText + reason, PKCS12Certificate(bytes, "outer"));
    EXPECT_THROWS_EXACTLY(IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bytes, "inner"));
}

TEST(PKCS12Load, OldAndNewCiphersOpen)
{
    constexpr int noCipher = -1;
    CipherRow const rows[] = {
        CipherRow("3DES and 40-bit RC2 with SHA-1")
            .key(NID_pbe_WithSHA1And3_Key_TripleDES_CBC)
            .certificate(NID_pbe_WithSHA1And40BitRC2_CBC)
            .mac(EVP_sha1()),
        CipherRow("3DES with SHA-1")
            .key(NID_pbe_WithSHA1And3_Key_TripleDES_CBC)
            .certificate(NID_pbe_WithSHA1And3_Key_TripleDES_CBC)
            .mac(EVP_sha1()),
        CipherRow("128-bit RC4")
            .key(NID_pbe_WithSHA1And128BitRC4)
            .certificate(NID_pbe_WithSHA1And128BitRC4)
            .mac(EVP_sha1()),
        CipherRow("AES-128").key(NID_aes_128_cbc).certificate(NID_aes_128_cbc).mac(EVP_sha256()),
        CipherRow("AES-256 with SHA-512").key(NID_aes_256_cbc).certificate(NID_aes_256_cbc).mac(EVP_sha512()),
        CipherRow("no encryption, only the MAC").key(noCipher).certificate(noCipher).mac(EVP_sha256()),
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const bytes = bundle([&](Pkcs12Spec& spec) {
            spec.keyCipher = row.keyCipher;
            spec.certificateCipher = row.certificateCipher;
            spec.macDigest = row.macDigest;
        });

        PKCS12Certificate const loaded(bytes, "secret");

        EXPECT_EQ(loaded.getCertificate(), X509Certificate(server().der()));
        EXPECT_TRUE(loaded.getPrivateKeyInfo().has_value());
    }
}

TEST(PKCS12Load, AnyFriendlyNameLoads)
{
    for (char const* const name : {"", "plain", "\xC3\xA4\xE2\x82\xAC", "\xEF\xBF\xBD"}) {
        SCOPED_TRACE(name);
        auto const bytes = bundle([&](Pkcs12Spec& spec) { spec.friendlyName = name; });

        EXPECT_EQ(PKCS12Certificate(bytes, "secret").getCertificate(), X509Certificate(server().der()));
    }
}

TEST(PKCS12Load, TrailingBytesAreIgnored)
{
    auto const bytes = bundle("secret");
    auto longer = bytes;
    longer.insert(longer.end(), {'t', 'a', 'i', 'l'});

    EXPECT_EQ(PKCS12Certificate(longer, "secret").getAsBytes(), bytes);
}

TEST(PKCS12Load, UnreadableExtensionsLoad)
{
    auto const unreadable = [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", {0x30, 0x05, 0x01});
    };
    auto const damaged = makeSelfSignedLeaf("damaged", unreadable);
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = damaged.certificate;
    spec.key = damaged.key;
    spec.furtherCertificates = {makeRoot("damaged root", unreadable).certificate};
    CleanErrorQueue const clean;
    PKCS12Certificate const loaded(toDer(makePkcs12(spec)), "secret");
    EXPECT_EQ(loaded.getCertificate().getSubjectCommonName(), "damaged");
    EXPECT_EQ(loaded.getCAChain().getNumCertificates(), 1U);
    EXPECT_TRUE(queueIsEmpty());
}

TEST(PKCS12Load, EachSupportedKeyLoads)
{
    struct Row
    {
        char const* what;
        KeyHandle key;
        KeyType type;
    };
    Row const rows[] = {
        {"RSA of 1024 bits", rsaKey(1024), KeyType::RSA},
        {"RSA of 2048 bits", rsaKey(2048), KeyType::RSA},
        {"prime256v1", p256Key(), KeyType::ECC},
        {"Ed25519", ed25519Key(), KeyType::ECC},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        auto const leaf = makeSelfSignedLeaf("owner", [&](CertificateSpec& spec) { spec.key = row.key; });

        PKCS12Certificate const loaded(toDer(makePkcs12(leaf, "secret")), "secret");

        EXPECT_EQ(loaded.getCertificate(), X509Certificate(leaf.der()));
        ASSERT_TRUE(loaded.getPrivateKeyInfo().has_value());
        EXPECT_EQ(loaded.getPrivateKeyInfo()->getType(), row.type);
    }
}

TEST(PKCS12Load, OtherKeysAreRefused)
{
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "ECC-based key is not using supported ECC Curve. Curve: secp384r1",
        PKCS12Certificate(keyBundle(p384Key()), "secret"));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "Key uses Ed448, which is not currently supported",
        PKCS12Certificate(keyBundle(ed448Key()), "secret"));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, "Key is not currently supported. OpenSSL type id: 116",
        PKCS12Certificate(keyBundle(dsaKey()), "secret"));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, "Key is not currently supported. OpenSSL type id: 912",
        PKCS12Certificate(keyBundle(rsaPssKey()), "secret"));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, "Key is not currently supported. OpenSSL type id: 1034",
        PKCS12Certificate(keyBundle(x25519Key()), "secret"));
}

TEST(PKCS12Load, KeyOnCurveWithoutNameIsRefused)
{
    if (!acceptsNamelessCurves()) {
        GTEST_SKIP() << refusesNamelessCurves;
    }
    EXPECT_THROWS_EXACTLY(
        CertificateException, noNameText, PKCS12Certificate(keyBundle(namelessCurveKey()), "secret"));
}

TEST(PKCS12Load, RsaKeyOf1023BitsIsRefused)
{
    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, "RSA key size does not meet minimum cryptographic requirements",
        PKCS12Certificate(keyBundle(rsaKey(1023)), "secret"));
}

TEST(PKCS12Load, UnsupportedKeyIsReportedForTheCertificateFirst)
{
    struct Row
    {
        char const* what;
        KeyHandle key;
        char const* reason;
    };
    Row const rows[] = {
        {"RSA of 1023 bits", rsaKey(1023), "RSA key size does not meet minimum cryptographic requirements"},
        {"DSA", dsaKey(), "Key is not currently supported. OpenSSL type id: 116"},
        {"RSA-PSS", rsaPssKey(), "Key is not currently supported. OpenSSL type id: 912"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        expectReportedForCertificate(row.key, row.reason);
    }
}

TEST(PKCS12Load, CurveWithoutNameIsReportedForTheCertificateFirst)
{
    if (!acceptsNamelessCurves()) {
        GTEST_SKIP() << refusesNamelessCurves;
    }
    expectReportedForCertificate(namelessCurveKey(), noNameText);
}

TEST(PKCS12Load, CertificateOnOtherCurveReportsBothPrefixes)
{
    struct Row
    {
        char const* what;
        KeyHandle key;
        char const* reason;
    };
    Row const rows[] = {
        {"secp384r1", p384Key(), "ECC-based key is not using supported ECC Curve. Curve: secp384r1"},
        {"Ed448", ed448Key(), "Key uses Ed448, which is not currently supported"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        auto const leaf = makeSelfSignedLeaf("curve", [&](CertificateSpec& spec) { spec.key = row.key; });
        auto const expected =
            std::string("Unsupported elliptic curve in X509 Certificate in PKCS12: ") + row.reason;

        EXPECT_THROWS_EXACTLY(
            UnsupportedEllipticCurve, expected,
            PKCS12Certificate(toDer(makePkcs12(leaf, "secret")), "secret"));
        EXPECT_THROWS_EXACTLY(
            UnsupportedEllipticCurve, expected,
            PKCS12Certificate(
                bundle([&](Pkcs12Spec& spec) { spec.furtherCertificates = {leaf.certificate}; }), "secret"));
    }
}

TEST(PKCS12Load, CertificateWithUndecodableKeyIsReported)
{
    auto const broken = makeSelfSignedLeaf(
        "broken", [](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::Undecodable; });
    auto const bytes = bundle([&](Pkcs12Spec& spec) { spec.furtherCertificates = {broken.certificate}; });

    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException,
        "Error: Unable to parse X509 certificate(s) inside PKCS12 certificate."
        "Failed to sanity check EVP_PKEY. Argument is nullptr",
        PKCS12Certificate(bytes, "secret"));
}

TEST(PKCS12Load, ManyBundlesOpenInOneProcess)
{
    auto const bytes = bundle("secret");
    for (int count = 0; count < 200; ++count) {
        EXPECT_FALSE(PKCS12Certificate(bytes, "secret").empty());
    }
}

TEST(PKCS12Load, ErrorQueueIsEmptyBeforeAndAfter)
{
    CleanErrorQueue const queue;
    auto const bytes = bundle("secret");
    queueForeignError();
    EXPECT_FALSE(PKCS12Certificate(bytes, "secret").empty());
    EXPECT_TRUE(queueIsEmpty());

    queueForeignError();
    EXPECT_THROWS_EXACTLY(IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bytes, "wrong"));
    EXPECT_TRUE(queueIsEmpty());

    queueForeignError();
    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, "RSA key size does not meet minimum cryptographic requirements",
        PKCS12Certificate(keyBundle(rsaKey(1023)), "secret"));
    EXPECT_TRUE(queueIsEmpty());
}

TEST(PKCS12Load, ThrowIfEmptyThrowsWithoutBundle)
{
    EXPECT_THROWS_EXACTLY(
        PKCS12CertificateException, "PKCS12Certificate has no content.",
        PKCS12CertificateImpl().throwIfEmpty());
    EXPECT_NO_THROW(PKCS12CertificateImpl(bundle("secret"), "secret").throwIfEmpty());
}

TEST(PKCS12Load, ImplementationWithoutBundleReturnsNoBytes)
{
    EXPECT_EQ(PKCS12CertificateImpl().getAsBytes(), ByteArray());
}

// The legacy provider is loaded into the whole process, so each of these tests uses its own process.

TEST_F(PKCS12LegacyProvider, WrongPassphraseDoesNotLoadIt)
{
    EXPECT_EXIT(
        exitWith(
            fails<IncorrectPassphrase>(bundle("secret"), "wrong", wrongPassphraseText) &&
            !legacyProviderIsLoaded()),
        testing::ExitedWithCode(0), "");
}

TEST_F(PKCS12LegacyProvider, DecryptionComesAfterLoadingIt)
{
    auto const run = [] {
        auto const bytes = bundleOfTwoPassphrases("inner", "outer");
        auto const reason = reasonOfParsing(bytes, "outer");
        exitWith(
            !legacyProviderIsLoaded() &&
            fails<PKCS12CertificateException>(bytes, "outer", notParsedText + reason) &&
            legacyProviderIsLoaded());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(PKCS12LegacyProvider, EveryBundleLoadsIt)
{
    auto const run = [] {
        PKCS12Certificate const loaded(bundle("secret"), "secret");
        exitWith(legacyProviderIsLoaded());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(PKCS12LegacyProvider, BundleIsRefusedIfItIsMissing)
{
    auto const run = [] {
        auto const bytes = bundle("secret");
        OSSL_PROVIDER_set_default_search_path(nullptr, "/nonexistent");
        auto const reason = reasonOf([] { return OSSL_PROVIDER_load(nullptr, "legacy") != nullptr; });
        exitWith(fails<PKCS12CertificateException>(
            bytes, "secret", "Error: Loading legacy provider failed." + reason));
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}
