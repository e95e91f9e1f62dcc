#include "support/Text.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/EncryptedPem.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/StreamBuffers.hpp"

#include <foundation/toolkit/CertificateReader.hpp>

#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

using Results = std::vector<std::string>;

constexpr char const noCertificate[] = "0 The source holds no certificate.";
constexpr char const notACertificate[] = "The bytes are not a certificate in DER encoding.";
constexpr char const incomplete[] = "0 The structure is damaged or incomplete.";
constexpr char const tooLarge[] = "The block is larger than 16 MiB.";
constexpr char const wrongPassphrase[] = "0 The passphrase does not open the PKCS#12 bundle.";

constexpr std::size_t largestBlock = std::size_t(16) * 1024 * 1024;

/// Returns the index, and the subject or the failure.
std::string resultOf(ReadCertificate const& read)
{
    EXPECT_EQ(read.source, "source");
    EXPECT_EQ(read.failure.empty(), read.certificate.has_value());
    return std::to_string(read.index) + " " +
           (read.certificate ? read.certificate->getSubject() : read.failure);
}

Results resultsOf(std::istream& stream, std::string const& passphrase = "")
{
    CertificateReader reader(stream, "source");
    reader.withPassphrase(passphrase);
    Results results;
    while (auto const read = reader.next()) {
        results.push_back(resultOf(*read));
    }
    EXPECT_FALSE(reader.next().has_value());
    return results;
}

Results resultsOf(std::string const& content, std::string const& passphrase = "")
{
    std::istringstream stream(content);
    return resultsOf(stream, passphrase);
}

CertificateAndKey const& a()
{
    static auto const made = makeRoot("a");
    return made;
}

CertificateAndKey const& b()
{
    static auto const made = makeRoot("b");
    return made;
}

/// Returns a block with the bytes in base64.
std::string pemOf(std::string const& label, Bytes const& bytes)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(PEM_write_bio(bio.get(), label.c_str(), "", bytes.data(), static_cast<long>(bytes.size())));
    char* text = nullptr; // owned by the BIO
    auto const size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)}; // without conversions of single bytes, which are slow
}

std::string withoutEndLine(std::string const& block)
{
    return block.substr(0, block.find("-----END"));
}

/// Returns the bytes with the certificate's version made unreadable.
Bytes withDamage(Bytes whole, Bytes const& certificate)
{
    Bytes const version = {0xA0, 0x03, 0x02, 0x01, 0x02};
    auto const start = std::search(whole.begin(), whole.end(), certificate.begin(), certificate.end());
    auto const found = std::search(start, whole.end(), version.begin(), version.end());
    EXPECT_NE(found, whole.end());
    *found = 0x05;
    return whole;
}

Bytes damaged(CertificateAndKey const& certificate)
{
    return withDamage(certificate.der(), certificate.der());
}

Bytes signedDataWith(std::vector<X509Handle> const& certificates)
{
    SignedDataSpec spec;
    spec.furtherCertificates = certificates;
    return toDer(makeSignedData(spec));
}

/// Returns PKCS#7 data in BER, whose outer elements have the indefinite form.
Bytes inIndefiniteForm(Bytes const& signedData)
{
    // The header of the structure has 4 bytes, the type 11 and the header of the content 4.
    constexpr std::ptrdiff_t startOfType = 4;
    constexpr std::ptrdiff_t startOfBody = 19;
    Bytes const type(signedData.begin() + startOfType, signedData.begin() + startOfType + 11);
    Bytes const body(signedData.begin() + startOfBody, signedData.end());
    return joined({{0x30, 0x80}, type, {0xA0, 0x80}, body, {0, 0, 0, 0}});
}

Bytes objectIdentifier(int nid)
{
    Bytes encoding(static_cast<std::size_t>(i2d_ASN1_OBJECT(OBJ_nid2obj(nid), nullptr)));
    unsigned char* position = encoding.data();
    i2d_ASN1_OBJECT(OBJ_nid2obj(nid), &position);
    return encoding;
}

/// Returns a sequence of the type and its content, which has the tag [0].
Bytes typed(int nid, Bytes const& content)
{
    return derElement(sequenceTag, joined({objectIdentifier(nid), derElement(context0Tag, content)}));
}

