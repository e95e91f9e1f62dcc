// OpenSSL's newer interface cannot replace the random number generator.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "Comparison.hpp"
#include "Material.hpp"

#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"

#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

namespace foundation::benchmarks {

namespace {

constexpr double containerTarget = 1.05;
constexpr std::size_t mebibyte = 1024U * 1024U;

struct SignedData
{
    ByteArray der;
    PKCS7Certificate library;
    PKCS7UPtr bare;
    /// Holds the signer's root.
    TrustStore store;
    /// Holds as many roots, but not the signer's.
    TrustStore otherStore;
    std::shared_ptr<X509_STORE> bareStore;
    std::shared_ptr<X509_STORE> bareOtherStore;
};

PKCS7UPtr parse(ByteArray const& der)
{
    unsigned char const* position = der.data();
    return makePKCS7(d2i_PKCS7(nullptr, &position, static_cast<long>(der.size())));
}

PKCS7UPtr parseAndCheckKeys(ByteArray const& der)
{
    auto parsed = parse(der);
    auto const* const certificates = parsed->d.sign->cert;
    for (int index = 0; index < sk_X509_num(certificates); ++index) {
        if (!hasFitKey(sk_X509_value(certificates, index))) {
            return makePKCS7(nullptr);
        }
    }
    return parsed;
}

enum class Content
{
    Embedded,
    Detached
};

SignedData makeSigned(std::size_t size, Content content, std::size_t rootCount)
{
    auto const root = test::makeRoot("Signing Root");
    auto const signer = test::makeLeaf(root, "Signer");
    test::SignedDataSpec spec;
    spec.content = std::string(size, 'x');
    spec.signers = {signer};
    spec.detached = content == Content::Detached;
    ByteArray const der = test::toDer(test::makeSignedData(spec));
    auto const others = roots(rootCount);
    auto trusted = roots(rootCount - 1);
    trusted.push_back(root);
    return {
        der,
        PKCS7Certificate(der),
        parse(der),
        storeOf(trusted),
        storeOf(others),
        bareStore(trusted),
        bareStore(others)};
}

int bareVerify(SignedData const& data, BIO* content)
{
    return PKCS7_verify(
        data.bare.get(), nullptr, data.bareStore.get(), content, nullptr, PKCS7_NO_DUAL_CONTENT);
}

int bareVerifyInPlace(SignedData const& data, ByteArray const& content)
{
    auto const reader = makeBIO(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    return bareVerify(data, reader.get());
}

/// Returns the reason why the chain of the first signer is not trusted, although the signatures are valid.
std::string bareReason(SignedData const& data)
{
    PKCS7* const signedData = data.bare.get();
    int const withChain =
        PKCS7_verify(signedData, nullptr, data.bareOtherStore.get(), nullptr, nullptr, PKCS7_NO_DUAL_CONTENT);
    bool const chainFailed =
        withChain != 1 && ERR_GET_REASON(ERR_peek_last_error()) == PKCS7_R_CERTIFICATE_VERIFY_ERROR;
    ERR_clear_error();
    if (!chainFailed || PKCS7_verify(signedData, nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY) != 1) {
        return {};
    }
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> const signers(
        PKCS7_get0_signers(signedData, nullptr, 0), [](STACK_OF(X509) * stack) { sk_X509_free(stack); });
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), data.bareOtherStore.get(), sk_X509_value(signers.get(), 0), nullptr);
    X509_verify_cert(context.get());
    return X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

ByteArray bareContent(SignedData const& data)
{
    auto const out = makeBIO(BIO_new(BIO_s_mem()));
    PKCS7_verify(
        data.bare.get(), nullptr, nullptr, nullptr, out.get(), PKCS7_NOVERIFY | PKCS7_NO_DUAL_CONTENT);
    char* bytes = nullptr;
    long const length = BIO_get_mem_data(out.get(), &bytes);
    return ByteArray(bytes, bytes + length);
}

void expectSound(bool sound)
{
    if (!sound) {
        throw std::logic_error("the outcome of a verification that is to be measured is wrong");
    }
}

Lazy<SignedData> makeChecked(std::size_t size, Content content, std::size_t rootCount)
{
    return Lazy<SignedData>([=] {
        auto data = makeSigned(size, content, rootCount);
        ByteArray const detached(content == Content::Detached ? size : 0, static_cast<unsigned char>('x'));
        auto const results = data.library.verifySignature({}, data.store, detached);
        expectSound(results.isValidSignature());
        expectSound((detached.empty() ? bareVerify(data, nullptr) : bareVerifyInPlace(data, detached)) == 1);
        return data;
    });
}

/// What the page expects of one size of content.
struct SizeOfContent
{
    std::string name;
    std::size_t bytes;
    Effort effort;
    std::optional<double> loadTarget;
    std::optional<double> verifyTarget;
    std::optional<double> contentTarget;
    std::optional<double> detachedTarget;
};

SizeOfContent smallContent()
{
    SizeOfContent size{"1 KiB", 1024, {}, {}, {}, {}, {}};
    size.verifyTarget = 1.8;
    return size;
}

SizeOfContent mediumContent()
{
    return {"1 MiB", mebibyte, {}, {}, {}, {}, {}};
}

SizeOfContent largeContent()
{
    SizeOfContent size{"64 MiB", 64 * mebibyte, {1, 9}, {}, {}, {}, {}};
    size.loadTarget = 1.15;
    size.verifyTarget = containerTarget;
    size.contentTarget = containerTarget;
    size.detachedTarget = 1.0;
    return size;
}

constexpr std::size_t typicalCount = 150;

void noteMemoryOf(
    SizeOfContent const& size, std::string const& operation, Comparison const& comparison,
    std::optional<std::int64_t> target = std::nullopt)
{
    if (size.bytes > mebibyte) {
        noteMemory("PKCS#7, " + operation + ": peak", Quantity::Peak, comparison, target);
    }
}

void addEmbedded(SizeOfContent const& size)
{
    auto const data = makeChecked(size.bytes, Content::Embedded, typicalCount);
    auto const& loaded = compare(
        "load, " + size.name, size.loadTarget, [data] { return PKCS7Certificate(data->der); },
        [data] { return parseAndCheckKeys(data->der); }, size.effort);
    auto const& verified = compare(
        "verify, " + size.name + ", 150 roots", size.verifyTarget,
        [data] { return data->library.verifySignature({}, data->store, {}); },
        [data] { return bareVerify(*data, nullptr); }, size.effort);
    auto const& read = compare(
        "content, " + size.name, size.contentTarget, [data] { return data->library.getSignedData(); },
        [data] { return bareContent(*data); }, size.effort);
    noteMemoryOf(size, "load of " + size.name, loaded);
    noteMemoryOf(size, "verification of " + size.name, verified);
    noteMemoryOf(size, "content of " + size.name, read);
}

void addDetached(SizeOfContent const& size)
{
    auto const data = makeChecked(size.bytes, Content::Detached, typicalCount);
    Lazy<ByteArray> const content([size] { return ByteArray(size.bytes, static_cast<unsigned char>('x')); });
    auto const& verified = compare(
        "verify detached, " + size.name + ", 150 roots", size.detachedTarget,
        [data, content] { return data->library.verifySignature({}, data->store, *content); },
        [data, content] { return bareVerifyInPlace(*data, *content); }, size.effort);
    noteMemoryOf(
        size, "verification of " + size.name + ", detached", verified, static_cast<std::int64_t>(mebibyte));
}

void addUntrusted()
{
    constexpr double untrustedTarget = 2;
    constexpr std::size_t kibibyte = 1024;
    auto const data = makeChecked(kibibyte, Content::Embedded, typicalCount);
    compare(
        "verify, 1 KiB, 150 roots, untrusted signer", untrustedTarget,
        [data] {
            auto const results = data->library.verifySignature({}, data->otherStore, {});
            expectSound(results.getCertificateChainStatus() == CertificateChainStatus::Untrusted);
            return results;
        },
        [data] {
            auto const reason = bareReason(*data);
            expectSound(!reason.empty());
            return reason;
        });
}

void addSignedData()
{
    beginGroup(
        "PKCS#7",
        "For the largest content the digest dominates. OpenSSL's side decodes the bytes where they are, and\n"
        "loads check the keys of the embedded certificates. It verifies with one shared `X509_STORE`, and\n"
        "reads detached content in place (`BIO_new_mem_buf`). For the smallest content the library's handle\n"
        "of the store and its view for each call remain.\n"
        "\n"
        "The signer of the last row is not trusted. OpenSSL's side verifies twice, as the library does: "
        "with\n"
        "the chain, which fails, and without it, which tells a wrong signature from an untrusted signer.\n"
        "Then it validates the signer's certificate for the reason.");
    for (SizeOfContent const& size : {smallContent(), mediumContent(), largeContent()}) {
        addEmbedded(size);
        addDetached(size);
    }
    addUntrusted();
}

struct BareBundle
{
    EVP_PKEYUPtr key;
    X509UPtr certificate;
    X509StackUPtr others;
    ByteArray secret;
};

/// Checks the MAC first, to tell a wrong passphrase from a damaged bundle. The parser checks it again.
BareBundle open(ByteArray const& der, std::string const& passphrase)
{
    unsigned char const* position = der.data();
    auto const bundle = makePKCS12(d2i_PKCS12(nullptr, &position, static_cast<long>(der.size())));
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* others = nullptr;
    OSSL_PROVIDER_load(nullptr, "legacy");
    if (PKCS12_verify_mac(bundle.get(), passphrase.c_str(), static_cast<int>(passphrase.size())) == 1) {
        PKCS12_parse(bundle.get(), passphrase.c_str(), &key, &certificate, &others);
    }
    BareBundle opened{makeEVP_PKEY(key), makeX509(certificate), makeX509Stack(others), {}};
    hasFitKey(certificate);
    BIGNUM* exponent = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &exponent);
    auto const number = makeBIGNUM(exponent);
    opened.secret.resize(static_cast<std::size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), opened.secret.data());
    return opened;
}

