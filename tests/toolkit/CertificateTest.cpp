#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/EncryptedPem.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/toolkit/Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::system_clock;

constexpr char const notPEM[] = "The text contains no certificate in PEM encoding.";
constexpr char const damagedPEM[] = "The first certificate of the PEM text is damaged.";
constexpr char const notDER[] = "The bytes are not a certificate in DER encoding.";

Certificate loaded(CertificateAndKey const& made)
{
    return Certificate::fromDER(made.der());
}

CertificateAndKey const& root()
{
    static CertificateAndKey const made = makeRoot("root");
    return made;
}

Certificate leafWith(Mutation const& mutate)
{
    return loaded(makeLeaf(root(), "leaf", mutate));
}

Mutation withKey(KeyHandle const& key)
{
    return [key](CertificateSpec& spec) { spec.key = key; };
}

Mutation withExtension(std::string const& name, std::string const& text)
{
    return [=](CertificateSpec& spec) { spec.setExtension(name, text); };
}

Clock::time_point secondsSince1970(std::int64_t seconds)
{
    return Clock::time_point(std::chrono::seconds(seconds));
}

std::string pemBlock(std::string const& label, Bytes const& content)
{
    return "-----BEGIN " + label + "-----\n" + base64Encode(content) + "\n-----END " + label + "-----\n";
}

/// Returns the certificate with trust settings behind it, as OpenSSL writes it.
std::string trustedPEM(CertificateAndKey const& made)
{
    auto const copy = own(X509_dup(made.certificate.get()));
    auto const purpose = own(OBJ_txt2obj("serverAuth", 0));
    require(X509_add1_reject_object(copy.get(), purpose.get()));
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509_AUX(bio.get(), copy.get()));
    return asText(contentOf(bio));
}

} // namespace

// Loading

TEST(ToolkitCertificate, LoadsDER)
{
    auto const made = makeLeaf(root(), "leaf");
    EXPECT_EQ(Certificate::fromDER(made.der()).getAsDER(), made.der());
}

TEST(ToolkitCertificate, IgnoresBytesBehindDER)
{
    auto const made = makeLeaf(root(), "leaf");
    auto bytes = made.der();
    bytes.push_back(0);
    EXPECT_EQ(Certificate::fromDER(bytes).getAsDER(), made.der());
}

TEST(ToolkitCertificate, RefusesBytesThatAreNoCertificate)
{
    auto half = root().der();
    half.resize(half.size() / 2);
    for (auto const& bytes : {Bytes(), asBytes("garbage"), half, asBytes(root().pem())}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, notDER, Certificate::fromDER(bytes));
    }
}

TEST(ToolkitCertificate, LoadsFirstCertificateOfPEM)
{
    auto const first = makeLeaf(root(), "first");
    auto const text = "Subject: nobody\n" + toPem(p256Key()) + first.pem() + root().pem() + "the end";
    EXPECT_EQ(Certificate::fromPEM(text).getAsDER(), first.der());
}

TEST(ToolkitCertificate, LoadsEveryPEMLabelOfCertificates)
{
    auto const made = makeLeaf(root(), "leaf");
    for (auto const& text :
         {pemBlock("CERTIFICATE", made.der()), pemBlock("X509 CERTIFICATE", made.der()), trustedPEM(made)}) {
        EXPECT_EQ(Certificate::fromPEM(text).getAsDER(), made.der());
    }
}

TEST(ToolkitCertificate, DropsTrustSettings)
{
    auto const certificate = Certificate::fromPEM(trustedPEM(root()));
    EXPECT_EQ(X509_get0_reject_objects(certificate.duplicateX509().get()), nullptr);
    auto const object = own(X509_dup(root().certificate.get()));
    auto const purpose = own(OBJ_txt2obj("serverAuth", 0));
    require(X509_add1_reject_object(object.get(), purpose.get()));
    auto const copy = Certificate::fromX509(object.get());
    EXPECT_EQ(X509_get0_reject_objects(copy.duplicateX509().get()), nullptr);
}

TEST(ToolkitCertificate, RefusesPEMWithoutCertificate)
{
    for (auto const& text :
         {std::string(), std::string("text"), toPem(p256Key()), std::string("-----BEGIN CERTIFICATE----\n"),
          asText(root().der())}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, notPEM, Certificate::fromPEM(text));
    }
}