/// Returns signed data with the bytes in place of its certificates.
Bytes signedDataAround(Bytes const& certificates)
{
    return typed(
        NID_pkcs7_signed, derElement(
                              sequenceTag, joined(
                                               {{0x02, 1, 1},
                                                derElement(setTag, {}),
                                                derElement(sequenceTag, objectIdentifier(NID_pkcs7_data)),
                                                derElement(context0Tag, certificates),
                                                derElement(setTag, {})})));
}

/// Returns unencrypted data, as bundles and their parts have it.
Bytes plainData(Bytes const& content)
{
    return typed(NID_pkcs7_data, derElement(octetStringTag, content));
}

/// Returns a bundle without MAC that has the bytes in place of its parts.
Bytes bundleAround(Bytes const& parts)
{
    return derElement(sequenceTag, joined({{0x02, 1, 3}, plainData(parts)}));
}

Bytes bagOf(CertificateAndKey const& certificate)
{
    return typed(NID_certBag, typed(NID_x509Certificate, derElement(octetStringTag, certificate.der())));
}

/// Returns a bag with bags inside.
Bytes bagAround(Bytes const& bags)
{
    return typed(NID_safeContentsBag, derElement(sequenceTag, bags));
}

/// Returns an unencrypted bundle of one part.
Bytes bundleOfBags(Bytes const& bags)
{
    return bundleAround(derElement(sequenceTag, plainData(derElement(sequenceTag, bags))));
}

/// Returns a bundle that was made without a passphrase, not even an empty one.
std::string bundleWithoutPassphrase()
{
    constexpr int rounds = 16;
    return asText(toDer(own(PKCS12_create(
        nullptr, nullptr, nullptr, a().certificate.get(), nullptr, 0, NID_pbe_WithSHA1And3_Key_TripleDES_CBC,
        rounds, rounds, 0))));
}

/// Returns a bundle without certificates, whose MAC takes that many rounds. The MAC is not made.
std::string bundleWithMacOf(int rounds)
{
    auto const bundle = own(PKCS12_init(NID_pkcs7_data));
    std::shared_ptr<STACK_OF(PKCS7)> const parts(
        sk_PKCS7_new_null(), [](STACK_OF(PKCS7) * stack) { sk_PKCS7_free(stack); });
    require(PKCS12_pack_authsafes(bundle.get(), parts.get()));
    require(PKCS12_setup_mac(bundle.get(), rounds, nullptr, 0, EVP_sha256()));
    return asText(toDer(bundle));
}

using AlgorithmHandle = std::shared_ptr<X509_ALGOR>;

AlgorithmHandle ownAlgorithm(X509_ALGOR* algorithm)
{
    require(algorithm != nullptr);
    return {algorithm, X509_ALGOR_free};
}

/// Returns a bundle without MAC. Each part claims to be encrypted with one of the algorithms.
std::string bundleWithPartsOf(std::vector<AlgorithmHandle> const& algorithms)
{
    auto const bundle = own(PKCS12_init(NID_pkcs7_data));
    std::shared_ptr<STACK_OF(PKCS7)> const parts(
        sk_PKCS7_new_null(), [](STACK_OF(PKCS7) * stack) { sk_PKCS7_pop_free(stack, PKCS7_free); });
    std::shared_ptr<STACK_OF(PKCS12_SAFEBAG)> const bags(
        sk_PKCS12_SAFEBAG_new_null(),
        [](STACK_OF(PKCS12_SAFEBAG) * stack) { sk_PKCS12_SAFEBAG_free(stack); });
    for (auto const& algorithm : algorithms) {
        auto* const part = PKCS12_pack_p7encdata(NID_aes_256_cbc, "secret", -1, nullptr, 0, 1, bags.get());
        require(sk_PKCS7_push(parts.get(), part));
        X509_ALGOR*& used = part->d.encrypted->enc_data->algorithm;
        X509_ALGOR_free(used);
        used = X509_ALGOR_dup(algorithm.get());
    }
    require(PKCS12_pack_authsafes(bundle.get(), parts.get()));
    return asText(toDer(bundle));
}

struct Row
{
    std::string name;
    std::string content;
    Results results;
    std::string passphrase = {};
};

void expectResults(std::vector<Row> const& rows)
{
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(resultsOf(row.content, row.passphrase), row.results);
    }
}

Row row(std::string name, std::string content, Results results)
{
    return {std::move(name), std::move(content), std::move(results)};
}