void addBundles()
{
    beginGroup(
        "PKCS#12",
        "The bundle has an RSA-2048 key, its certificate and two others, with 2,048 rounds of key\n"
        "derivation. Both sides check the MAC before they parse, to tell a wrong passphrase from a damaged\n"
        "bundle.");
    auto const root = test::makeRoot("Bundle Root");
    auto const chain = chainBelow(root, 2);
    test::Pkcs12Spec spec;
    spec.passphrase = "a passphrase";
    spec.certificate = chain.front().certificate;
    spec.key = chain.front().key;
    spec.furtherCertificates = {chain.back().certificate, root.certificate};
    spec.iterations = PKCS12_DEFAULT_ITER;
    ByteArray const der = test::toDer(test::makePkcs12(spec));
    compare(
        "load", containerTarget, [der] { return PKCS12Certificate(der, "a passphrase"); },
        [der] { return open(der, "a passphrase"); });
}

std::mt19937_64& numbers()
{
    static std::mt19937_64 generator;
    return generator;
}

int drawBytes(unsigned char* bytes, int count)
{
    for (int index = 0; index < count; ++index) {
        bytes[index] = static_cast<unsigned char>(numbers()());
    }
    return 1;
}

/// During its lifetime OpenSSL's random numbers depend on the seed alone. The time to find primes varies with
/// them, so both sides get the same numbers.
class FixedRandomNumbers
{
public:
    explicit FixedRandomNumbers(unsigned seed)
    {
        static RAND_METHOD const method{nullptr, drawBytes, nullptr, nullptr, drawBytes, nullptr};
        numbers().seed(seed);
        RAND_set_rand_method(&method);
    }
    ~FixedRandomNumbers() { RAND_set_rand_method(nullptr); }
    FixedRandomNumbers(FixedRandomNumbers const&) = delete;
    FixedRandomNumbers& operator=(FixedRandomNumbers const&) = delete;
};

