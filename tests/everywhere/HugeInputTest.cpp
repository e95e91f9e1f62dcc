#include "certificate/X509Duplicates.hpp"

#include "support/Text.hpp"
#include "support/allocation/HugeAllocations.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/SelfSigned.hpp"
#include "support/pki/TestBundles.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

// OpenSSL counts in int and long. In 32 bits, the size of four gibibytes and a few bytes reads as those few
// bytes. Each input here begins with few bytes that are valid alone.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr std::size_t little = std::size_t{1} << 16;
constexpr std::size_t fourGibibytes = std::size_t{1} << 32;

constexpr char const notWrittenText[] =
    "Internal error: The given certificate data could not be written to a buffer.";

class HugeInput : public testing::Test
{
protected:
    /// Returns the beginning followed by zeros. All tests share one array.
    static ByteArray const& bytesWith(Bytes const& beginning)
    {
        static ByteArray bytes(fourGibibytes + little);
        EXPECT_GE(numHugeAllocations(), 1U);
        std::fill_n(bytes.begin(), little, static_cast<unsigned char>(0));
        std::copy(beginning.begin(), beginning.end(), bytes.begin());
        return bytes;
    }

    static std::string textWith(std::string const& beginning, char filling)
    {
        std::string text(fourGibibytes + little, filling);
        std::copy(beginning.begin(), beginning.end(), text.begin());
        return text;
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const leaf = makeLeaf(root, "leaf");
};

constexpr char const failureText[] = "Failed to generate a certificate: 0";

} // namespace

TEST_F(HugeInput, IsRefusedAsCertificate)
{
    for (auto const& beginning : {leaf.der(), asBytes(leaf.pem())}) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, notWrittenText, X509Certificate(bytesWith(beginning)));
    }
    EXPECT_EQ(x509FromDER(bytesWith(leaf.der())), nullptr);
}

TEST_F(HugeInput, IsRefusedAsChain)
{
    CleanErrorQueue const clean;
    auto const nothing = own(BIO_new(BIO_s_mem()));
    sk_X509_INFO_pop_free(PEM_X509_INFO_read_bio(nothing.get(), nullptr, nullptr, nullptr), X509_INFO_free);
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException,
        "Error: Loading a certificate chain failed. Reason=" + oldestReasonText(),
        X509CertificateChain(textWith(leaf.pem(), 'x')));
}

TEST_F(HugeInput, IsRefusedAsSignedData)
{
    auto const& bytes = bytesWith(toDer(makeSignedData("content", leaf)));
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, notWrittenText, PKCS7Certificate{bytes});
}

TEST_F(HugeInput, IsRefusedAsDetachedContent)
{
    SignedDataSpec spec;
    spec.content = std::string(little, '\0');
    spec.signers = {leaf};
    spec.detached = true;
    PKCS7Certificate const signedData(toDer(makeSignedData(spec)));
    auto const trusted = storeOf({root});

    EXPECT_TRUE(
        signedData.verifySignature(X509CertificateChain(), trusted, ByteArray(little)).isValidSignature());
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException,
        "Internal error: The given input data bytes could not be written to a buffer.",
        signedData.verifySignature(X509CertificateChain(), trusted, bytesWith({})));
}

TEST_F(HugeInput, IsRefusedAsBundle)
{
    auto const& bytes = bytesWith(toDer(makePkcs12(leaf, "secret")));
    EXPECT_THROWS_EXACTLY(PKCS12CertificateException, notWrittenText, PKCS12Certificate(bytes, "secret"));
}

TEST_F(HugeInput, IsRefusedAsPassphrase)
{
    std::string const secret(little, 'x');
    auto const bytes = toDer(makePkcs12(leaf, secret));
    auto const passphrase = textWith("", 'x');
    EXPECT_FALSE(PKCS12Certificate(bytes, secret).empty());
    EXPECT_THROWS_EXACTLY(
        IncorrectPassphrase,
        "Input passphrase is incorrect. OpenSSL error message=", PKCS12Certificate(bytes, passphrase));
}

// The builder must not truncate a name, or encrypt a key with a truncated passphrase.

TEST_F(HugeInput, IsRefusedAsCommonName)
{
    CleanErrorQueue const clean;
    auto builder = fastBuilder();
    builder.withCommonName(textWith("example.org", 'x'));
    EXPECT_THROWS_EXACTLY(std::runtime_error, failureText, builder.build());
}

TEST_F(HugeInput, IsRefusedAsAlternativeName)
{
    CleanErrorQueue const clean;
    auto builder = fastBuilder();
    std::set<std::string> names;
    names.insert(textWith("DNS:example.org", 'x'));
    builder.withAdditionalSubjectAltNames(std::move(names));
    EXPECT_THROWS_EXACTLY(std::runtime_error, failureText, builder.build());
}

TEST_F(HugeInput, IsRefusedAsBuilderPassphrase)
{
    CleanErrorQueue const clean;
    auto builder = fastBuilder();
    builder.withPrivateKeyPassphrase(textWith("secret", 'x'));
    EXPECT_THROWS_EXACTLY(std::runtime_error, failureText, builder.build());
    EXPECT_THROWS_EXACTLY(std::runtime_error, failureText, builder.buildAndGetKeyBytesInPKCS12());
}
