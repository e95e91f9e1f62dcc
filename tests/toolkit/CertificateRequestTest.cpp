#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"
#include "support/toolkit/SigningKeys.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Issuance.hpp>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

using Kind = AlternativeName::Kind;
using RequestHandle = std::shared_ptr<X509_REQ>;

SecretString secretOf(KeyHandle const& key)
{
    return SecretString(toPem(key));
}

SecretString const& testKey()
{
    static SecretString const key(toPem(p256Key("request")));
    return key;
}

RequestHandle parsed(CertificateRequest const& request)
{
    auto const pem = request.getAsPEM();
    auto const bio = own(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return {PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr), X509_REQ_free};
}

Bytes derOf(RequestHandle const& request)
{
    return encodedBy(i2d_X509_REQ, request.get());
}

std::string pemOf(RequestHandle const& request)
{
    return asText(writtenBy(PEM_write_bio_X509_REQ, request.get()));
}

/// An extension of a request: its content, in DER.
struct RequestedExtension
{
    int nid = NID_undef;
    Bytes content{};
};

/// Makes a request with the extensions, in bare OpenSSL, for CN=foreign.
RequestHandle foreignRequest(std::vector<RequestedExtension> const& extensions, int attribute = NID_ext_req)
{
    RequestHandle request(X509_REQ_new(), X509_REQ_free);
    auto const key = p256Key("request");
    require(X509_REQ_set_subject_name(request.get(), makeName(commonName("foreign")).get()));
    require(X509_REQ_set_pubkey(request.get(), key.get()));
    Bytes list;
    for (auto const& extension : extensions) {
        auto const content = own(ASN1_OCTET_STRING_new());
        require(ASN1_OCTET_STRING_set(
            content.get(), extension.content.data(), static_cast<int>(extension.content.size())));
        auto const made = own(X509_EXTENSION_create_by_NID(nullptr, extension.nid, 0, content.get()));
        list = joined({list, encodedBy(i2d_X509_EXTENSION, made.get())});
    }
    if (!extensions.empty()) {
        auto const sequence = derElement(sequenceTag, list);
        require(X509_REQ_add1_attr_by_NID(
            request.get(), attribute, V_ASN1_SEQUENCE, sequence.data(), static_cast<int>(sequence.size())));
    }
    require(X509_REQ_sign(request.get(), key.get(), EVP_sha256()));
    return request;
}

constexpr int dnsTag = 0x82;
constexpr int emailTag = 0x81;
constexpr int addressTag = 0x87;
constexpr int registeredIdTag = 0x88;

Bytes namesContent(std::vector<Bytes> const& names)
{
    return derElement(sequenceTag, joined(names));
}

Bytes dnsName(std::string const& name)
{
    return derElement(dnsTag, asBytes(name));
}

CertificateRequest loaded(RequestHandle const& request)
{
    return CertificateRequest::fromDER(derOf(request));
}

/// Flips the last bit of the signature.
Bytes withDamagedSignature(Bytes der)
{
    der.back() = static_cast<unsigned char>(der.back() ^ 1);
    return der;
}

bool isCriticalIn(RequestHandle const& request)
{
    std::shared_ptr<STACK_OF(X509_EXTENSION)> const extensions(
        X509_REQ_get_extensions(request.get()),
        [](STACK_OF(X509_EXTENSION) * stack) { sk_X509_EXTENSION_pop_free(stack, X509_EXTENSION_free); });
    return X509_EXTENSION_get_critical(sk_X509_EXTENSION_value(extensions.get(), 0)) == 1;
}

constexpr char const unreadableNames[] = "The alternative names of the request are unreadable.";

} // namespace

TEST(CertificateRequest, HoldsWhatWasAskedFor)
{
    auto const request = CertificateRequest::make(
        {{"C", "SE"}, {"O", "Example"}, {"CN", "device 7"}},
        {{Kind::DNS, "seven.example"},
         {Kind::IPAddress, "192.0.2.7"},
         {Kind::IPAddress, "2001:db8::7"},
         {Kind::Email, "seven@example.org"},
         {Kind::URI, "https://seven.example/"}},
        testKey());
    EXPECT_EQ(request.getSubject(), "CN=device 7,O=Example,C=SE");
    EXPECT_EQ(
        request.getAlternativeNames(), (std::vector<AlternativeName>{
                                           {Kind::DNS, "seven.example"},
                                           {Kind::IPAddress, "192.0.2.7"},
                                           {Kind::IPAddress, "2001:db8::7"},
                                           {Kind::Email, "seven@example.org"},
                                           {Kind::URI, "https://seven.example/"}}));
    EXPECT_TRUE(request.isSignatureValid());
}

TEST(CertificateRequest, VerifiesWithOpenSSL)
{
    auto const request = parsed(CertificateRequest::make({{"CN", "a"}}, {}, testKey()));
    EXPECT_EQ(X509_REQ_get_version(request.get()), X509_REQ_VERSION_1);
    EXPECT_EQ(X509_REQ_verify(request.get(), p256Key("request").get()), 1);
    EXPECT_EQ(X509_REQ_get_attr_count(request.get()), 0);
}