void addExtension(X509* certificate, int nid, char const* text)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    auto const extension = makeX509_EXTENSION(X509V3_EXT_conf_nid(nullptr, &context, nid, text));
    X509_add_ext(certificate, extension.get(), -1);
}

void fill(X509* certificate, EVP_PKEY* key)
{
    auto const serial = makeBIGNUM(BN_new());
    BN_rand(serial.get(), 64, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY);
    BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate));
    X509_set_version(certificate, X509_VERSION_3);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 365L * 86400);
    X509_set_pubkey(certificate, key);
    X509_NAME* const name = X509_get_subject_name(certificate);
    for (char const* field : {"CN", "C", "ST", "L", "O", "OU"}) {
        auto const* const value = reinterpret_cast<unsigned char const*>("XX");
        X509_NAME_add_entry_by_txt(name, field, MBSTRING_ASC, value, -1, -1, 0);
    }
    X509_set_issuer_name(certificate, name);
    addExtension(certificate, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    addExtension(certificate, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, NID_key_usage, "critical,digitalSignature,keyEncipherment");
    addExtension(certificate, NID_ext_key_usage, "serverAuth");
}

struct BareBuild
{
    X509UPtr certificate;
    BIOUPtr key;
};

BareBuild bareBuild(unsigned bits)
{
    auto const key = makeEVP_PKEY(EVP_RSA_gen(bits));
    auto certificate = makeX509(X509_new());
    fill(certificate.get(), key.get());
    auto const context = makeEVP_MD_CTX(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyContext = nullptr;
    EVP_DigestSignInit(context.get(), &keyContext, EVP_sha512(), nullptr, key.get());
    EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING);
    EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_MAX_SIGN);
    X509_sign_ctx(certificate.get(), context.get());
    auto pem = makeBIO(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(pem.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    return {std::move(certificate), std::move(pem)};
}

void addBuild(unsigned bits, RSAPrivateKeySize size, Effort effort)
{
    // As many seeds as iterations, so each repetition uses each seed once.
    auto const seeds = static_cast<unsigned>(effort.iterations);
    auto const turns = std::make_shared<std::pair<unsigned, unsigned>>(0, 0);
    compare(
        "RSA-" + std::to_string(bits), containerTarget,
        [=] {
            FixedRandomNumbers const fixed(turns->first++ % seeds);
            return SelfSignedCertBuilder().withPrivateKeySize(size).build();
        },
        [=] {
            FixedRandomNumbers const fixed(turns->second++ % seeds);
            return bareBuild(bits);
        },
        effort);
}

void addBuilds()
{
    beginGroup(
        "Self-signed certificates",
        "The search for primes takes nearly all of the time. Both sides use the same random numbers, so\n"
        "they find the same primes. The library writes the key as text and loads its certificate from text.");
    addBuild(2048, RSAPrivateKeySize::Bits2048, {8, 5});
    addBuild(4096, RSAPrivateKeySize::Bits4096, {3, 3});
}

} // namespace

void addContainerBenchmarks()
{
    addSignedData();
    addBundles();
    addBuilds();
}

} // namespace foundation::benchmarks