Row row(std::string name, Bytes const& content, Results results)
{
    return {std::move(name), asText(content), std::move(results)};
}

/// Runs out of memory when it is read.
class ShortBuffer : public std::streambuf
{
protected:
    int_type underflow() override { throw std::bad_alloc(); }
};

/// Delivers a text again and again, up to a number of bytes.
class RepeatingBuffer : public std::streambuf
{
public:
    RepeatingBuffer(std::string repeated, std::size_t mostBytes) : text(std::move(repeated)), rest(mostBytes)
    {}

protected:
    int_type underflow() override
    {
        if (rest < text.size()) {
            return traits_type::eof();
        }
        rest -= text.size();
        setg(&text[0], &text[0], &text[0] + text.size());
        return traits_type::to_int_type(text[0]);
    }

private:
    std::string text;
    std::size_t rest;
};

std::string concatenated(Bytes const& first, Bytes const& second)
{
    return asText(first) + asText(second);
}

} // namespace

TEST(CertificateReader, FindsPEMBlocks)
{
    std::string const key = toPem(p256Key());
    std::string const dos = [] {
        std::string text;
        for (char const character : a().pem()) {
            text += character == '\n' ? "\r\n" : std::string(1, character);
        }
        return text;
    }();
    expectResults({
        row("one block", a().pem(), {"1 CN=a"}),
        row("two blocks", a().pem() + b().pem(), {"1 CN=a", "2 CN=b"}),
        row("text around blocks", "x\n" + a().pem() + "y\n\n" + b().pem() + "z", {"1 CN=a", "2 CN=b"}),
        row("DOS line ends", dos + dos, {"1 CN=a", "2 CN=a"}),
        row("byte order marks", "\xEF\xBB\xBF" + a().pem() + "\xEF\xBB\xBF" + b().pem(),
            {"1 CN=a", "2 CN=b"}),
        row("keys between", key + a().pem() + key + b().pem() + key, {"1 CN=a", "2 CN=b"}),
        row("a key without END line", withoutEndLine(key) + a().pem(), {"1 CN=a"}),
        row("the other labels of certificates",
            pemOf("X509 CERTIFICATE", a().der()) + pemOf("TRUSTED CERTIFICATE", b().der()),
            {"1 CN=a", "2 CN=b"}),
        row("a long line of text", std::string(100000, 'x') + "\n" + a().pem(), {"1 CN=a"}),
        row("text that begins like DER", "000 certificates\n" + a().pem(), {"1 CN=a"}),
        row("text that begins like DER in another way", "0x0\n" + a().pem() + b().pem(),
            {"1 CN=a", "2 CN=b"}),
        row("bytes behind the certificate", pemOf("CERTIFICATE", joined({a().der(), {1, 2, 3}})), {"1 CN=a"}),
    });
}

TEST(CertificateReader, DamagedBlockHidesNoOther)
{
    std::string const damagedText = "-----BEGIN CERTIFICATE-----\n!!!!\n-----END CERTIFICATE-----\n";
    std::string const otherEnd = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END X509 CRL-----\n";
    expectResults({
        row("no END line", withoutEndLine(a().pem()) + b().pem(), {"1 The block has no END line.", "2 CN=b"}),
        row("no END line of the last", b().pem() + withoutEndLine(a().pem()),
            {"1 CN=b", "2 The block has no END line."}),
        row("no END line, and a key", withoutEndLine(a().pem()) + toPem(p256Key()) + b().pem(),
            {"1 The block has no END line.", "2 CN=b"}),
        row("nothing but BEGIN lines", "-----BEGIN CERTIFICATE-----\n-----BEGIN CERTIFICATE-----\n",
            {"1 The block has no END line.", "2 The block has no END line."}),
        row("no base64", a().pem() + damagedText + b().pem(),
            {"1 CN=a", "2 The block is damaged.", "3 CN=b"}),
        row("another END line", otherEnd + b().pem(), {"1 The block is damaged.", "2 CN=b"}),
        row("another structure", pemOf("CERTIFICATE", {0x30, 0}) + b().pem(),
            {std::string("1 ") + notACertificate, "2 CN=b"}),
        row("no bytes", "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n" + b().pem(),
            {"1 The block is damaged.", "2 CN=b"}),
        row("an encrypted block", toEncryptedPem(a().certificate) + b().pem(),
            {"1 The block is encrypted.", "2 CN=b"}),
        row("a damaged certificate", pemOf("CERTIFICATE", damaged(a())) + b().pem(),
            {std::string("1 ") + notACertificate, "2 CN=b"}),
        row("PKCS#7 without a type", pemOf("PKCS7", {0x30, 2, 6, 0}) + b().pem(), {"1 CN=b"}),
    });
}