TEST(CertificateRequest, IsMadeWithEachKindOfKey)
{
    for (auto const& each : signingKeys()) {
        SCOPED_TRACE(each.name);
        auto const request = CertificateRequest::make({{"CN", "a"}}, {}, secretOf(each.key));
        EXPECT_TRUE(request.isSignatureValid());
        EXPECT_EQ(X509_REQ_get_signature_nid(parsed(request).get()), each.signature);
    }
}

TEST(CertificateRequest, NamesAreCriticalWithoutSubject)
{
    std::vector<AlternativeName> const names{{Kind::DNS, "a.example"}};
    EXPECT_TRUE(isCriticalIn(parsed(CertificateRequest::make({}, names, testKey()))));
    EXPECT_FALSE(isCriticalIn(parsed(CertificateRequest::make({{"CN", "a"}}, names, testKey()))));
}

TEST(CertificateRequest, NeedsSubjectOrNames)
{
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "Neither subject nor alternative names are given.",
        CertificateRequest::make({}, {}, testKey()));
}

TEST(CertificateRequest, RefusesTextThatIsNoKey)
{
    constexpr char text[] = "The text holds no private key that can be read without a passphrase.";
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, text, CertificateRequest::make({{"CN", "a"}}, {}, SecretString("")));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, text, CertificateRequest::make({{"CN", "a"}}, {}, SecretString("no key")));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, text,
        CertificateRequest::make({{"CN", "a"}}, {}, SecretString(makeRoot("root").pem())));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, text,
        CertificateRequest::make({{"CN", "a"}}, {}, SecretString(toPem(p256Key(), "secret"))));
}

TEST(CertificateRequest, RefusesKeyThatCertificatesAreNotMadeFor)
{
    struct Case
    {
        char const* name;
        KeyHandle key;
        char const* text;
    };
    constexpr char kind[] = "The key is of a kind that certificates are not made for.";
    for (auto const& each :
         {Case{"X25519", x25519Key(), kind}, Case{"DSA", dsaKey(), kind},
          Case{"RSA with 512 bits", rsaKey(512), "The key is too weak."},
          Case{"explicit curve", explicitP256Key(), "The key has explicit curve parameters."}}) {
        SCOPED_TRACE(each.name);
        EXPECT_THROWS_EXACTLY(
            InvalidArgument, each.text, CertificateRequest::make({{"CN", "a"}}, {}, secretOf(each.key)));
    }
}

TEST(CertificateRequest, ReadsBothLabels)
{
    auto const pem = CertificateRequest::make({{"CN", "a"}}, {}, testKey()).getAsPEM();
    EXPECT_TRUE(beginsWith(pem, "-----BEGIN CERTIFICATE REQUEST-----\n"));
    auto const der = derOf(parsed(CertificateRequest::fromPEM(pem)));
    auto const old =
        asText(writtenBy(PEM_write_bio_X509_REQ_NEW, parsed(CertificateRequest::fromPEM(pem)).get()));
    EXPECT_TRUE(beginsWith(old, "-----BEGIN NEW CERTIFICATE REQUEST-----\n"));
    EXPECT_EQ(CertificateRequest::fromPEM(old).getAsPEM(), pem);
    EXPECT_EQ(CertificateRequest::fromDER(der).getAsPEM(), pem);
}

TEST(CertificateRequest, FirstOneOfTheTextCounts)
{
    auto const first = CertificateRequest::make({{"CN", "first"}}, {}, testKey()).getAsPEM();
    auto const second = CertificateRequest::make({{"CN", "second"}}, {}, testKey()).getAsPEM();
    auto const text = "some text\n" + makeRoot("root").pem() + first + second;
    EXPECT_EQ(CertificateRequest::fromPEM(text).getAsPEM(), first);
}

TEST(CertificateRequest, RefusesTextWithoutRequest)
{
    constexpr char text[] = "The text holds no certificate request.";
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromPEM(""));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromPEM("no request"));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromPEM(makeRoot("root").pem()));
    auto pem = CertificateRequest::make({{"CN", "a"}}, {}, testKey()).getAsPEM();
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromPEM(pem.substr(0, pem.size() - 20)));
}

TEST(CertificateRequest, RefusesBytesThatAreNoRequest)
{
    constexpr char text[] = "The bytes are no certificate request.";
    auto der = derOf(foreignRequest({}));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromDER({}));
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromDER(makeRoot("root").der()));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, text, CertificateRequest::fromDER(Bytes(der.begin(), der.end() - 1)));
    der.push_back(0);
    EXPECT_THROWS_EXACTLY(InvalidArgument, text, CertificateRequest::fromDER(der));
}

