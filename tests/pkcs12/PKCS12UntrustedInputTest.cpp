#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/pkcs12.h>

#include <random>
#include <string>
#include <typeinfo>
#include <vector>

// Bundles from an attacker. None may cause a crash, a hang or a leak, and each refusal must be a documented
// one.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const notABundleText[] = "Error: Loading PKSC12 certificate failed. Reason=";
constexpr char const wrongPassphraseText[] = "Input passphrase is incorrect. OpenSSL error message=";
constexpr char const notParsedText[] = "Error: Parsing PKSC12 certificate failed.";
constexpr char const badCertificateText[] =
    "Error: Unable to parse X509 certificate(s) inside PKCS12 certificate.";

enum class Outcome
{
    Opened,
    NotABundle,
    WrongPassphrase,
    NotParsed,
    UnsupportedContent,
    Undocumented
};

/// Opens the bundle and returns the outcome. Any failure that is not documented counts as undocumented.
Outcome outcomeOf(Bytes const& bytes, std::string const& passphrase = "secret")
{
    try {
        PKCS12Certificate const loaded(bytes, passphrase);
        loaded.getAsBytes();
        return Outcome::Opened;
    } catch (IncorrectPassphrase const& failure) {
        return beginsWith(failure.what(), wrongPassphraseText) ? Outcome::WrongPassphrase
                                                               : Outcome::Undocumented;
    } catch (PKCS12CertificateException const& failure) {
        std::string const text = failure.what();
        return beginsWith(text, notABundleText)       ? Outcome::NotABundle
               : beginsWith(text, notParsedText)      ? Outcome::NotParsed
               : beginsWith(text, badCertificateText) ? Outcome::UnsupportedContent
                                                      : Outcome::Undocumented;
    } catch (UnsupportedKeyType const&) {
        return Outcome::UnsupportedContent;
    } catch (UnsupportedEllipticCurve const&) {
        return Outcome::UnsupportedContent;
    } catch (CertificateException const& failure) {
        return beginsWith(failure.what(), "Empty private ") ? Outcome::UnsupportedContent
                                                            : Outcome::Undocumented;
    }
}

Bytes sequence(std::vector<Bytes> const& elements)
{
    return derElement(0x30, joined(elements));
}

Bytes octets(Bytes const& content)
{
    return derElement(0x04, content);
}

Bytes objectIdentifier(int nid)
{
    unsigned char* encoded = nullptr;
    int const length = i2d_ASN1_OBJECT(OBJ_nid2obj(nid), &encoded);
    require(length);
    Bytes bytes(encoded, encoded + length);
    OPENSSL_free(encoded);
    return bytes;
}

/// Returns a ContentInfo of type data.
Bytes dataInfo(Bytes const& content)
{
    return sequence({objectIdentifier(NID_pkcs7_data), derElement(0xA0, octets(content))});
}

Bytes const version3{0x02, 0x01, 0x03};

Bytes withMac(Bytes const& bundle)
{
    auto const parsed = own(d2i_PKCS12_bio(readerOf(bundle).get(), nullptr));
    require(PKCS12_set_mac(parsed.get(), "secret", -1, nullptr, 0, 1, EVP_sha256()));
    return toDer(parsed);
}

/// Returns a bundle with a valid MAC around the given list of safes, which can be malformed.
Bytes bundleOfSafes(Bytes const& safes)
{
    return withMac(sequence({version3, dataInfo(safes)}));
}

/// Returns a bundle with a valid MAC around one unencrypted safe with the given bags.
Bytes bundleOfBags(std::vector<Bytes> const& bags)
{
    return bundleOfSafes(sequence({dataInfo(sequence(bags))}));
}

Bytes bag(int type, Bytes const& value, Bytes const& attributes = {})
{
    return sequence({objectIdentifier(type), derElement(0xA0, value), attributes});
}

Bytes certificateBag(Bytes const& certificate, Bytes const& attributes = {})
{
    return bag(
        NID_certBag, sequence({objectIdentifier(NID_x509Certificate), derElement(0xA0, octets(certificate))}),
        attributes);
}

Bytes attribute(int type, Bytes const& value)
{
    return derElement(0x31, sequence({objectIdentifier(type), derElement(0x31, value)}));
}