TEST(ToolkitCertificate, RefusesPEMWhoseFirstCertificateIsDamaged)
{
    auto const good = root().pem();
    for (auto const& damaged :
         {std::string("-----BEGIN CERTIFICATE-----\n"), pemBlock("CERTIFICATE", asBytes("garbage")),
          pemBlock("CERTIFICATE", {}), toEncryptedPem(root().certificate)}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, damagedPEM, Certificate::fromPEM(damaged));
        EXPECT_THROWS_EXACTLY(InvalidArgument, damagedPEM, Certificate::fromPEM(damaged + good));
    }
}

TEST(ToolkitCertificate, CopiesOpenSSLObject)
{
    auto const made = makeLeaf(root(), "leaf");
    auto const certificate = Certificate::fromX509(made.certificate.get());
    EXPECT_EQ(certificate.getAsDER(), made.der());
    EXPECT_NE(certificate.getX509(), made.certificate.get());
}

TEST(ToolkitCertificate, RefusesNullAndIncompleteOpenSSLObjects)
{
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The pointer to the certificate is null.", Certificate::fromX509(nullptr));
    auto const incomplete = own(X509_new());
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The certificate is not complete.", Certificate::fromX509(incomplete.get()));
}

// Conversion

TEST(ToolkitCertificate, SharesObjectOfLibraryCertificate)
{
    X509Certificate const original(root().der());
    Certificate const certificate(original);
    EXPECT_EQ(Certificate(original).getX509(), certificate.getX509());
    EXPECT_EQ(certificate.getAsDER(), root().der());
}

TEST(ToolkitCertificate, RefusesLibraryCertificateWithoutContent)
{
    X509Certificate moved(root().der());
    X509Certificate const target(std::move(moved));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.", Certificate(X509Certificate()));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.", Certificate(moved));
}

TEST(ToolkitCertificate, ConvertsToLibraryCertificate)
{
    EXPECT_EQ(loaded(root()).toX509Certificate(), X509Certificate(root().der()));
}

TEST(ToolkitCertificate, ConversionRefusesKeysAsLoadingDoes)
{
    auto const curve = leafWith(withKey(p384Key()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "ECC-based key is not using supported ECC Curve. Curve: secp384r1",
        curve.toX509Certificate());
    auto const ed448 = leafWith(withKey(ed448Key()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "Key uses Ed448, which is not currently supported",
        ed448.toX509Certificate());
    auto const dsa = leafWith(withKey(dsaKey()));
    EXPECT_THROWS_EXACTLY(
        UnsupportedKeyType, "Key is not currently supported. OpenSSL type id: 116", dsa.toX509Certificate());
    auto const weak = leafWith(withKey(rsaKey(512)));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "RSA key size does not meet minimum cryptographic requirements",
        weak.toX509Certificate());
}

TEST(ToolkitCertificate, ConversionIsNotMisledByPEMInsideCertificate)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.setExtension("nsComment", "none");
        spec.setRawExtension("1.3.6.1.4.1.99999.7", asBytes(root().pem()));
    });
    EXPECT_EQ(certificate.toX509Certificate().getAsBytes(), certificate.getAsDER());
}

TEST(ToolkitCertificate, ConversionClearsErrorQueue)
{
    auto const certificate = loaded(root());
    queueForeignError();
    certificate.toX509Certificate();
    EXPECT_TRUE(queueIsEmpty());
}

// Values

TEST(ToolkitCertificate, CopiesShareOneObject)
{
    auto const original = loaded(root());
    Certificate const copy(original);
    auto assigned = leafWith({});
    assigned = original;
    EXPECT_EQ(copy.getX509(), original.getX509());
    EXPECT_EQ(assigned.getX509(), original.getX509());
}

TEST(ToolkitCertificate, MoveLeavesSourceWhole)
{
    auto original = loaded(root());
    Certificate const moved(std::move(original));
    // NOLINTNEXTLINE(bugprone-use-after-move): a move is a copy
    EXPECT_EQ(original, moved);
    EXPECT_EQ(original.getAsDER(), root().der());
}

