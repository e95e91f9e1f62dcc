#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"

#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr int numThreads = 4;
constexpr int numRounds = 15;

class PKCS7Threads : public testing::Test
{
protected:
    PKCS7Threads() { trusted.addCertificate(X509Certificate(root.der())); }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const signer = makeLeaf(root, "signer");
    PKCS7Certificate shared{toDer(makeSignedData("content", signer))};
    TrustStore trusted;
};

} // namespace

TEST_F(PKCS7Threads, ReadOneObjectConcurrently)
{
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            auto const results = shared.verifySignature(X509CertificateChain(), trusted, ByteArray());
            EXPECT_TRUE(results.isValidSignature());
            EXPECT_EQ(PKCS7Certificate(shared).getSignedData().size(), 7u);
            EXPECT_EQ(shared.getSignerCerts().getNumCertificates(), 1u);
            EXPECT_FALSE(shared.getAsString().empty());
            EXPECT_TRUE(shared == shared);
            std::ostringstream() << shared;
        }
    });
}

TEST_F(PKCS7Threads, VerifyCopiesThatShareCertificates)
{
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            PKCS7Certificate const copy(shared);
            EXPECT_TRUE(
                copy.verifySignature(X509CertificateChain(), trusted, ByteArray()).isValidSignature());
            EXPECT_EQ(copy.getAsString(), shared.getAsString());
            auto const certificates = copy.getCertificates();
            EXPECT_EQ(certificates.at(0).getAsBytes(), signer.der());
            EXPECT_FALSE(certificates.at(0).isCACertificate());
        }
    });
}

TEST_F(PKCS7Threads, AddCertificatesWhileOthersRead)
{
    X509Certificate const added(root.der());
    inParallel(numThreads, [&](int number) {
        for (int round = 0; round < numRounds; ++round) {
            if (number % 2 == 0) {
                shared.addCertificate(added);
            } else {
                EXPECT_GE(PKCS7Certificate(shared).getNumCertificates(), 1u);
                EXPECT_FALSE(shared.getCertificates().empty());
            }
        }
    });
    EXPECT_EQ(shared.getNumCertificates(), 1u + numThreads / 2 * numRounds);
}

TEST_F(PKCS7Threads, HaveSeparateErrorQueues)
{
    auto const untrusted = makeLeaf(makeRoot("other root"), "other signer");
    PKCS7Certificate const sound(toDer(makeSignedData("content", untrusted)));
    inParallel(numThreads, [&](int number) {
        for (int round = 0; round < numRounds; ++round) {
            if (number % 2 == 0) {
                PKCS7Certificate().getSignedData(); // leaves an entry behind
            } else {
                auto const results = sound.verifySignature(X509CertificateChain(), trusted, ByteArray());
                EXPECT_TRUE(results.getSignatureVerificationStatus());
                EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Untrusted);
            }
        }
    });
}
