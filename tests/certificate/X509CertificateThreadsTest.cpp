#include "support/operations/CertificateQueries.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <string>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr int numThreads = 8;
constexpr int numRounds = 20;

X509Certificate loadWitness()
{
    return X509Certificate(makeRoot("witness", [](CertificateSpec& spec) {
                               spec.key = rsaKey(1024);
                               spec.setExtension("extendedKeyUsage", "codeSigning");
                               spec.setExtension("certificatePolicies", "1.2.3.4");
                           }).der());
}

void runEveryQuery(X509Certificate& certificate)
{
    for (auto const& query : certificateQueries()) {
        EXPECT_NO_THROW(query.run(certificate)) << query.name;
    }
}

} // namespace

TEST(X509CertificateThreads, CopiesOfOneCertificateAreQueriedAtOnce)
{
    // The first queries of all come from the threads: what OpenSSL works out on demand is worked out there.
    auto const certificate = loadWitness();
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            auto copy = certificate;
            runEveryQuery(copy);
        }
    });
}

TEST(X509CertificateThreads, OneCertificateIsQueriedAndCopiedAtOnce)
{
    auto certificate = loadWitness();
    auto const fingerprint = certificate.getSHA256Fingerprint();
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            runEveryQuery(certificate);
            X509Certificate const copy(certificate);
            X509Certificate assigned;
            assigned = certificate;
            X509Certificate const moved(std::move(assigned));
            EXPECT_EQ(copy.getSHA256Fingerprint(), fingerprint);
            EXPECT_EQ(moved.getSHA256Fingerprint(), fingerprint);
        }
    });
}

TEST(X509CertificateThreads, TwoCertificatesAreComparedBothWaysAtOnce)
{
    // Were both locks held at once, these comparisons would lock each other out sooner or later.
    auto const left = loadWitness();
    auto const right = left;
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < 10 * numRounds; ++round) {
            EXPECT_TRUE(left == right);
            EXPECT_TRUE(right == left);
            EXPECT_TRUE(left == left);
        }
    });
}

TEST(X509CertificateThreads, CertificatesAreLoadedAtOnce)
{
    auto const pem = loadWitness().getAsPEMString();
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            EXPECT_FALSE(X509Certificate(pem).empty());
        }
    });
}
