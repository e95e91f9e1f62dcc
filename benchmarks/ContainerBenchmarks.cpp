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
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <ctime>
#include <memory>
#include <random>
#include <stdexcept>

namespace foundation::benchmarks {

namespace {

constexpr double containerTarget = 1.05;
constexpr std::size_t mebibyte = 1024U * 1024U;

struct SignedData
{
    ByteArray der;
    PKCS7Certificate library;
    PKCS7UPtr bare;
    TrustStore store;
    std::shared_ptr<X509_STORE> bareStore;
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

std::shared_ptr<SignedData> makeSigned(std::string content, bool detached)
{
    auto const root = test::makeRoot("Signing Root");
    auto const signer = test::makeLeaf(root, "Signer");
    test::SignedDataSpec spec;
    spec.content = std::move(content);
    spec.signers = {signer};
    spec.detached = detached;
    ByteArray const der = test::toDer(test::makeSignedData(spec));
    return std::make_shared<SignedData>(
        SignedData{der, PKCS7Certificate(der), parse(der), storeOf({root}), bareStore({root})});
}

int bareVerify(SignedData const& data, BIO* content)
{
    auto const store = bareCopy(data.bareStore.get());
    return PKCS7_verify(data.bare.get(), nullptr, store.get(), content, nullptr, PKCS7_NO_DUAL_CONTENT);
}

int bareVerifyInPlace(SignedData const& data, ByteArray const& content)
{
    auto const reader = makeBIO(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    return bareVerify(data, reader.get());
}

int bareVerifyWritten(SignedData const& data, ByteArray const& content)
{
    auto const bio = makeBIO(BIO_new(BIO_s_mem()));
    BIO_write(bio.get(), content.data(), static_cast<int>(content.size()));
    return bareVerify(data, bio.get());
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
        throw std::logic_error("signed data that is to be measured does not verify");
    }
}

void addSignedDataOf(std::string const& sizeName, std::size_t size)
{
    bool const isLarge = size > mebibyte;
    Effort const effort = isLarge ? Effort{1, 9} : Effort{};
    auto const ifLarge = isLarge ? std::optional<double>(containerTarget) : std::nullopt;
    auto const data = makeSigned(std::string(size, 'x'), false);
    expectSound(data->library.verifySignature({}, data->store, {}).isValidSignature());
    expectSound(bareVerify(*data, nullptr) == 1);
    compare(
        "load, " + sizeName, std::nullopt, [data] { return PKCS7Certificate(data->der); },
        [data] { return parseAndCheckKeys(data->der); }, effort);
    compare(
        "verify, " + sizeName, ifLarge, [data] { return data->library.verifySignature({}, data->store, {}); },
        [data] { return bareVerify(*data, nullptr); }, effort);
    compare(
        "content, " + sizeName, ifLarge, [data] { return data->library.getSignedData(); },
        [data] { return bareContent(*data); }, effort);

    auto const detached = makeSigned(std::string(size, 'x'), true);
    auto const content = std::make_shared<ByteArray>(size, static_cast<unsigned char>('x'));
    expectSound(detached->library.verifySignature({}, detached->store, *content).isValidSignature());
    auto const library = [detached, content] {
        return detached->library.verifySignature({}, detached->store, *content);
    };
    compare(
        "verify detached, " + sizeName, ifLarge, library,
        [detached, content] { return bareVerifyInPlace(*detached, *content); }, effort);
    if (isLarge) {
        compare(
            "verify detached, " + sizeName + ", memory BIO too", containerTarget, library,
            [detached, content] { return bareVerifyWritten(*detached, *content); }, effort);
    }
}

void addSignedData()
{
    beginGroup(
        "PKCS#7",
        "For the largest content the digest dominates. A load writes the bytes into a memory BIO and lets\n"
        "OpenSSL read them from it: two more copies, in buffers that grow and are cleared and wiped. It\n"
        "also duplicates the certificates. Detached content goes into a memory BIO as well. The last row\n"
        "includes this in OpenSSL's time. For the smallest content the trust store dominates: the library\n"
        "works on a copy of a copy, OpenSSL's side on a copy.");
    addSignedDataOf("1 KiB", 1024);
    addSignedDataOf("1 MiB", mebibyte);
    addSignedDataOf("64 MiB", 64 * mebibyte);
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
        "bundle. The library then duplicates the three certificates, which parses each again. The second\n"
        "row includes this in OpenSSL's time.");
    auto const root = test::makeRoot("Bundle Root");
    auto const chain = chainBelow(root, 2);
    test::Pkcs12Spec spec;
    spec.passphrase = "a passphrase";
    spec.certificate = chain.front().certificate;
    spec.key = chain.front().key;
    spec.furtherCertificates = {chain.back().certificate, root.certificate};
    spec.iterations = PKCS12_DEFAULT_ITER;
    ByteArray const der = test::toDer(test::makePkcs12(spec));
    auto const library = [der] { return PKCS12Certificate(der, "a passphrase"); };
    compare("load", containerTarget, library, [der] { return open(der, "a passphrase"); });
    compare("load, duplicates too", containerTarget, library, [der] {
        auto bundle = open(der, "a passphrase");
        bundle.certificate = makeX509(X509_dup(bundle.certificate.get()));
        auto duplicates = makeX509Stack(sk_X509_deep_copy(
            bundle.others.get(), [](X509 const* x) { return X509_dup(x); }, X509_free));
        bundle.others = std::move(duplicates);
        return bundle;
    });
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