Bytes const& certificate()
{
    static auto const made = makeSelfSignedLeaf("leaf").der();
    return made;
}

/// Returns a small bundle that opens fast: without encryption, and with one iteration.
Bytes plainBundle()
{
    auto const leaf = makeSelfSignedLeaf("leaf");
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.keyCipher = -1;
    spec.certificateCipher = -1;
    spec.iterations = 1;
    return toDer(makePkcs12(spec));
}

Bytes withDamage(Bytes bytes, std::size_t position, unsigned mask)
{
    bytes[position] = static_cast<unsigned char>(bytes[position] ^ mask);
    return bytes;
}

struct Row
{
    char const* what;
    Bytes bytes;
    Outcome outcome;
};

void expectOutcomes(std::vector<Row> const& rows)
{
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(outcomeOf(row.bytes), row.outcome);
        EXPECT_TRUE(queueIsEmpty());
    }
}

} // namespace

TEST(PKCS12UntrustedInput, TruncationIsRefused)
{
    auto const whole = plainBundle();
    ASSERT_EQ(outcomeOf(whole), Outcome::Opened);
    for (std::size_t length = 1; length < whole.size(); ++length) {
        Bytes const part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_EQ(outcomeOf(part), Outcome::NotABundle) << "after " << length << " bytes";
    }
}

TEST(PKCS12UntrustedInput, DamagedByteIsRefusedOrHarmless)
{
    auto const whole = plainBundle();
    auto const expected = PKCS12Certificate(whole, "secret");
    for (std::size_t position = 0; position < whole.size(); ++position) {
        for (unsigned const mask : {0x01U, 0x20U, 0x80U, 0xFFU}) {
            auto const damaged = withDamage(whole, position, mask);
            auto const outcome = outcomeOf(damaged);
            ASSERT_NE(outcome, Outcome::Undocumented) << "at byte " << position;
            // The MAC does not cover every byte: a change to the version or to a digest's parameters can be
            // harmless.
            if (outcome == Outcome::Opened) {
                ASSERT_EQ(PKCS12Certificate(damaged, "secret"), expected) << "at byte " << position;
            }
        }
    }
}

TEST(PKCS12UntrustedInput, DamagedContentWithValidMacHasDocumentedOutcome)
{
    auto const leaf = makeSelfSignedLeaf("leaf");
    auto const bags = sequence(
        {certificateBag(leaf.der(), attribute(NID_friendlyName, {0x1E, 0x02, 0x00, 0x61})),
         bag(NID_keyBag, privateKeyDer(leaf.key), attribute(NID_localKeyID, octets({1})))});
    auto const safes = sequence({dataInfo(bags)});
    ASSERT_EQ(outcomeOf(bundleOfSafes(safes)), Outcome::Opened);
    for (std::size_t position = 0; position < safes.size(); ++position) {
        for (unsigned const mask : {0x01U, 0x80U, 0xFFU}) {
            auto const damaged = bundleOfSafes(withDamage(safes, position, mask));
            ASSERT_NE(outcomeOf(damaged), Outcome::Undocumented) << "at byte " << position;
        }
    }
}

TEST(PKCS12UntrustedInput, RandomBytesAreRefused)
{
    std::mt19937 random(12);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes(1 + random() % 200);
        for (auto& value : bytes) {
            value = static_cast<unsigned char>(byte(random));
        }
        ASSERT_EQ(outcomeOf(bytes), Outcome::NotABundle);
        auto const content = sequence({bytes});
        ASSERT_EQ(outcomeOf(content), Outcome::NotABundle);
    }
}