TEST(ToolkitCertificate, DuplicateIsIndependent)
{
    auto const certificate = loaded(root());
    auto const duplicate = certificate.duplicateX509();
    EXPECT_NE(duplicate.get(), certificate.getX509());
    require(X509_set_version(duplicate.get(), X509_VERSION_1));
    EXPECT_EQ(certificate.getAsDER(), root().der());
}

TEST(ToolkitCertificate, ComparesByEncoding)
{
    auto const certificate = loaded(root());
    auto const same = loaded(root());
    auto const other = leafWith({});
    EXPECT_TRUE(certificate == same);
    EXPECT_FALSE(certificate != same);
    EXPECT_TRUE(certificate != other);
    EXPECT_FALSE(certificate == other);
    EXPECT_EQ(CertificateHash()(certificate), CertificateHash()(same));
    EXPECT_FALSE(CertificateLess()(certificate, same));
    EXPECT_FALSE(CertificateLess()(certificate, certificate));
    EXPECT_NE(CertificateLess()(certificate, other), CertificateLess()(other, certificate));
}

TEST(ToolkitCertificate, CertificatesThatDifferOnlyInSignatureAreDifferent)
{
    auto der = root().der();
    der.back() ^= 1;
    EXPECT_NE(Certificate::fromDER(der), loaded(root()));
}

TEST(ToolkitCertificate, IsKeyOfContainers)
{
    std::vector<Certificate> const certificates = {loaded(root()), leafWith({}), loaded(root())};
    EXPECT_EQ((std::set<Certificate, CertificateLess>(certificates.begin(), certificates.end()).size()), 2U);
    EXPECT_EQ(
        (std::unordered_set<Certificate, CertificateHash>(certificates.begin(), certificates.end()).size()),
        2U);
}

// Output

TEST(ToolkitCertificate, WritesPEMAsOpenSSLDoes)
{
    EXPECT_EQ(loaded(root()).getAsPEM(), toPem(root().certificate));
}

// Fields

TEST(ToolkitCertificate, NamesAreThoseOfLibraryCertificate)
{
    auto const made = makeLeaf(root(), "leaf", [](CertificateSpec& spec) {
        spec.subject = {{"C", "US", V_ASN1_PRINTABLESTRING}, {"O", "Ünï, Inc."}, {"CN", "leaf"}};
    });
    X509Certificate const certificate(made.der());
    EXPECT_EQ(loaded(made).getSubject(), certificate.getSubjectName());
    EXPECT_EQ(loaded(made).getSubject(), "CN=leaf,O=\\C3\\9Cn\\C3\\AF\\, Inc.,C=US");
    EXPECT_EQ(loaded(made).getIssuer(), "CN=root");
}

TEST(ToolkitCertificate, SerialNumberIsHexadecimal)
{
    std::map<std::string, std::string> const numbers = {
        {"0", "00"},
        {"10", "0a"},
        {"255", "ff"},
        {"-255", "-ff"},
        {"0x0123456789ABCDEF0123456789ABCDEF01234567", "0123456789abcdef0123456789abcdef01234567"}};
    for (auto const& [number, text] : numbers) {
        auto const certificate =
            leafWith([number = number](CertificateSpec& spec) { spec.serialNumber = number; });
        EXPECT_EQ(certificate.getSerialNumber(), text);
    }
}

TEST(ToolkitCertificate, TimesArePointsOfTheClock)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::at(-1);
        spec.notAfter = TimeSpec::at(4000000000);
    });
    EXPECT_EQ(certificate.getNotBefore(), secondsSince1970(-1));
    EXPECT_EQ(certificate.getNotAfter(), secondsSince1970(4000000000));
}

TEST(ToolkitCertificate, TimesBeyondTheClockAreItsEnds)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "00010101000000Z");
        spec.notAfter = TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "99991231235959Z");
    });
    constexpr std::int64_t startOfYear1 = -62135596800;
    constexpr std::int64_t endOfYear9999 = 253402300799;
    auto const limit = [](std::int64_t seconds) {
        auto const largest = std::chrono::duration_cast<std::chrono::seconds>(Clock::duration::max()).count();
        return seconds > largest    ? Clock::time_point::max()
               : seconds < -largest ? Clock::time_point::min()
                                    : secondsSince1970(seconds);
    };
    EXPECT_EQ(certificate.getNotBefore(), limit(startOfYear1));
    EXPECT_EQ(certificate.getNotAfter(), limit(endOfYear9999));
}

