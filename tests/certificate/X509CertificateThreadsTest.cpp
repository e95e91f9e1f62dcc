#include "support/operations/OperationTable.hpp"
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

X509Certificate loadCertificate()
{
    return X509Certificate(makeRoot("subject", [](CertificateSpec& spec) {
                               spec.key = rsaKey(1024);
                               spec.setExtension("extendedKeyUsage", "codeSigning");
                               spec.setExtension("certificatePolicies", "1.2.3.4");
                           }).der());
}

void runEveryQuery(X509Certificate& certificate)
{
    for (auto const& query : operationsWithoutOthers(certificateOperations())) {
        EXPECT_NO_THROW(query.answer(certificate, sharedObjects())) << query.name;
    }
}

} // namespace

TEST(X509CertificateThreads, CopiesAnswerConcurrentQueries)
{
    // OpenSSL computes some values on first use. Here the threads are the first users.
    auto const certificate = loadCertificate();
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            auto copy = certificate;
            runEveryQuery(copy);
        }
    });
}

TEST(X509CertificateThreads, OneObjectAnswersConcurrentQueriesAndCopies)
{
    auto certificate = loadCertificate();
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

TEST(X509CertificateThreads, ComparisonsInBothDirectionsDoNotDeadlock)
{
    // If a comparison held both locks at once, these comparisons would deadlock sooner or later.
    auto const left = loadCertificate();
    auto const right = left;
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < 10 * numRounds; ++round) {
            EXPECT_TRUE(left == right);
            EXPECT_TRUE(right == left);
            EXPECT_TRUE(left == left);
        }
    });
}

TEST(X509CertificateThreads, ConcurrentLoadsSucceed)
{
    auto const pem = loadCertificate().getAsPEMString();
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < numRounds; ++round) {
            EXPECT_FALSE(X509Certificate(pem).empty());
        }
    });
}
