#include "support/InputOptions.hpp"
#include "support/KeyDerivationCost.hpp"
#include "support/Properties.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/toolkit/PrivateKeys.hpp>

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// PKCS#12 bundles: opening them and reading their content. The input holds a bundle and a passphrase. Its
// options say whether the bundle gets a new MAC and how much to check.

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::KeyType;
using certificates::PKCS12Certificate;
using certificates::PrivateKeyInfo;
using test::own;
using test::Pkcs12Handle;

/// The content of a bundle as bare OpenSSL reads it.
struct Contents
{
    test::KeyHandle key;
    test::X509Handle certificate;
    test::X509StackHandle others;
};

Pkcs12Handle parse(ByteArray const& data)
{
    if (data.empty()) {
        return nullptr;
    }
    return Pkcs12Handle(d2i_PKCS12_bio(test::readerOf(data).get(), nullptr), PKCS12_free);
}

bool fits(Pkcs12Handle const& bundle, std::string const& passphrase)
{
    return PKCS12_verify_mac(bundle.get(), passphrase.c_str(), static_cast<int>(passphrase.size())) != 0;
}

std::optional<Contents> contentsOf(Pkcs12Handle const& bundle, std::string const& passphrase)
{
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* others = nullptr;
    int const result = PKCS12_parse(bundle.get(), passphrase.c_str(), &key, &certificate, &others);
    Contents contents{
        test::KeyHandle(key, EVP_PKEY_free), test::X509Handle(certificate, X509_free),
        test::X509StackHandle(others, [](STACK_OF(X509) * stack) { sk_X509_pop_free(stack, X509_free); })};
    clearErrorQueue();
    return result == 0 ? std::nullopt : std::make_optional(contents);
}

/// Returns the bundle with a MAC that fits the passphrase, or the unchanged data if it is not a bundle.
ByteArray withNewMac(ByteArray const& data, std::string const& passphrase)
{
    auto const bundle = parse(data);
    unsigned char salt[] = {1, 2, 3, 4, 5, 6, 7, 8};
    bool const set =
        bundle != nullptr && PKCS12_set_mac(
                                 bundle.get(), passphrase.data(), static_cast<int>(passphrase.size()), salt,
                                 sizeof salt, 1, EVP_sha256()) == 1;
    clearErrorQueue();
    return set ? test::toDer(bundle) : data;
}

bool takesLong(ByteArray const& data, std::string const& passphrase)
{
    constexpr long long limit = 5000;
    auto const bundle = parse(data);
    bool const isLong = bundle != nullptr && keyDerivationRounds(bundle, passphrase) > limit;
    clearErrorQueue();
    return isLong;
}

bool beginsWith(std::string const& text, char const* beginning)
{
    return text.rfind(beginning, 0) == 0;
}

/// Checks that the failure names the stage at which bare OpenSSL fails.
void checkRefusal(ByteArray const& data, std::string const& passphrase)
{
    std::string failure;
    bool incorrect = false;
    try {
        PKCS12Certificate const refused(data, passphrase);
    } catch (certificates::IncorrectPassphrase const&) {
        incorrect = true;
    } catch (certificates::CertificateException const& exception) {
        failure = exception.what();
    }
    clearErrorQueue();
    auto const bundle = parse(data);
    bool const parses = bundle != nullptr && ERR_peek_error() == 0;
    require(
        data.empty() || parses != beginsWith(failure, "Error: Loading PKSC12 certificate failed. Reason="),
        "exactly a bundle that does not parse fails to load");
    if (parses) {
        bool const opens = fits(bundle, passphrase);
        require(incorrect != opens, "exactly a passphrase that OpenSSL refuses is incorrect");
        require(
            !opens || contentsOf(bundle, passphrase).has_value() !=
                          beginsWith(failure, "Error: Parsing PKSC12 certificate failed."),
            "exactly a bundle that OpenSSL cannot decrypt fails to parse");
    }
    clearErrorQueue();
}

/// Whether the bundles are equal. `operator==` throws for bundles without a certificate, so those are
/// compared by parts.
bool areEqual(PKCS12Certificate const& left, PKCS12Certificate const& right)
{
    if (!left.getCertificate().empty() && !right.getCertificate().empty()) {
        return left == right && !(left != right);
    }
    bool equal = false;
    require(!succeeds([&] { equal = left == right; }), "bundles without a certificate cannot be compared");
    return left.getCertificate().empty() && right.getCertificate().empty() &&
           left.getCAChain() == right.getCAChain() && left.getPrivateKeyInfo() == right.getPrivateKeyInfo();
}

void checkStream(PKCS12Certificate const& bundle, ByteArray const& data, std::string const& passphrase)
{
    std::istringstream stream(std::string(data.begin(), data.end()));
    mustSucceed("what opens from bytes opens from a stream", [&] {
        require(
            areEqual(PKCS12Certificate(stream, passphrase), bundle),
            "a bundle opened from a stream is equal");
    });
}