TEST(ToolkitCertificate, UnreadableTimeThrows)
{
    auto const certificate = leafWith([](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); });
    constexpr char const text[] = "Invalid time format used in the certificate.";
    EXPECT_THROWS_EXACTLY(X509CertificateException, text, certificate.getNotAfter());
    EXPECT_NO_THROW(certificate.getNotBefore());
}

TEST(ToolkitCertificate, KeyHasKindAndBits)
{
    struct
    {
        KeyHandle key;
        char const* kind;
    } const rows[] = {
        {rsaKey(1024), "RSA"},         {rsaPssKey(2048), "RSA-PSS"}, {dsaKey(), "DSA"},
        {p256Key(), "prime256v1"},     {p384Key(), "secp384r1"},     {p521Key(), "secp521r1"},
        {ed25519Key(), "ED25519"},     {ed448Key(), "ED448"},        {x25519Key(), "X25519"},
        {secp256k1Key(), "secp256k1"},
    };
    for (auto const& row : rows) {
        auto const certificate = leafWith(withKey(row.key));
        EXPECT_EQ(certificate.getKeyKind(), row.kind);
        EXPECT_EQ(certificate.getKeyBits(), EVP_PKEY_get_bits(row.key.get())) << row.kind;
    }
    EXPECT_EQ(leafWith(withKey(p384Key())).getKeyBits(), 384);
    EXPECT_EQ(leafWith(withKey(rsaKey(1024))).getKeyBits(), 1024);
}

TEST(ToolkitCertificate, CurveWithoutNameIsEC)
{
    auto const nameless =
        leafWith([](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::NamelessCurve; });
    EXPECT_EQ(nameless.getKeyKind(), acceptsNamelessCurves() ? "EC" : "id-ecPublicKey");
}

TEST(ToolkitCertificate, KeyThatCannotBeDecodedHasNameOfItsAlgorithm)
{
    auto const undecodable =
        leafWith([](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::Undecodable; });
    EXPECT_EQ(undecodable.getKeyKind(), "id-ecPublicKey");
    EXPECT_EQ(undecodable.getKeyBits(), 0);
    auto const unknown =
        leafWith([](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::UnknownType; });
    EXPECT_EQ(unknown.getKeyKind().rfind("1.3.6.1.4.1.", 0), 0U) << unknown.getKeyKind();
    EXPECT_EQ(unknown.getKeyBits(), 0);
}

TEST(ToolkitCertificate, SignatureAlgorithmHasShortName)
{
    EXPECT_EQ(loaded(root()).getSignatureAlgorithm(), "ecdsa-with-SHA256");
    auto const strong = makeRoot("strong", [](CertificateSpec& spec) {
        spec.key = p384Key();
        spec.digest = EVP_sha384();
    });
    EXPECT_EQ(loaded(strong).getSignatureAlgorithm(), "ecdsa-with-SHA384");
    EXPECT_EQ(
        loaded(makeRoot("edwards", withKey(ed25519Key()))).getSignatureAlgorithm(),
        X509Certificate(makeRoot("edwards", withKey(ed25519Key())).der()).getSignatureAlgorithm());
}

TEST(ToolkitCertificate, FingerprintIsThatOfLibraryCertificate)
{
    EXPECT_EQ(loaded(root()).getSHA256Fingerprint(), X509Certificate(root().der()).getSHA256Fingerprint());
}

TEST(ToolkitCertificate, KeyIdentifiersAreHexadecimal)
{
    auto const certificate =
        leafWith([](CertificateSpec& spec) { spec.setExtension("subjectKeyIdentifier", "01:AB:cd"); });
    EXPECT_EQ(certificate.getSubjectKeyIdentifier(), "01abcd");
    EXPECT_EQ(certificate.getAuthorityKeyIdentifier(), loaded(root()).getSubjectKeyIdentifier());
    EXPECT_EQ(certificate.getAuthorityKeyIdentifier().size(), 40U);
    auto const bare = leafWith([](CertificateSpec& spec) { spec.extensions.clear(); });
    EXPECT_EQ(bare.getSubjectKeyIdentifier(), "");
    EXPECT_EQ(bare.getAuthorityKeyIdentifier(), "");
}

