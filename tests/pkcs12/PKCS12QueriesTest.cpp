#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"

#include "certificate/X509Access.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const uninitializedText[] = "Error: PKCS12Certificate is uninitialized.";
constexpr char const noContentText[] = "Error: X509Certificate has no content.";

Topology const& pki()
{
    static Topology const made({{"root", ""}, {"intermediate", "root"}, {"server", "intermediate"}});
    return made;
}

Bytes bundle(std::function<void(Pkcs12Spec&)> const& mutate = {})
{
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = pki()["server"].certificate;
    spec.key = pki()["server"].key;
    spec.furtherCertificates = {pki()["intermediate"].certificate, pki()["root"].certificate};
    if (mutate) {
        mutate(spec);
    }
    return toDer(makePkcs12(spec));
}

PKCS12Certificate opened(std::function<void(Pkcs12Spec&)> const& mutate = {})
{
    return PKCS12Certificate(bundle(mutate), "secret");
}

void withoutKey(Pkcs12Spec& spec)
{
    spec.key = nullptr;
}

void keyOnly(Pkcs12Spec& spec)
{
    spec.certificate = nullptr;
    spec.furtherCertificates.clear();
}

X509Certificate loaded(std::string const& name)
{
    return X509Certificate(pki()[name].der());
}

/// Returns the other certificates in the order of bare OpenSSL.
std::vector<X509Certificate> othersByOpenSSL(Bytes const& bytes)
{
    auto const parsed = own(d2i_PKCS12_bio(readerOf(bytes).get(), nullptr));
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* others = nullptr;
    require(PKCS12_parse(parsed.get(), "secret", &key, &certificate, &others));
    EVP_PKEY_free(key);
    X509_free(certificate);
    X509StackHandle const stack(others, [](STACK_OF(X509) * owned) { sk_X509_pop_free(owned, X509_free); });
    std::vector<X509Certificate> result;
    for (int index = 0; index < sk_X509_num(others); ++index) {
        result.emplace_back(toDer(share(sk_X509_value(others, index))));
    }
    return result;
}

BigNumberHandle numberOf(KeyHandle const& key, char const* name)
{
    BIGNUM* number = nullptr;
    require(EVP_PKEY_get_bn_param(key.get(), name, &number));
    return own(number);
}

ByteArray privateNumber(KeyHandle const& key, char const* name)
{
    auto const number = numberOf(key, name);
    ByteArray bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), bytes.data());
    return bytes;
}

/// Returns the RSA key with another private exponent, which signs in the same way: d + (p - 1)(q - 1) / 2.
KeyHandle withOtherPrivateExponent(KeyHandle const& key)
{
    auto const exponent = numberOf(key, OSSL_PKEY_PARAM_RSA_D);
    auto const first = numberOf(key, OSSL_PKEY_PARAM_RSA_FACTOR1);
    auto const second = numberOf(key, OSSL_PKEY_PARAM_RSA_FACTOR2);
    require(BN_sub_word(first.get(), 1));
    require(BN_sub_word(second.get(), 1));
    auto const period = own(BN_new());
    std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> const context(BN_CTX_new(), BN_CTX_free);
    require(BN_mul(period.get(), first.get(), second.get(), context.get()));
    require(BN_rshift1(period.get(), period.get()));
    require(BN_add(exponent.get(), exponent.get(), period.get()));

    std::map<char const*, BigNumberHandle> numbers;
    for (auto const* name :
         {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E, OSSL_PKEY_PARAM_RSA_FACTOR1,
          OSSL_PKEY_PARAM_RSA_FACTOR2, OSSL_PKEY_PARAM_RSA_EXPONENT1, OSSL_PKEY_PARAM_RSA_EXPONENT2,
          OSSL_PKEY_PARAM_RSA_COEFFICIENT1}) {
        numbers[name] = numberOf(key, name);
    }
    numbers[OSSL_PKEY_PARAM_RSA_D] = exponent;
    auto const builder = own(OSSL_PARAM_BLD_new());
    for (auto const& [name, number] : numbers) {
        require(OSSL_PARAM_BLD_push_BN(builder.get(), name, number.get()));
    }
    return keyFrom(*builder, "RSA", EVP_PKEY_KEYPAIR);
}

