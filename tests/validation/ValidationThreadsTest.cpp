#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Counts unexpected verdicts. An expectation for each verdict would flood the output if all were wrong.
class Verdicts
{
public:
    void add(CertificateValidationResults const& results, Status expected)
    {
        ++total;
        if (results.getCertificateChainStatus() != expected) {
            ++wrong;
        }
    }

    std::atomic<int> total{0};
    std::atomic<int> wrong{0};
};

} // namespace

// No other test of this program uses the system's roots, so this is their first use.
TEST(ValidationThreads, RaceForTheFirstUseOfTheSystemsRoots)
{
    auto const leaf = makeSelfSignedLeaf("leaf");
    Verdicts verdicts;
    std::atomic<int> found{0};
    inParallel(16, [&](int thread) {
        auto const own = load(leaf);
        if (thread % 2 == 0) {
            verdicts.add(
                own.validateCertificate(X509CertificateChain(), Options(), TrustStore()), Status::SelfSigned);
        } else if (own.getRootCACertificate(X509CertificateChain(), TrustStore()) == own) {
            ++found;
        }
    });
    EXPECT_EQ(verdicts.total, 8);
    EXPECT_EQ(verdicts.wrong, 0);
    EXPECT_EQ(found, 8);
}

TEST(ValidationThreads, ValidateDifferentCertificatesAgainstOneTrustStore)
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    auto const trustStore = storeOf({pki["root"]});
    auto const chain = chainOf({pki["ca"]});
    std::vector<X509Certificate> leaves;
    for (int thread = 0; thread < 8; ++thread) {
        leaves.push_back(load(makeLeaf(pki["ca"], "leaf" + std::to_string(thread))));
    }
    Verdicts verdicts;
    inParallel(8, [&](int thread) {
        for (int round = 0; round < 10; ++round) {
            verdicts.add(
                leaves[static_cast<std::size_t>(thread)].validateCertificate(chain, Options(), trustStore),
                Status::Valid);
        }
    });
    EXPECT_EQ(verdicts.total, 80);
    EXPECT_EQ(verdicts.wrong, 0);
}

TEST(ValidationThreads, ValidateOneCertificateWithDifferentOptions)
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, "leaf", [](CertificateSpec& spec) {
        spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
    });
    auto const leaf = load(pki["leaf"]);
    auto const trustStore = storeOf({pki["root"]});
    auto const chain = chainOf({pki["ca"]});
    Verdicts verdicts;
    inParallel(8, [&](int thread) {
        Tolerances tolerances;
        tolerances.expired = thread % 2 == 1;
        for (int round = 0; round < 10; ++round) {
            verdicts.add(
                leaf.validateCertificate(chain, optionsWith(tolerances), trustStore),
                tolerances.expired ? Status::Valid : Status::Expired);
        }
    });
    EXPECT_EQ(verdicts.total, 80);
    EXPECT_EQ(verdicts.wrong, 0);
}

TEST(ValidationThreads, ValidateCopiesThatShareOneCertificate)
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    auto const original = load(pki["leaf"]);
    auto const trustStore = storeOf({pki["root"]});
    auto const chain = chainOf({pki["leaf"], pki["ca"]});
    Verdicts verdicts;
    inParallel(8, [&](int) {
        X509Certificate const copy(original);
        for (int round = 0; round < 10; ++round) {
            auto const results = copy.validateCertificate(chain, Options(), trustStore);
            verdicts.add(
                results, results.getRootCertificate()->isCACertificate() ? Status::Valid : Status::Failed);
        }
    });
    EXPECT_EQ(verdicts.total, 80);
    EXPECT_EQ(verdicts.wrong, 0);
}

TEST(ValidationThreads, LookUpOneRoot)
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    auto const leaf = load(pki["leaf"]);
    auto const trustStore = storeOf({pki["root"]});
    auto const chain = chainOf({pki["ca"]});
    auto const expected = load(pki["root"]).getSHA256Fingerprint();
    std::atomic<int> found{0};
    inParallel(8, [&](int) {
        for (int round = 0; round < 5; ++round) {
            if (leaf.getRootCACertificate(chain, trustStore).getSHA256Fingerprint() == expected) {
                ++found;
            }
        }
    });
    EXPECT_EQ(found, 40);
}

TEST(ValidationThreads, DownloadCrlsWithoutSharingThemThroughTheTrustStore)
{
    Revocable const pki;
    HttpFileServer const server("127.0.0.1", filesOf(pki.leafCrl({revoke(pki.leaf)}), pki.caCrl()));
    auto const trustStore = storeOf({pki.root});
    auto const chain = chainOf({pki.ca});
    auto const leaf = load(pki.leaf);
    Verdicts verdicts;
    inParallel(8, [&](int thread) {
        auto const asksForCrls = thread % 2 == 0;
        auto const ownHandle = leaf;
        auto const options = optionsWith(
            {}, Options::CheckCRL::WholeChain,
            asksForCrls ? Options::DownloadCRL::Required : Options::DownloadCRL::None);
        for (int round = 0; round < 5; ++round) {
            verdicts.add(
                ownHandle.validateCertificate(chain, options, trustStore),
                asksForCrls ? Status::Revoked : Status::Valid);
        }
    });
    EXPECT_EQ(verdicts.total, 40);
    EXPECT_EQ(verdicts.wrong, 0);
    EXPECT_EQ(server.numConnections(), 40U);
    EXPECT_EQ(trustStore.size(), 1U);
}

TEST(ValidationThreads, DownloadCrlsWhileOthersAddToTheTrustStores)
{
    Revocable const pki;
    HttpFileServer const server("127.0.0.1", filesOf(pki.leafCrl({revoke(pki.leaf)}), pki.caCrl()));
    auto trustStore = storeOf({makeRoot("other root")});
    auto const fallback = std::make_shared<TrustStore>(storeOf({pki.root}));
    auto const chain = chainOf({pki.ca});
    auto const options =
        optionsWith({}, Options::CheckCRL::WholeChain, Options::DownloadCRL::BestEffort, fallback);
    auto const leaf = load(pki.leaf);
    auto const added = load(pki.leaf);
    std::atomic<int> numValidating{4};
    Verdicts verdicts;
    inParallel(8, [&](int thread) {
        if (thread < 4) {
            auto const copy = leaf;
            for (int round = 0; round < 5; ++round) {
                // Alternates between a shared handle and one of this thread's own.
                verdicts.add(
                    (round % 2 == 0 ? leaf : copy).validateCertificate(chain, options, trustStore),
                    Status::Revoked);
            }
            --numValidating;
            return;
        }
        while (numValidating > 0) {
            trustStore.addCertificate(added);
            fallback->addCertificate(added);
            fallback->addCertificates(chain);
            EXPECT_EQ(X509CertificateChain(chain).getNumCertificates(), 1U);
            EXPECT_GE(TrustStore(*fallback).size(), 1U);
        }
    });
    EXPECT_EQ(verdicts.total, 20);
    EXPECT_EQ(verdicts.wrong, 0);
    EXPECT_EQ(fallback->size(), 3U);
}