// Extensions

TEST(ToolkitCertificate, KeyUsagesHaveShortNamesOfOpenSSL)
{
    auto const* const method = X509V3_EXT_get_nid(NID_key_usage);
    std::vector<std::string> expected;
    std::string text;
    std::set<int> bits;
    for (auto const* bit = static_cast<BIT_STRING_BITNAME const*>(method->usr_data); bit->lname != nullptr;
         ++bit) {
        if (!bits.insert(bit->bitnum).second) {
            continue; // OpenSSL 4 has a second name for a bit
        }
        expected.emplace_back(bit->sname);
        text += (text.empty() ? "" : ",") + expected.back();
    }
    EXPECT_EQ(expected.size(), 9U);
    EXPECT_EQ(leafWith(withExtension("keyUsage", text)).getKeyUsages(), expected);
    for (auto const& name : expected) {
        EXPECT_EQ(leafWith(withExtension("keyUsage", name)).getKeyUsages(), std::vector<std::string>{name});
    }
}

TEST(ToolkitCertificate, ExtendedKeyUsagesAreDotted)
{
    auto const certificate = leafWith(withExtension("extendedKeyUsage", "codeSigning,1.2.3.4,serverAuth"));
    EXPECT_EQ(
        certificate.getExtendedKeyUsages(),
        (std::vector<std::string>{"1.3.6.1.5.5.7.3.3", "1.2.3.4", "1.3.6.1.5.5.7.3.1"}));
}

TEST(ToolkitCertificate, URLsKeepOrder)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.setExtension(
            "authorityInfoAccess", "OCSP;URI:http://ocsp.example/,caIssuers;URI:http://a.example/1.crt,"
                                   "caIssuers;email:a@example.org,caIssuers;URI:ldap://a.example/2");
        spec.setDistributionPoints({"http://c.example/1.crl", "ldap://c.example/2"});
    });
    EXPECT_EQ(
        certificate.getIssuerURLs(),
        (std::vector<std::string>{"http://a.example/1.crt", "ldap://a.example/2"}));
    EXPECT_EQ(
        certificate.getCRLURLs(), (std::vector<std::string>{"http://c.example/1.crl", "ldap://c.example/2"}));
}

TEST(ToolkitCertificate, RelativeDistributionPointHasNoURL)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.extensionSections = "[point]\nrelativename=name\nCRLissuer=dirName:issuer\n[name]\nCN=crl\n"
                                 "[issuer]\nCN=issuer\n";
        spec.setExtension("crlDistributionPoints", "point");
    });
    EXPECT_EQ(certificate.getCRLURLs(), std::vector<std::string>());
}

TEST(ToolkitCertificate, ExtensionsThatAreMissingOrUnreadableAnswerNothing)
{
    auto const bare = leafWith([](CertificateSpec& spec) { spec.extensions.clear(); });
    auto const unreadable = leafWith([](CertificateSpec& spec) {
        for (auto const* name :
             {"keyUsage", "extendedKeyUsage", "subjectAltName", "authorityInfoAccess",
              "crlDistributionPoints", "subjectKeyIdentifier", "authorityKeyIdentifier"}) {
            spec.setRawExtension(name, {0x30, 0x05, 0x01});
        }
    });
    for (auto const& certificate : {bare, unreadable}) {
        EXPECT_EQ(certificate.getKeyUsages(), std::vector<std::string>());
        EXPECT_EQ(certificate.getExtendedKeyUsages(), std::vector<std::string>());
        EXPECT_EQ(certificate.getAlternativeNames(), std::vector<AlternativeName>());
        EXPECT_EQ(certificate.getIssuerURLs(), std::vector<std::string>());
        EXPECT_EQ(certificate.getCRLURLs(), std::vector<std::string>());
        EXPECT_EQ(certificate.getSubjectKeyIdentifier(), "");
        EXPECT_EQ(certificate.getAuthorityKeyIdentifier(), "");
        EXPECT_FALSE(certificate.matchesHost("leaf"));
        EXPECT_FALSE(certificate.matchesAddress("127.0.0.1"));
        EXPECT_FALSE(certificate.isCA());
    }
}