TEST(CertificateReader, FindsCertificatesInDER)
{
    std::string const numbered = std::string("1 ") + notACertificate;
    expectResults({
        row("one certificate", a().der(), {"1 CN=a"}),
        row("two certificates", concatenated(a().der(), b().der()), {"1 CN=a", "2 CN=b"}),
        row("a line end behind it", concatenated(a().der(), {'\n'}), {"1 CN=a"}),
        row("PEM behind it", asText(a().der()) + "\n" + b().pem(), {"1 CN=a", "2 CN=b"}),
        row("a damaged certificate first", concatenated(damaged(a()), b().der()), {numbered, "2 CN=b"}),
        row("a damaged certificate between", asText(a().der()) + concatenated(damaged(a()), b().der()),
            {"1 CN=a", std::string("2 ") + notACertificate, "3 CN=b"}),
        row("a damaged certificate last", concatenated(b().der(), damaged(a())),
            {"1 CN=b", std::string("2 ") + notACertificate}),
        row("a damaged certificate alone", damaged(a()), {std::string("0 ") + notACertificate}),
        row("half a certificate", asText(a().der()).substr(0, 100), {incomplete}),
        row("half a certificate last", concatenated(b().der(), a().der()).substr(0, b().der().size() + 50),
            {"1 CN=b", "2 The structure is damaged or incomplete."}),
        row("half a certificate, and PEM", asText(a().der()).substr(0, 20) + "\n" + b().pem(), {"1 CN=b"}),
    });
}

TEST(CertificateReader, SourceWithoutCertificateHasOneResult)
{
    expectResults({
        row("nothing", "", {"0 The source is empty."}),
        row("a line end", "\n", {noCertificate}),
        row("text", "not a certificate", {noCertificate}),
        row("a digit", "0", {noCertificate}),
        row("zeros", std::string(1000, '\0'), {noCertificate}),
        row("a private key in PEM", toPem(p256Key()), {noCertificate}),
        row("a private key in DER", privateKeyDer(p256Key()), {noCertificate}),
        row("a public key in DER", publicKeyDer(p256Key()), {std::string("0 ") + notACertificate}),
        row("PKCS#7 without certificates", signedDataWith({}), {noCertificate}),
        row("PKCS#7 of another type", toDer(makePlainData("content")), {noCertificate}),
        row("PKCS#7 without content", contentInfoWithoutContent(NID_pkcs7_signed),
            {"0 The PKCS#7 structure is damaged."}),
        row("indefinite form without end", Bytes{0x30, 0x80, 0x30, 0x80}, {incomplete}),
        row("a length of all memory", Bytes{0x30, 0x88, 255, 255, 255, 255, 255, 255, 255, 255, 0x30, 0},
            {std::string("0 ") + tooLarge}),
        row("a length that is too long", Bytes{0x30, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0x30}, {noCertificate}),
    });
}

TEST(CertificateReader, FindsCertificatesInSignedData)
{
    Bytes const both = signedDataWith({a().certificate, b().certificate});
    Bytes const bySigner = toDer(makeSignedData("content", makeLeaf(a(), "signer"), {b().certificate}));
    expectResults({
        row("DER", both, {"1 CN=a", "2 CN=b"}),
        row("signer and others", bySigner, {"1 CN=signer", "2 CN=b"}),
        row("PEM", pemOf("PKCS7", both) + a().pem(), {"1 CN=a", "2 CN=b", "3 CN=a"}),
        row("PEM of CMS", pemOf("CMS", both), {"1 CN=a", "2 CN=b"}),
        row("PEM with its long label", pemOf("PKCS #7 SIGNED DATA", both), {"1 CN=a", "2 CN=b"}),
        row("PEM with the label of a certificate", pemOf("CERTIFICATE", both), {"1 CN=a", "2 CN=b"}),
        row("BER with the indefinite form", inIndefiniteForm(both), {"1 CN=a", "2 CN=b"}),
        row("a damaged member first", withDamage(both, a().der()),
            {std::string("1 ") + notACertificate, "2 CN=b"}),
        row("a damaged member last", withDamage(both, b().der()),
            {"1 CN=a", std::string("2 ") + notACertificate}),
        row("two structures", concatenated(both, both), {"1 CN=a", "2 CN=b", "3 CN=a", "4 CN=b"}),
        row("a member of another kind, with a tag of three bytes",
            signedDataAround(joined({{0xBF, 0x81, 0x05, 2, 5, 0}, a().der()})), {"1 CN=a"}),
        row("a member with a wrong length", signedDataAround(joined({a().der(), {sequenceTag, 2, 5}})),
            {"1 CN=a", "2 The PKCS#7 structure is damaged."}),
    });
}

