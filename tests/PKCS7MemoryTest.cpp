#include "support/OpenSSLErrors.hpp"
#include "support/OpenSSLMemory.hpp"
#include "support/TestBundles.hpp"
#include "support/TestPki.hpp"
#include "support/Text.hpp"

#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

/// What becomes of each operation when OpenSSL is out of memory, at each of the allocations that it makes.
namespace {

constexpr char const notBuffered[] =
    "Internal error: The given certificate data could not be written to a buffer.";
constexpr char const contentNotBuffered[] =
    "Internal error: The given input data bytes could not be written to a buffer.";

using Texts = std::set<std::string>;

class PKCS7WithoutMemory : public testing::Test
{
protected:
    PKCS7WithoutMemory() { trusted.addCertificate(X509Certificate(root.der())); }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const signer = makeLeaf(root, "signer");
    Pkcs7Handle const signedData = makeSignedData("content", signer);
    PKCS7Certificate const loaded{toDer(signedData)};
    TrustStore trusted;
};

/// Verifies again and again, with so many allocations that every step-th has to do; gives the texts of the
/// exceptions, and counts how often all was found to be well.
struct Verification
{
    PKCS7Certificate const& data;
    TrustStore const& trusted;
    ByteArray const content;
    int numValid = 0;

    Texts run(long step)
    {
        return failuresWithoutMemory(
            [this] {
                CleanErrorQueue const clean;
                auto const results = data.verifySignature(X509CertificateChain(), trusted, content);
                numValid += results.isValidSignature() ? 1 : 0;
            },
            step);
    }
};

} // namespace

TEST_F(PKCS7WithoutMemory, NothingIsLoaded)
{
    std::string const pem = toPem(signedData);
    auto const der = toDer(signedData);
    for (auto const& data : {Bytes(pem.begin(), pem.end()), der}) {
        auto const failures = failuresWithoutMemory([&] {
            PKCS7Certificate const made(data);
            EXPECT_EQ(made.getNumCertificates(), 1u);
        });
        EXPECT_EQ(failures.count(notBuffered), 1u);
        for (auto const& text : failures) {
            EXPECT_TRUE(
                text == notBuffered || beginsWith(text, "Error: Loading a certificate failed. Reason=") ||
                beginsWith(text, "Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.") ||
                beginsWith(text, "Input "))
                << text;
        }
    }
}

TEST_F(PKCS7WithoutMemory, NothingIsWrittenOut)
{
    EXPECT_EQ(
        failuresWithoutMemory([&] { loaded.getAsString(); }), Texts{"Unable to write out the PKCS7 data"});
}

TEST_F(PKCS7WithoutMemory, ACopyHasTheCertificatesAndAtMostNoStructure)
{
    EXPECT_EQ(
        failuresWithoutMemory([&] {
            PKCS7Certificate const copy(loaded);
            EXPECT_EQ(copy.getNumCertificates(), 1u);
        }),
        Texts());
}

TEST_F(PKCS7WithoutMemory, ContentAndSignersAreNone)
{
    CleanErrorQueue const clean;
    EXPECT_EQ(
        failuresWithoutMemory([&] {
            auto const content = loaded.getSignedData();
            EXPECT_TRUE(content.empty() || content.size() == 7u);
        }),
        Texts());
    failuresWithoutMemory([&] { EXPECT_LE(loaded.getSignerCerts().getNumCertificates(), 1u); });
}

TEST_F(PKCS7WithoutMemory, WhatIsSoundIsFoundSoOrNot)
{
    Verification verification{loaded, trusted, {}};
    verification.run(7);
    EXPECT_GT(verification.numValid, 0);
}

TEST_F(PKCS7WithoutMemory, WhatIsNotSoundOrNotTrustedNeverPasses)
{
    PKCS7Certificate const tampered(toDer(withTamperedContent(signedData)));
    PKCS7Certificate const damaged(toDer(withDamagedSignature(signedData)));
    PKCS7Certificate const strangers(
        toDer(makeSignedData("content", makeLeaf(makeRoot("other root"), "stranger"))));
    for (auto const& data : {tampered, damaged, strangers}) {
        Verification verification{data, trusted, {}};
        verification.run(23);
        EXPECT_EQ(verification.numValid, 0);
    }
}

// With a structure OpenSSL would lose some of its own memory over content that lies apart.
TEST_F(PKCS7WithoutMemory, ContentThatLiesApartIsNotTaken)
{
    PKCS7Certificate const withoutStructure;
    Verification verification{withoutStructure, trusted, {'a', 'p', 'a', 'r', 't'}};
    EXPECT_EQ(verification.run(1).count(contentNotBuffered), 1u);
    EXPECT_EQ(verification.numValid, 0);
}