TEST(CertificateRequest, ReadsNamesOfForeignRequest)
{
    auto const content = namesContent(
        {dnsName("a.example"), derElement(emailTag, asBytes("a@example.org")),
         derElement(addressTag, {192, 0, 2, 1}), derElement(registeredIdTag, {42, 3, 4})});
    std::vector<AlternativeName> const expected{
        {Kind::DNS, "a.example"},
        {Kind::Email, "a@example.org"},
        {Kind::IPAddress, "192.0.2.1"},
        {Kind::Other, "Registered ID:1.2.3.4"}};
    for (int const attribute : {NID_ext_req, NID_ms_ext_req}) {
        auto const request = loaded(foreignRequest({{NID_subject_alt_name, content}}, attribute));
        EXPECT_EQ(request.getSubject(), "CN=foreign");
        EXPECT_EQ(request.getAlternativeNames(), expected);
    }
}

TEST(CertificateRequest, HasNoNamesWithoutTheirExtension)
{
    EXPECT_EQ(loaded(foreignRequest({})).getAlternativeNames(), std::vector<AlternativeName>());
    auto const other = foreignRequest({{NID_key_usage, {3, 2, 7, 128}}});
    EXPECT_EQ(loaded(other).getAlternativeNames(), std::vector<AlternativeName>());
}

TEST(CertificateRequest, RefusesUnreadableNames)
{
    auto const good = namesContent({dnsName("a.example")});
    auto const damaged = foreignRequest({{NID_subject_alt_name, {1, 2, 3}}});
    auto const twice = foreignRequest({{NID_subject_alt_name, good}, {NID_subject_alt_name, good}});
    EXPECT_THROWS_EXACTLY(InvalidArgument, unreadableNames, loaded(damaged));
    EXPECT_THROWS_EXACTLY(InvalidArgument, unreadableNames, loaded(twice));
    EXPECT_THROWS_EXACTLY(InvalidArgument, unreadableNames, CertificateRequest::fromPEM(pemOf(damaged)));
}

TEST(CertificateRequest, RefusesUnreadableExtensions)
{
    RequestHandle const request(X509_REQ_new(), X509_REQ_free);
    require(X509_REQ_set_pubkey(request.get(), p256Key("request").get()));
    unsigned char const noExtensions[] = {0x30, 0x03, 0x02, 0x01, 0x05};
    require(X509_REQ_add1_attr_by_NID(
        request.get(), NID_ext_req, V_ASN1_SEQUENCE, noExtensions, sizeof noExtensions));
    require(X509_REQ_sign(request.get(), p256Key("request").get(), EVP_sha256()));
    EXPECT_THROWS_EXACTLY(InvalidArgument, unreadableNames, loaded(request));
}

TEST(CertificateRequest, DetectsDamagedSignature)
{
    auto const request = CertificateRequest::fromDER(withDamagedSignature(derOf(foreignRequest({}))));
    EXPECT_FALSE(request.isSignatureValid());
    EXPECT_EQ(request.getSubject(), "CN=foreign");
}

TEST(CertificateRequest, DetectsSignatureOfAnotherKey)
{
    auto const request = foreignRequest({});
    require(X509_REQ_set_pubkey(request.get(), p256Key("other").get()));
    require(X509_REQ_sign(request.get(), p256Key("request").get(), EVP_sha256()));
    EXPECT_FALSE(loaded(request).isSignatureValid());
}

TEST(CertificateRequest, MovedFromOneStaysUsable)
{
    auto source = loaded(foreignRequest({}));
    auto const target = std::move(source);
    EXPECT_EQ(source.getAsPEM(), target.getAsPEM());
}

TEST(CertificateRequest, AnswersManyThreads)
{
    auto const request = CertificateRequest::make({{"CN", "a"}}, {{Kind::DNS, "a.example"}}, testKey());
    auto const pem = request.getAsPEM();
    std::vector<std::string> answers(8);
    inParallel(8, [&](int number) {
        auto const copy = request;
        answers[static_cast<std::size_t>(number)] =
            copy.isSignatureValid() && copy.getAlternativeNames().size() == 1 && copy.getSubject() == "CN=a"
                ? copy.getAsPEM()
                : "wrong";
    });
    EXPECT_EQ(answers, std::vector<std::string>(8, pem));
}

TEST(CertificateRequest, KeepsErrorQueue)
{
    auto const damaged = withDamagedSignature(derOf(foreignRequest({})));
    CleanErrorQueue const queue;
    auto const foreign = queueForeignError();
    auto const request = CertificateRequest::make({{"CN", "a"}}, {{Kind::DNS, "a.example"}}, testKey());
    CertificateRequest::fromPEM(request.getAsPEM());
    request.getSubject();
    request.getAlternativeNames();
    EXPECT_TRUE(request.isSignatureValid());
    EXPECT_FALSE(CertificateRequest::fromDER(damaged).isSignatureValid());
    EXPECT_THROW(CertificateRequest::fromPEM("no request"), InvalidArgument);
    EXPECT_THROW(CertificateRequest::fromDER({1, 2}), InvalidArgument);
    EXPECT_THROW(CertificateRequest::make({{"no", "a"}}, {}, testKey()), InvalidArgument);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(CertificateRequest, NeedsKeyWhosePublicHalfVerifies)
{
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The key cannot sign.",
        CertificateRequest::make({{"CN", "device"}}, {}, SecretString(damagedKeyPem())));
}
