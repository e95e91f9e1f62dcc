#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"
#include "support/vectors/Vectors.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

// Published bundles. The library and bare OpenSSL open each of them, with the same parts or the same refusal.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// The content of a bundle according to bare OpenSSL.
struct Content
{
    X509Handle certificate;
    KeyHandle key;
    std::vector<X509Handle> furtherCertificates;
};

enum class Outcome
{
    NoBundle,
    WrongPassphrase,
    NotParsed,
    UnsupportedCertificate,
    Opened
};

struct BareBundle
{
    Outcome outcome = Outcome::NoBundle;
    /// OpenSSL's first reason against the bundle; the library's reason for an unsupported certificate.
    std::string reason;
    Content content;
};

Content parse(Pkcs12Handle const& bundle, std::string const& passphrase)
{
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* further = nullptr;
    require(PKCS12_parse(bundle.get(), passphrase.c_str(), &key, &certificate, &further));
    Content content;
    content.key = key == nullptr ? nullptr : own(key);
    content.certificate = certificate == nullptr ? nullptr : own(certificate);
    for (int index = 0; index < sk_X509_num(further); ++index) {
        content.furtherCertificates.push_back(own(sk_X509_value(further, index)));
    }
    sk_X509_free(further);
    return content;
}

/// Returns the library's reason if it refuses the certificate. Other tests check which ones it refuses.
std::optional<std::string> refusal(X509Handle const& certificate)
{
    try {
        X509Certificate const loaded(toDer(certificate));
        return std::nullopt;
    } catch (CertificateException const& failure) {
        return failure.what();
    }
}

std::optional<std::string> refusalOfAny(Content const& content)
{
    auto all = content.furtherCertificates;
    if (content.certificate != nullptr) {
        all.insert(all.begin(), content.certificate);
    }
    for (auto const& certificate : all) {
        if (auto const reason = refusal(certificate)) {
            return reason;
        }
    }
    return std::nullopt;
}

BareBundle openBare(Bytes const& bytes, std::string const& passphrase)
{
    CleanErrorQueue const clean;
    Pkcs12Handle const bundle(d2i_PKCS12_bio(readerOf(bytes).get(), nullptr), PKCS12_free);
    if (bundle == nullptr || !queueIsEmpty()) {
        return {Outcome::NoBundle, oldestReasonText(), {}};
    }
    if (PKCS12_verify_mac(bundle.get(), passphrase.c_str(), static_cast<int>(passphrase.size())) == 0) {
        return {Outcome::WrongPassphrase, oldestReasonText(), {}};
    }
    // The legacy provider has the old ciphers.
    static auto* const legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    EXPECT_NE(legacy, nullptr);
    Content content;
    try {
        content = parse(bundle, passphrase);
    } catch (std::runtime_error const&) {
        return {Outcome::NotParsed, oldestReasonText(), {}};
    }
    if (auto const reason = refusalOfAny(content)) {
        return {Outcome::UnsupportedCertificate, *reason, {}};
    }
    return {Outcome::Opened, "", content};
}

Bytes numberOf(KeyHandle const& key, char const* parameter)
{
    BIGNUM* number = nullptr;
    require(EVP_PKEY_get_bn_param(key.get(), parameter, &number));
    auto const owned = own(number);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(owned.get())));
    BN_bn2bin(owned.get(), bytes.data());
    return bytes;
}

Bytes rawPrivateKey(KeyHandle const& key)
{
    std::size_t size = 32;
    Bytes bytes(size);
    require(EVP_PKEY_get_raw_private_key(key.get(), bytes.data(), &size));
    return bytes;
}

PrivateKeyInfo privateKeyInfoOf(KeyHandle const& key)
{
    switch (EVP_PKEY_get_base_id(key.get())) {
    case EVP_PKEY_RSA:
        return PrivateKeyInfo(numberOf(key, OSSL_PKEY_PARAM_RSA_D));
    case EVP_PKEY_EC:
        return PrivateKeyInfo(numberOf(key, OSSL_PKEY_PARAM_PRIV_KEY), EllipticCurve::Prime256v1);
    default:
        return PrivateKeyInfo(rawPrivateKey(key), EllipticCurve::Ed25519);
    }
}

void expectSame(PKCS12Certificate const& opened, Content const& content)
{
    EXPECT_EQ(opened.getCertificate().empty(), content.certificate == nullptr);
    if (content.certificate != nullptr) {
        EXPECT_EQ(opened.getCertificate().getAsBytes(), toDer(content.certificate));
    }
    std::vector<Bytes> further;
    for (auto const& certificate : opened.getCAChain().getCertificates()) {
        further.push_back(certificate.getAsBytes());
    }
    std::vector<Bytes> expected;
    for (auto const& certificate : content.furtherCertificates) {
        expected.push_back(toDer(certificate));
    }
    EXPECT_EQ(further, expected);
    ASSERT_EQ(opened.getPrivateKeyInfo().has_value(), content.key != nullptr);
    if (content.key != nullptr) {
        EXPECT_EQ(opened.getPrivateKeyInfo(), privateKeyInfoOf(content.key));
    }
}