/// A buffer that runs an action when the first character is written.
class ActingBuffer : public std::stringbuf
{
public:
    explicit ActingBuffer(std::function<void()> firstAction) : action(std::move(firstAction)) {}

protected:
    std::streamsize xsputn(char const* text, std::streamsize length) override
    {
        if (action) {
            std::exchange(action, nullptr)();
        }
        return std::stringbuf::xsputn(text, length);
    }

private:
    std::function<void()> action;
};

} // namespace

TEST(PKCS12Queries, ObjectWithoutBundleHasNoContent)
{
    PKCS12Certificate const none;

    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.getAsBytes().empty());
    EXPECT_TRUE(none.getCertificate().empty());
    EXPECT_TRUE(none.getCAChain().empty());
    EXPECT_TRUE(none.getPrivateExponent().empty());
    EXPECT_FALSE(none.getPrivateKeyInfo().has_value());
}

TEST(PKCS12Queries, PartsOfTheBundleAreReturned)
{
    auto const bytes = bundle();
    PKCS12Certificate const loadedBundle(bytes, "secret");

    EXPECT_FALSE(loadedBundle.empty());
    EXPECT_EQ(loadedBundle.getCertificate(), loaded("server"));
    EXPECT_EQ(loadedBundle.getCAChain().getCertificates(), othersByOpenSSL(bytes));
    EXPECT_EQ(loadedBundle.getCAChain().getNumCertificates(), 2U);
}

TEST(PKCS12Queries, CertificateForgetsItsNamesInTheBundle)
{
    auto const leaf = makeLeaf(makeRoot("root"), "leaf");
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.friendlyName = "a friendly name";
    PKCS12Certificate const bundle(toDer(makePkcs12(spec)), "secret");
    auto const shared = X509Access::share(bundle.getCertificate());
    EXPECT_EQ(X509_alias_get0(shared.get(), nullptr), nullptr);
    EXPECT_EQ(X509_keyid_get0(shared.get(), nullptr), nullptr);
}

TEST(PKCS12Queries, CertificateMatchingTheKeyIsFoundAnywhere)
{
    auto const bytes = bundle([](Pkcs12Spec& spec) {
        spec.certificate = pki()["root"].certificate;
        spec.furtherCertificates = {
            pki()["intermediate"].certificate, pki()["server"].certificate, pki()["root"].certificate};
    });
    PKCS12Certificate const loadedBundle(bytes, "secret");

    EXPECT_EQ(loadedBundle.getCertificate(), loaded("server"));
    EXPECT_EQ(loadedBundle.getCAChain().getNumCertificates(), 3U);
    EXPECT_EQ(loadedBundle.getCAChain().getCertificates(), othersByOpenSSL(bytes));
}

TEST(PKCS12Queries, CertificatesNotMatchingTheKeyAreAllOthers)
{
    auto const loadedBundle = opened([](Pkcs12Spec& spec) { spec.key = p256Key("other"); });

    EXPECT_TRUE(loadedBundle.getCertificate().empty());
    EXPECT_EQ(loadedBundle.getCAChain().getNumCertificates(), 3U);
    EXPECT_TRUE(loadedBundle.getPrivateKeyInfo().has_value());
}

TEST(PKCS12Queries, BundleWithoutKeyHasOnlyOthers)
{
    auto const bytes = bundle(withoutKey);
    PKCS12Certificate const loadedBundle(bytes, "secret");

    EXPECT_FALSE(loadedBundle.empty());
    EXPECT_FALSE(loadedBundle.getPrivateKeyInfo().has_value());
    EXPECT_TRUE(loadedBundle.getPrivateExponent().empty());
    EXPECT_TRUE(loadedBundle.getCertificate().empty());
    EXPECT_EQ(loadedBundle.getCAChain().getCertificates(), othersByOpenSSL(bytes));
    EXPECT_EQ(loadedBundle.getCAChain().getNumCertificates(), 3U);
}

TEST(PKCS12Queries, BundleWithOnlyAKeyHasNoCertificates)
{
    auto const bytes = bundle(keyOnly);
    PKCS12Certificate const loadedBundle(bytes, "secret");

    EXPECT_FALSE(loadedBundle.empty());
    EXPECT_TRUE(loadedBundle.getCertificate().empty());
    EXPECT_TRUE(loadedBundle.getCAChain().empty());
    EXPECT_TRUE(loadedBundle.getPrivateKeyInfo().has_value());
    EXPECT_EQ(loadedBundle.getAsBytes(), bytes);
}