TEST(PKCS12UntrustedInput, MissingContentIsRefused)
{
    Bytes const macData =
        sequence({sequence({sequence({objectIdentifier(NID_sha256)}), octets(Bytes(32))}), octets(Bytes(8))});
    expectOutcomes({
        {"no content, no MAC", sequence({version3, contentInfoWithoutContent(NID_pkcs7_data)}),
         Outcome::WrongPassphrase},
        {"no content, a MAC", sequence({version3, contentInfoWithoutContent(NID_pkcs7_data), macData}),
         Outcome::WrongPassphrase},
        {"signed data without content",
         sequence({version3, contentInfoWithoutContent(NID_pkcs7_signed), macData}),
         Outcome::WrongPassphrase},
        {"encrypted data without content",
         sequence({version3, contentInfoWithoutContent(NID_pkcs7_encrypted), macData}),
         Outcome::WrongPassphrase},
        {"an invalid MAC", sequence({version3, dataInfo(sequence({})), sequence({})}), Outcome::NotABundle},
        {"a MAC of an unknown digest",
         sequence(
             {version3, dataInfo(sequence({})),
              sequence(
                  {sequence({sequence({objectIdentifier(NID_commonName)}), octets(Bytes(32))}),
                   octets(Bytes(8))})}),
         Outcome::WrongPassphrase},
        {"a MAC of a negative number of rounds",
         sequence(
             {version3, dataInfo(sequence({})),
              sequence(
                  {sequence({sequence({objectIdentifier(NID_sha256)}), octets(Bytes(32))}),
                   octets(Bytes(8)),
                   {0x02, 0x01, 0xFF}})}),
         Outcome::WrongPassphrase},
        {"a MAC without salt and digest",
         sequence(
             {version3, dataInfo(sequence({})),
              sequence({sequence({sequence({objectIdentifier(NID_sha256)}), octets({})}), octets({})})}),
         Outcome::WrongPassphrase},
    });
}

TEST(PKCS12UntrustedInput, OddSafesWithValidMacHaveDocumentedOutcome)
{
    auto const emptyInfo = [](int type) { return sequence({contentInfoWithoutContent(type)}); };
    expectOutcomes({
        {"no safes", bundleOfSafes(sequence({})), Outcome::Opened},
        {"no bytes", bundleOfSafes({}), Outcome::NotParsed},
        {"no list", bundleOfSafes({0x05, 0x00}), Outcome::NotParsed},
        {"an empty safe", bundleOfSafes(sequence({dataInfo(sequence({}))})), Outcome::Opened},
        {"a safe of no bytes", bundleOfSafes(sequence({dataInfo({})})), Outcome::NotParsed},
        {"a safe without content", bundleOfSafes(emptyInfo(NID_pkcs7_data)), Outcome::NotParsed},
        {"an encrypted safe without content", bundleOfSafes(emptyInfo(NID_pkcs7_encrypted)),
         Outcome::NotParsed},
        {"an encrypted safe without encrypted content",
         bundleOfSafes(sequence({sequence(
             {objectIdentifier(NID_pkcs7_encrypted),
              derElement(
                  0xA0,
                  sequence(
                      {{0x02, 0x01, 0x00},
                       sequence(
                           {objectIdentifier(NID_pkcs7_data),
                            sequence({objectIdentifier(NID_pbe_WithSHA1And3_Key_TripleDES_CBC)})})}))})})),
         Outcome::NotParsed},
        {"a safe for a recipient", bundleOfSafes(emptyInfo(NID_pkcs7_enveloped)), Outcome::Opened},
    });
}

TEST(PKCS12UntrustedInput, OddBagsWithValidMacHaveDocumentedOutcome)
{
    Bytes nested = sequence({});
    for (int depth = 0; depth < 2000; ++depth) {
        nested = sequence({bag(NID_safeContentsBag, nested)});
    }
    expectOutcomes({
        {"a certificate", bundleOfBags({certificateBag(certificate())}), Outcome::Opened},
        {"an invalid certificate", bundleOfBags({certificateBag({1, 2, 3})}), Outcome::NotParsed},
        {"a certificate of no bytes", bundleOfBags({certificateBag({})}), Outcome::NotParsed},
        {"an invalid key", bundleOfBags({bag(NID_keyBag, sequence({}))}), Outcome::NotParsed},
        {"an invalid encrypted key", bundleOfBags({bag(NID_pkcs8ShroudedKeyBag, sequence({}))}),
         Outcome::NotParsed},
        {"a revocation list", bundleOfBags({bag(NID_crlBag, sequence({}))}), Outcome::NotParsed},
        {"bags in bags", bundleOfSafes(sequence({dataInfo(nested)})), Outcome::NotParsed},
    });
}