/// Opens the bundle with both and compares.
Outcome expectSameOutcome(Bytes const& bytes, std::string const& passphrase)
{
    auto const bare = openBare(bytes, passphrase);
    switch (bare.outcome) {
    case Outcome::NoBundle:
        EXPECT_THROWS_EXACTLY(
            PKCS12CertificateException, "Error: Loading PKSC12 certificate failed. Reason=" + bare.reason,
            PKCS12Certificate(bytes, passphrase));
        break;
    case Outcome::WrongPassphrase:
        EXPECT_THROWS_EXACTLY(
            IncorrectPassphrase, "Input passphrase is incorrect. OpenSSL error message=" + bare.reason,
            PKCS12Certificate(bytes, passphrase));
        break;
    case Outcome::NotParsed:
        EXPECT_THROWS_EXACTLY(
            PKCS12CertificateException, "Error: Parsing PKSC12 certificate failed." + bare.reason,
            PKCS12Certificate(bytes, passphrase));
        break;
    case Outcome::UnsupportedCertificate:
        EXPECT_THROWS_EXACTLY(
            PKCS12CertificateException,
            "Error: Unable to parse X509 certificate(s) inside PKCS12 certificate." + bare.reason,
            PKCS12Certificate(bytes, passphrase));
        break;
    case Outcome::Opened: {
        PKCS12Certificate const opened(bytes, passphrase);
        EXPECT_TRUE(queueIsEmpty());
        EXPECT_EQ(opened.getAsBytes(), bytes);
        expectSame(opened, bare.content);
        break;
    }
    }
    return bare.outcome;
}

/// What a file contains.
struct Contents
{
    explicit Contents(char const* theName) : name(theName) {}

    Contents& certificate()
    {
        hasCertificate = true;
        return *this;
    }

    Contents& key()
    {
        hasKey = true;
        return *this;
    }

    Contents& others(std::size_t value)
    {
        numOthers = value;
        return *this;
    }

    char const* name;
    bool hasCertificate = false;
    bool hasKey = false;
    std::size_t numOthers = 0;
};

} // namespace

TEST(PKCS12Vectors, PythonLibraryFilesOpenAsInOpenSSL)
{
    std::map<Outcome, int> outcomes;
    for (auto const& name : listVectors("pkcs12", ".p12")) {
        for (std::string const passphrase : {"password", "cryptography", "", "another"}) {
            SCOPED_TRACE(name + " with \"" + passphrase + "\"");
            ++outcomes[expectSameOutcome(readVector(name), passphrase)];
        }
    }
    EXPECT_GE(outcomes[Outcome::Opened], 5);
    EXPECT_GE(outcomes[Outcome::WrongPassphrase], 15);
}

// The set of files differs between releases of the library. Every release has these.
TEST(PKCS12Vectors, FilesContainWhatTheirNamesSay)
{
    Contents const rows[] = {
        Contents("cert-aes256cbc-no-key").others(1),
        Contents("cert-key-aes256cbc").certificate().key(),
        Contents("cert-none-key-none").certificate().key(),
        Contents("cert-rc2-key-3des").certificate().key(),
        Contents("no-cert-key-aes256cbc").key(),
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        PKCS12Certificate const opened(
            readVector(std::string("pkcs12/") + row.name + ".p12"), "cryptography");

        EXPECT_EQ(opened.getCertificate().empty(), !row.hasCertificate);
        EXPECT_EQ(opened.getPrivateKeyInfo().has_value(), row.hasKey);
        EXPECT_EQ(opened.getCAChain().getNumCertificates(), row.numOthers);
    }
}

// The file's MAC is made with no passphrase, which differs from an empty one.
TEST(PKCS12Vectors, FileWithoutPassphraseIsRefused)
{
    auto const outcome = expectSameOutcome(readVector("pkcs12/no-password.p12"), "");
    EXPECT_EQ(outcome, Outcome::WrongPassphrase);
}

TEST(PKCS12Vectors, PathValidationSuiteOpensAsInOpenSSL)
{
    std::map<Outcome, int> outcomes;
    for (auto const& name : listVectors("x509/PKITS_data/pkcs12", ".p12")) {
        SCOPED_TRACE(name);
        ++outcomes[expectSameOutcome(readVector(name), "password")];
    }
    EXPECT_EQ(
        outcomes, (std::map<Outcome, int>{{Outcome::UnsupportedCertificate, 5}, {Outcome::Opened, 400}}));
}