TEST(CertificateReader, FindsCertificatesInBundles)
{
    auto const bundle = [](std::string const& passphrase, auto const& mutate) {
        Pkcs12Spec spec;
        spec.passphrase = passphrase;
        spec.certificate = a().certificate;
        spec.key = a().key;
        spec.furtherCertificates = {b().certificate};
        mutate(spec);
        return asText(toDer(makePkcs12(spec)));
    };
    auto const unchanged = [](Pkcs12Spec&) {};
    auto const unencrypted = [](Pkcs12Spec& spec) {
        spec.certificateCipher = -1;
        spec.withoutMac = true;
    };
    auto const oldCipher = [](Pkcs12Spec& spec) { spec.certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC; };
    auto const noMac = [](Pkcs12Spec& spec) { spec.withoutMac = true; };
    auto const withoutKey = [](Pkcs12Spec& spec) { spec.key = nullptr; };
    Results const all = {"1 CN=a", "2 CN=b"};
    expectResults({
        {"with its passphrase", bundle("secret", unchanged), all, "secret"},
        {"with an old cipher", bundle("secret", oldCipher), all, "secret"},
        {"without key", bundle("secret", withoutKey), all, "secret"},
        {"without MAC", bundle("secret", noMac), all, "secret"},
        {"without encryption", bundle("", unencrypted), all},
        {"made without any passphrase", bundleWithoutPassphrase(), {"1 CN=a"}},
        {"with an empty passphrase", bundle("", unchanged), all},
        {"in PEM", pemOf("PKCS12", asBytes(bundle("secret", unchanged))), all, "secret"},
        {"before a certificate",
         bundle("secret", unchanged) + asText(b().der()),
         {"1 CN=a", "2 CN=b", "3 CN=b"},
         "secret"},
        {"with another passphrase", bundle("secret", unchanged), {wrongPassphrase}, "Secret"},
        {"without passphrase", bundle("secret", unchanged), {wrongPassphrase}},
        {"with a passphrase that it does not need", bundle("", unchanged), {wrongPassphrase}, "secret"},
        {"without MAC and with another passphrase",
         bundle("secret", noMac),
         {"0 A part of the PKCS#12 bundle cannot be decrypted."},
         "Secret"},
        {"half of it", bundle("secret", unchanged).substr(0, 200), {incomplete}, "secret"},
        {"only its version", "\x30\x03\x02\x01\x03", {"0 The PKCS#12 bundle is damaged."}},
        {"with a damaged member",
         asText(withDamage(asBytes(bundle("", unencrypted)), a().der())),
         {std::string("1 ") + notACertificate, "2 CN=b"}},
    });
    expectResults({
        row("with bags inside of bags",
            bundleOfBags(
                joined({bagOf(a()), bagAround(joined({bagAround(bagOf(b())), bagOf(a())})), bagOf(b())})),
            {"1 CN=a", "2 CN=b", "3 CN=a", "4 CN=b"}),
        row("with a part without content",
            bundleAround(derElement(sequenceTag, contentInfoWithoutContent(NID_pkcs7_data))),
            {"0 The PKCS#12 bundle is damaged."}),
        row("with parts that cannot be read", bundleAround({5, 0}), {"0 The PKCS#12 bundle is damaged."}),
    });
}