TEST(PKCS12UntrustedInput, FriendlyNameBeyondTheBasicPlaneOpens)
{
    auto const key = attribute(NID_friendlyName, {0x1E, 0x04, 0xD8, 0x3D, 0xDD, 0x11});
    auto const last = attribute(NID_friendlyName, {0x1E, 0x04, 0xDB, 0xFF, 0xDF, 0xFF});
    EXPECT_EQ(outcomeOf(bundleOfBags({certificateBag(certificate(), key)})), Outcome::Opened);
    EXPECT_EQ(outcomeOf(bundleOfBags({certificateBag(certificate(), last)})), Outcome::Opened);
}

TEST(PKCS12UntrustedInput, OddAttributesWithValidMacHaveDocumentedOutcome)
{
    // Versions of OpenSSL differ in how they treat a mistyped attribute. Both outcomes are documented.
    std::vector<Bytes> const attributes{
        attribute(NID_friendlyName, {0x1E, 0x00}),
        attribute(NID_friendlyName, {0x1E, 0x02, 0xD8, 0x3D}), // half a surrogate pair
        attribute(NID_friendlyName, {0x1E, 0x04, 0xDD, 0x11, 0xD8, 0x3D}),
        attribute(NID_friendlyName, {0x1E, 0x03, 0x00, 0x61, 0x00}), // an odd number of bytes
        attribute(NID_friendlyName, {0x0C, 0x01, 0x61}),
        attribute(NID_friendlyName, {0x02, 0x01, 0x61}),
        attribute(NID_friendlyName, {0x05, 0x00}),
        attribute(NID_friendlyName, {0x01, 0x01, 0xFF}),
        attribute(NID_friendlyName, {}),
        attribute(NID_localKeyID, {0x05, 0x00}),
        attribute(NID_localKeyID, {0x01, 0x01, 0xFF}),
        attribute(NID_localKeyID, {}),
        derElement(0x31, {}),
    };
    for (std::size_t index = 0; index < attributes.size(); ++index) {
        auto const outcome = outcomeOf(bundleOfBags({certificateBag(certificate(), attributes[index])}));
        EXPECT_TRUE(outcome == Outcome::Opened || outcome == Outcome::NotParsed) << "attribute " << index;
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(PKCS12UntrustedInput, KeysWithoutSecretAreRefused)
{
    // RSA: version, modulus, public exponent, a private exponent of zero, and unrelated numbers.
    Bytes const one{0x02, 0x01, 0x01};
    auto const modulus = derElement(0x02, joined({{0x00}, Bytes(256, 0xC1)}));
    auto const rsa = sequence(
        {{0x02, 0x01, 0x00},
         modulus,
         {0x02, 0x03, 0x01, 0x00, 0x01},
         {0x02, 0x01, 0x00},
         one,
         one,
         one,
         one,
         one});
    auto const rsaKeyBag =
        bag(NID_keyBag, sequence(
                            {{0x02, 0x01, 0x00},
                             sequence({objectIdentifier(NID_rsaEncryption), {0x05, 0x00}}),
                             octets(rsa)}));

    auto const ecc = sequence({one, octets(Bytes(32))});
    auto const eccKeyBag = bag(
        NID_keyBag,
        sequence(
            {{0x02, 0x01, 0x00},
             sequence({objectIdentifier(NID_X9_62_id_ecPublicKey), objectIdentifier(NID_X9_62_prime256v1)}),
             octets(ecc)}));
    // If OpenSSL accepts such a key, the library refuses its empty number.
    for (auto const& keyBag : {rsaKeyBag, eccKeyBag}) {
        auto const outcome = outcomeOf(bundleOfBags({keyBag}));
        EXPECT_TRUE(outcome == Outcome::NotParsed || outcome == Outcome::UnsupportedContent);
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(PKCS12UntrustedInput, ThousandCertificatesOpen)
{
    std::vector<Bytes> const bags(1000, certificateBag(certificate()));

    PKCS12Certificate const loaded(bundleOfBags(bags), "secret");

    EXPECT_EQ(loaded.getCAChain().getNumCertificates(), 1000U);
}