TEST(ToolkitCertificate, InvalidExtensionHidesNoKeyIdentifier)
{
    auto const certificate = leafWith([](CertificateSpec& spec) {
        spec.setExtension("subjectKeyIdentifier", "01:AB:cd");
        constexpr unsigned char noUsage[] = {0x03, 0x02, 0x06, 0x00}; // OpenSSL calls the certificate invalid
        spec.setRawExtension("keyUsage", Bytes(std::begin(noUsage), std::end(noUsage)), true);
    });
    EXPECT_EQ(certificate.getSubjectKeyIdentifier(), "01abcd");
    EXPECT_EQ(certificate.getAuthorityKeyIdentifier(), loaded(root()).getSubjectKeyIdentifier());
}

TEST(ToolkitCertificate, IsCAAsOpenSSLSays)
{
    EXPECT_TRUE(loaded(root()).isCA());
    EXPECT_FALSE(leafWith({}).isCA());
    auto const old = makeRoot("old", [](CertificateSpec& spec) {
        spec.version = X509_VERSION_1;
        spec.extensions.clear();
    });
    EXPECT_TRUE(loaded(old).isCA());
}

// Issuers

TEST(ToolkitCertificate, IsIssuedByItsSigner)
{
    auto const leaf = leafWith({});
    EXPECT_TRUE(leaf.isIssuedBy(loaded(root())));
    EXPECT_TRUE(loaded(root()).isIssuedBy(loaded(root())));
    EXPECT_FALSE(loaded(root()).isIssuedBy(leaf));
    EXPECT_FALSE(leaf.isIssuedBy(leaf));
}

TEST(ToolkitCertificate, IsIssuedBySignerThatMayNotSignCertificates)
{
    auto const selfSigned = makeSelfSignedLeaf("self", withExtension("keyUsage", "digitalSignature"));
    EXPECT_TRUE(loaded(selfSigned).isIssuedBy(loaded(selfSigned)));
}

TEST(ToolkitCertificate, IsNotIssuedByCertificateThatFitsInPart)
{
    auto const leaf = leafWith({});
    auto const otherKey = makeRoot("root", [](CertificateSpec& spec) {
        spec.key = p256Key("other");
        spec.removeExtension("subjectKeyIdentifier");
    });
    auto const otherIdentifier = makeRoot("root", withExtension("subjectKeyIdentifier", "01:02"));
    auto const otherName = makeRoot("other", withKey(root().key));
    auto const withoutKey =
        makeRoot("root", [](CertificateSpec& spec) { spec.publicKeyFault = PublicKeyFault::Undecodable; });
    for (auto const& issuer : {otherKey, otherIdentifier, otherName, withoutKey}) {
        EXPECT_FALSE(leaf.isIssuedBy(loaded(issuer)));
    }
    auto const forged = leafWith([](CertificateSpec& spec) { spec.damagedSignature = true; });
    EXPECT_FALSE(forged.isIssuedBy(loaded(root())));
}

TEST(ToolkitCertificate, IsIssuedByHolderOfAnyKey)
{
    for (auto const& key : {p384Key(), p521Key(), ed448Key(), dsaKey(), rsaPssKey()}) {
        auto const issuer = makeRoot("issuer", withKey(key));
        EXPECT_TRUE(loaded(makeLeaf(issuer, "leaf")).isIssuedBy(loaded(issuer)))
            << loaded(issuer).getKeyKind();
    }
}

// Error queue

TEST(ToolkitCertificate, FailuresKeepErrorQueue)
{
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    EXPECT_THROW(Certificate::fromDER(asBytes("garbage")), InvalidArgument);
    EXPECT_THROW(Certificate::fromPEM(pemBlock("CERTIFICATE", asBytes("garbage"))), InvalidArgument);
    EXPECT_THROW(Certificate::fromX509(own(X509_new()).get()), InvalidArgument);
    auto const faulty = leafWith([](CertificateSpec& spec) {
        spec.publicKeyFault = PublicKeyFault::Undecodable;
        spec.notAfter = TimeSpec::unreadable();
        spec.setRawExtension("keyUsage", {0x30, 0x05, 0x01});
    });
    EXPECT_THROW(faulty.getNotAfter(), X509CertificateException);
    faulty.getKeyKind();
    faulty.getKeyUsages();
    EXPECT_FALSE(leafWith({}).isIssuedBy(leafWith({})));
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}