TEST(PKCS12Queries, RsaKeyReturnsItsExponent)
{
    auto const key = rsaKey(2048);
    auto const loadedBundle = opened([&](Pkcs12Spec& spec) { spec.key = key; });
    auto const exponent = privateNumber(key, OSSL_PKEY_PARAM_RSA_D);

    EXPECT_EQ(loadedBundle.getPrivateExponent(), exponent);
    ASSERT_TRUE(loadedBundle.getPrivateKeyInfo().has_value());
    EXPECT_EQ(*loadedBundle.getPrivateKeyInfo(), PrivateKeyInfo(exponent));
}

TEST(PKCS12Queries, EccKeyReturnsItsIntegerAndNoExponent)
{
    auto const loadedBundle = opened();

    ASSERT_TRUE(loadedBundle.getPrivateKeyInfo().has_value());
    EXPECT_EQ(
        *loadedBundle.getPrivateKeyInfo(),
        PrivateKeyInfo(
            privateNumber(pki()["server"].key, OSSL_PKEY_PARAM_PRIV_KEY), EllipticCurve::Prime256v1));
    EXPECT_THROWS_EXACTLY(
        NotRSAKey, "Cannot get the private exponent from the key because it is not an RSA key.",
        loadedBundle.getPrivateExponent());
}

TEST(PKCS12Queries, Ed25519KeyReturnsItsRawKey)
{
    auto const key = ed25519Key();
    auto const loadedBundle = opened([&](Pkcs12Spec& spec) { spec.key = key; });
    ByteArray raw(32);
    std::size_t length = raw.size();
    require(EVP_PKEY_get_raw_private_key(key.get(), raw.data(), &length));

    ASSERT_TRUE(loadedBundle.getPrivateKeyInfo().has_value());
    EXPECT_EQ(*loadedBundle.getPrivateKeyInfo(), PrivateKeyInfo(raw, EllipticCurve::Ed25519));
}

TEST(PKCS12Queries, BundleIsWrittenAsLoaded)
{
    auto const bytes = bundle();
    PKCS12Certificate const loadedBundle(bytes, "secret");

    EXPECT_EQ(loadedBundle.getAsBytes(), bytes);
    EXPECT_EQ(PKCS12Certificate(loadedBundle.getAsBytes(), "secret"), loadedBundle);
    EXPECT_THROWS_WITH_PREFIX(
        IncorrectPassphrase, "Input passphrase is incorrect. OpenSSL error message=",
        PKCS12Certificate(loadedBundle.getAsBytes(), "other"));
}

TEST(PKCS12Queries, PrintShowsCertificatesAndNotTheKey)
{
    auto const loadedBundle = opened();

    EXPECT_EQ(
        streamed(loadedBundle), "Printing PKCS12 certificate.\nCertificate: \n" +
                                    streamed(loadedBundle.getCertificate()) + "\nCA Chain: \n" +
                                    streamed(loadedBundle.getCAChain()) + "\n");
}

TEST(PKCS12Queries, PrintWithoutCertificateFailsAfterTheHeading)
{
    for (auto const& bundleWithout : {PKCS12Certificate(), opened(keyOnly), opened(withoutKey)}) {
        std::ostringstream out;
        EXPECT_THROWS_EXACTLY(X509CertificateException, noContentText, bundleWithout.print(out));
        EXPECT_EQ(out.str(), "Printing PKCS12 certificate.\nCertificate: \n");
    }
}

TEST(PKCS12Equality, OnlyCertificatesAndKeyAreCompared)
{
    auto const first = opened();

    EXPECT_TRUE(first == opened());
    EXPECT_FALSE(first != opened());
    EXPECT_EQ(first, opened([](Pkcs12Spec& spec) { spec.friendlyName = "another name"; }));
    EXPECT_NE(first, opened([](Pkcs12Spec& spec) { spec.furtherCertificates.pop_back(); }));
    EXPECT_NE(first, opened([](Pkcs12Spec& spec) {
                  std::swap(spec.furtherCertificates.front(), spec.furtherCertificates.back());
              }));
    EXPECT_NE(first, opened([](Pkcs12Spec& spec) {
                  auto const other = makeSelfSignedLeaf("other");
                  spec.certificate = other.certificate;
                  spec.key = other.key;
              }));
}