TEST(CertificateReader, BundleWithTooManyRoundsIsNotOpened)
{
    constexpr int mostRounds = 10'000'000;
    constexpr char const tooManyRounds[] =
        "0 The PKCS#12 bundle needs more than 10,000,000 rounds of key derivation.";
    constexpr char const undecryptable[] = "0 A part of the PKCS#12 bundle cannot be decrypted.";
    auto const* const aes = EVP_aes_256_cbc();
    auto const pbkdf2 = [=](int rounds) {
        return ownAlgorithm(PKCS5_pbe2_set_iv(aes, rounds, nullptr, 0, nullptr, NID_hmacWithSHA256));
    };
    expectResults({
        row("in the MAC", bundleWithMacOf(mostRounds + 1), {tooManyRounds}),
        row("in a part", bundleWithPartsOf({pbkdf2(mostRounds + 1)}), {tooManyRounds}),
        row("of an old kind",
            bundleWithPartsOf({ownAlgorithm(
                PKCS5_pbe_set(NID_pbe_WithSHA1And3_Key_TripleDES_CBC, mostRounds + 1, nullptr, 0))}),
            {tooManyRounds}),
        row("in two parts together", bundleWithPartsOf({pbkdf2(1), pbkdf2(mostRounds)}),
            {undecryptable, tooManyRounds}),
        row("of scrypt",
            bundleWithPartsOf(
                {ownAlgorithm(PKCS5_pbe2_set_scrypt(aes, nullptr, 0, nullptr, 1U << 14U, 1, 1024))}),
            {tooManyRounds}),
        row("few", bundleWithPartsOf({pbkdf2(1), pbkdf2(1)}), {undecryptable, undecryptable}),
    });
}

TEST(CertificateReader, KeyOfAnyKindIsNoFailure)
{
    std::string text;
    Results expected;
    for (auto const& key : {p384Key(), p521Key(), secp256k1Key(), ed448Key(), rsaPssKey(), dsaKey()}) {
        text += makeRoot("root", [&](CertificateSpec& spec) { spec.key = key; }).pem();
        expected.push_back(std::to_string(expected.size() + 1) + " CN=root");
    }
    for (auto const fault :
         {PublicKeyFault::Undecodable, PublicKeyFault::UnknownType, PublicKeyFault::NamelessCurve}) {
        text += makeRoot("root", [&](CertificateSpec& spec) { spec.publicKeyFault = fault; }).pem();
        expected.push_back(std::to_string(expected.size() + 1) + " CN=root");
    }

    EXPECT_EQ(resultsOf(text), expected);
}

TEST(CertificateReader, ReturnsTheCertificateItself)
{
    std::istringstream stream(a().pem());
    CertificateReader reader(stream, "name");
    auto const read = reader.next();

    ASSERT_TRUE(read && read->certificate);
    EXPECT_EQ(read->source, "name");
    EXPECT_EQ(read->index, 1U);
    EXPECT_EQ(read->failure, "");
    EXPECT_EQ(*read->certificate, Certificate::fromDER(a().der()));
}

TEST(CertificateReader, LargeBlockHidesNoOther)
{
    std::string const begin = "-----BEGIN CERTIFICATE-----\n";
    std::string lines;
    while (lines.size() <= largestBlock) {
        lines += std::string(64, 'A') + "\n";
    }
    constexpr std::size_t sizeOfContent = std::size_t(2) << 24U;
    std::string const large =
        asText({0x30, 0x84, 2, 0, 0, 0, 0x30, 0}) + std::string(sizeOfContent - 2, '\0');
    std::string const first = std::string("1 ") + tooLarge;
    expectResults({
        row("a PEM block", begin + lines + "-----END CERTIFICATE-----\n" + a().pem(), {first, "2 CN=a"}),
        row("a PEM block without END line", begin + lines + a().pem(), {first, "2 CN=a"}),
        row("a structure in DER", large + asText(a().der()), {std::string("0 ") + tooLarge, "1 CN=a"}),
        row("a second structure in DER", asText(b().der()) + large + asText(a().der()),
            {"1 CN=b", std::string("2 ") + tooLarge, "3 CN=a"}),
        row("a structure without end", asText({0x30, 0x80, 0x30, 0x80}) + large + "\n" + a().pem(),
            {std::string("0 ") + tooLarge, "1 CN=a"}),
    });
}

TEST(CertificateReader, LargeBlockWithinLimitIsRead)
{
    SignedDataSpec spec;
    spec.furtherCertificates = {a().certificate};
    constexpr std::size_t contentOfLargeBlock = 12000000;
    spec.content = std::string(contentOfLargeBlock, 'c');
    std::string const text = pemOf("PKCS7", toDer(makeSignedData(spec)));

    ASSERT_LT(text.size(), largestBlock);
    EXPECT_EQ(resultsOf(text), Results{"1 CN=a"});
}