void checkRoundTrip(PKCS12Certificate const& bundle, std::string const& passphrase)
{
    require(!bundle.empty(), "an opened bundle is not empty");
    auto const bytes = bundle.getAsBytes();
    mustSucceed("a written bundle opens with its passphrase", [&] {
        PKCS12Certificate const again(bytes, passphrase);
        require(areEqual(again, bundle), "a bundle opened from its bytes is equal");
        require(again.getAsBytes() == bytes, "a bundle opened from its bytes is written identically");
    });
}

void checkCopy(PKCS12Certificate const& bundle)
{
    PKCS12Certificate copy(bundle);
    require(areEqual(copy, bundle), "a copy is equal");
    PKCS12Certificate const moved(std::move(copy));
    require(areEqual(moved, bundle), "a moved bundle is equal");
    std::ostringstream report;
    succeeds([&] { report << bundle; });
    clearErrorQueue();
}

void checkCertificates(PKCS12Certificate const& bundle, Contents const& contents)
{
    auto const certificate = bundle.getCertificate();
    require(
        certificate.empty() == (contents.certificate == nullptr),
        "there is a certificate exactly if OpenSSL finds one");
    if (contents.certificate != nullptr) {
        require(
            certificate.getAsBytes() == test::toDer(contents.certificate),
            "the certificate is the one that OpenSSL finds");
    }
    auto const chain = bundle.getCAChain().getCertificates();
    require(
        static_cast<int>(chain.size()) == std::max(0, sk_X509_num(contents.others.get())),
        "the other certificates are as many as OpenSSL finds");
    for (int index = 0; index < static_cast<int>(chain.size()); ++index) {
        auto const expected = test::toDer(test::share(sk_X509_value(contents.others.get(), index)));
        require(
            chain[static_cast<std::size_t>(index)].getAsBytes() == expected,
            "the other certificates are those that OpenSSL finds");
    }
}

ByteArray privateNumberOf(test::KeyHandle const& key, char const* parameter)
{
    BIGNUM* number = nullptr;
    test::require(EVP_PKEY_get_bn_param(key.get(), parameter, &number));
    auto const owner = own(number);
    ByteArray bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

void checkKey(PKCS12Certificate const& bundle, Contents const& contents)
{
    auto const key = bundle.getPrivateKeyInfo();
    require(key.has_value() == (contents.key != nullptr), "there is a key exactly if OpenSSL finds one");
    ByteArray exponent;
    bool const given = succeeds([&] { exponent = bundle.getPrivateExponent(); });
    require(
        given == (!key || key->getType() == KeyType::RSA), "exactly a key that is not RSA has no exponent");
    if (!key) {
        require(exponent.empty(), "without a key the exponent is empty");
    } else if (key->getType() == KeyType::RSA) {
        require(
            exponent == privateNumberOf(contents.key, OSSL_PKEY_PARAM_RSA_D) &&
                exponent == key->getRSAPrivateExponent(),
            "the exponent is the one that OpenSSL finds");
    }
    clearErrorQueue();
}

/// The key's text is of the key that OpenSSL finds.
void checkKeyText(PKCS12Certificate const& bundle, Contents const& contents, std::string const& passphrase)
{
    std::string text;
    bool const given = succeeds([&] { text = toolkit::privateKeyAsPEM(bundle, passphrase).view(); });
    require(!given || contents.key != nullptr, "there is a text only if OpenSSL finds a key");
    if (given) {
        auto const bio = own(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        auto const key = own(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
        require(EVP_PKEY_eq(key.get(), contents.key.get()) == 1, "the text is of the key that OpenSSL finds");
    }
    clearErrorQueue();
}

struct Question
{
    std::string passphrase;
    /// Off for most inputs: most of the time is spent on decoding the keys of each loaded certificate.
    bool isThorough;
};

void checkContents(PKCS12Certificate const& bundle, ByteArray const& data, Question const& question)
{
    auto const contents = contentsOf(parse(data), question.passphrase);
    require(contents.has_value(), "a bundle opens only if OpenSSL opens it");
    checkCertificates(bundle, *contents);
    checkKey(bundle, *contents);
    if (question.isThorough) {
        checkKeyText(bundle, *contents, question.passphrase);
        checkStream(bundle, data, question.passphrase);
        checkRoundTrip(bundle, question.passphrase);
        checkCopy(bundle);
    }
}

void check(ByteArray const& data, Question const& question)
{
    std::optional<PKCS12Certificate> bundle;
    if (loads([&] { bundle.emplace(data, question.passphrase); })) {
        checkContents(*bundle, data, question);
    } else if (!data.empty()) {
        checkRefusal(data, question.passphrase);
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace foundation::fuzz;
    constexpr std::size_t longestPassphrase = 63;
    if (auto const input = splitInput(data, size, longestPassphrase)) {
        std::string const passphrase(input->text.begin(), input->text.end());
        bool const getsNewMac = (input->options & pkcs12_option::newMac) != 0;
        auto const bundle = getsNewMac ? withNewMac(input->container, passphrase) : input->container;
        if (!takesLong(bundle, passphrase)) {
            check(bundle, {passphrase, (input->options & pkcs12_option::thorough) != 0});
        }
    }
    return 0;
}