TEST(PKCS12Equality, PrivateKeyAloneMakesADifference)
{
    auto const server = makeSelfSignedLeaf("server", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    auto const openedWith = [&](KeyHandle const& key) {
        return opened([&](Pkcs12Spec& spec) {
            spec.certificate = server.certificate;
            spec.key = key;
        });
    };
    auto const first = openedWith(server.key);
    auto const second = openedWith(withOtherPrivateExponent(server.key));

    EXPECT_EQ(first.getCertificate(), second.getCertificate());
    EXPECT_EQ(first.getCAChain(), second.getCAChain());
    EXPECT_FALSE(first == second);
    EXPECT_TRUE(first != second);
}

TEST(PKCS12Equality, ObjectsWithoutCertificateThrow)
{
    auto const whole = opened();
    auto const withoutCertificate = opened(keyOnly);

    EXPECT_THROWS_EXACTLY(X509CertificateException, noContentText, withoutCertificate == withoutCertificate);
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContentText, whole == withoutCertificate);
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContentText, withoutCertificate != whole);
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noContentText, PKCS12Certificate() == PKCS12Certificate());
}

TEST(PKCS12Equality, UninitializedObjectThrowsOnEitherSide)
{
    auto source = opened();
    PKCS12Certificate const taken(std::move(source));

    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, source == taken);
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, taken == source);
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, source != source);
}

TEST(PKCS12Equality, ComparisonWithItselfDoesNotBlock)
{
    auto const loadedBundle = opened();

    EXPECT_TRUE(loadedBundle == loadedBundle);
    EXPECT_FALSE(loadedBundle != loadedBundle);
}

TEST(PKCS12Equality, RightSideIsNotLocked)
{
    auto const left = opened();
    auto const right = opened();
    bool equal = false;
    ActingBuffer buffer([&] { equal = left == right; });
    std::ostream out(&buffer);

    right.print(out); // holds the lock of `right` while it writes

    EXPECT_TRUE(equal);
}

TEST(PKCS12Copies, CopiesAreEqualAndOutliveTheirSource)
{
    PKCS12Certificate copy;
    Bytes const bytes = bundle();
    {
        PKCS12Certificate const source(bytes, "secret");
        copy = source;
        EXPECT_EQ(copy, source);
        EXPECT_EQ(PKCS12Certificate(source), source);
    }

    EXPECT_EQ(copy.getAsBytes(), bytes);
    EXPECT_EQ(copy.getCertificate(), loaded("server"));
}

TEST(PKCS12Copies, UninitializedObjectCannotBeCopied)
{
    auto source = opened();
    PKCS12Certificate const taken(std::move(source));
    PKCS12Certificate target = taken;

    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, PKCS12Certificate(source));
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, target = source);
    EXPECT_EQ(target, taken);
}

TEST(PKCS12Copies, ConstructionMovesAndAssignmentExchanges)
{
    auto first = opened();
    PKCS12Certificate second(std::move(first));
    std::ostringstream out;
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.empty());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.getAsBytes());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.getCertificate());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.getCAChain());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.getPrivateExponent());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.getPrivateKeyInfo());
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, uninitializedText, first.print(out));
    EXPECT_EQ(out.str(), "");

    PKCS12Certificate third;
    third = std::move(second);
    EXPECT_EQ(third.getCertificate(), loaded("server"));
    EXPECT_TRUE(second.empty());

    first = third;
    EXPECT_EQ(first, third);
}

TEST(PKCS12Threads, ThreadsOpenAndReadAtOnce)
{
    auto const bytes = bundle();
    PKCS12Certificate const shared(bytes, "secret");
    std::atomic<int> agreements{0};
    inParallel(4, [&](int) {
        for (int round = 0; round < 10; ++round) {
            PKCS12Certificate const mine(bytes, "secret");
            PKCS12Certificate const copy(shared);
            agreements += copy == mine && copy.getAsBytes() == shared.getAsBytes() ? 1 : 0;
        }
    });

    EXPECT_EQ(agreements, 40);
}