TEST(CertificateReader, ManyBlocksNeedNoMemory)
{
    // More than a process may use under the sanitizers, if everything were kept.
    constexpr std::size_t size = std::size_t(64) * 1024 * 1024;
    RepeatingBuffer buffer("-----BEGIN CERTIFICATE-----\n" + std::string(100000, 'A') + "\n", size);
    std::istream stream(&buffer);
    CertificateReader reader(stream, "source");
    std::size_t numResults = 0;
    while (auto const read = reader.next()) {
        ++numResults;
        EXPECT_EQ(read->index, numResults);
        EXPECT_EQ(read->failure, "The block has no END line.");
    }
    EXPECT_EQ(numResults, size / (100000 + 29));
}

TEST(CertificateReader, StreamKeepsItsState)
{
    std::istringstream stream(a().pem());
    EXPECT_EQ(resultsOf(stream), Results{"1 CN=a"});
    EXPECT_TRUE(stream.good());
}

TEST(CertificateReader, ReadsRestOfStream)
{
    std::istringstream stream("x" + a().pem());
    stream.get();
    EXPECT_EQ(resultsOf(stream), Results{"1 CN=a"});
}

TEST(CertificateReader, StreamThatFailsHasOneResult)
{
    std::istringstream failed(a().pem());
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(resultsOf(failed), Results{"0 The stream cannot be read."});

    BrokenBuffer buffer("no disk");
    std::istream broken(&buffer);
    EXPECT_EQ(resultsOf(broken), Results{"0 The stream cannot be read: no disk"});
    EXPECT_TRUE(broken.good());
}

TEST(CertificateReader, ShortageInStreamIsNoResult)
{
    ShortBuffer buffer;
    std::istream stream(&buffer);
    CertificateReader reader(stream, "source");
    EXPECT_THROW(reader.next(), std::bad_alloc);
}

TEST(CertificateReader, PassphraseCountsFromNextResultOn)
{
    std::string const bundle = asText(toDer(makePkcs12(a(), "secret")));
    std::istringstream stream(bundle + bundle);
    CertificateReader reader(stream, "source");

    auto const first = reader.next();
    auto const second = reader.withPassphrase("secret").next();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->failure, "The passphrase does not open the PKCS#12 bundle.");
    EXPECT_EQ(resultOf(*second), "1 CN=a");
}

TEST(CertificateReader, MovesWithItsPosition)
{
    std::istringstream stream(a().pem() + b().pem());
    CertificateReader first(stream, "source");
    ASSERT_TRUE(first.next());
    CertificateReader second(std::move(first));
    auto const read = second.next();

    ASSERT_TRUE(read);
    EXPECT_EQ(resultOf(*read), "2 CN=b");
    EXPECT_FALSE(first.withPassphrase("secret").next());
    first = std::move(second);
    EXPECT_FALSE(first.next());
}

TEST(CertificateReader, ErrorQueueStaysAsItWas)
{
    std::vector<std::string> sources = {
        a().pem(),
        asText(a().der()),
        asText(signedDataWith({a().certificate})),
        asText(toDer(makePkcs12(a(), "other"))),
        asText(damaged(a())),
        "-----BEGIN CERTIFICATE-----\n!\n-----END CERTIFICATE-----\n"};
    if (OPENSSL_VERSION_MAJOR < 4) { // the code for PBES2 of OpenSSL 4.0 removes one mark too many
        sources.push_back(asText(toDer(makePkcs12(a(), "secret"))));
    }
    for (auto const& source : sources) {
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        resultsOf(source, "secret");
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    }
}

TEST(CertificateReader, ThreadsReadTheirOwnSources)
{
    std::string const text = a().pem() + asText(toDer(makePkcs12(a(), "secret")));
    std::string const bundle = asText(toDer(makePkcs12(b(), "secret")));
    constexpr int numThreads = 4;
    inParallel(numThreads, [&](int) {
        EXPECT_EQ(resultsOf(text), Results{"1 CN=a"});
        EXPECT_EQ(resultsOf(bundle, "secret"), Results{"1 CN=b"});
    });
}
