#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr int numThreads = 8;

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"intermediate", "root"}, {"leaf", "intermediate"}});
    return topology;
}

std::vector<X509Certificate> const& manyRoots()
{
    static std::vector<X509Certificate> const roots = [] {
        std::vector<X509Certificate> made;
        for (int number = 0; number < numThreads * 4; ++number) {
            made.emplace_back(makeRoot("root", [number](CertificateSpec& spec) {
                                  spec.subject = commonName("root " + std::to_string(number));
                              }).der());
        }
        return made;
    }();
    return roots;
}

} // namespace

TEST(X509CertificateChainThreads, ReadCopyAndAppendConcurrently)
{
    X509CertificateChain chain(pki().pemBundle({"leaf", "intermediate", "root"}));
    auto const& roots = manyRoots();
    inParallel(numThreads, [&](int number) {
        for (std::size_t round = 0; round < 4; ++round) {
            chain.addCertificate(roots[static_cast<std::size_t>(number) * 4 + round]);
            EXPECT_FALSE(chain.empty());
            EXPECT_GE(chain.getCertificates().size(), 4U);
            EXPECT_GE(X509CertificateChain(chain.getAsString()).getNumCertificates(), 4U);
            X509CertificateChain copy(chain);
            EXPECT_EQ(copy.popLeafCertificate().getSubjectCommonName(), "leaf");
            EXPECT_FALSE(copy == chain);
            std::ostringstream report;
            chain.print(report);
            EXPECT_NE(report.str(), "");
        }
    });
    EXPECT_EQ(chain.getNumCertificates(), 3 + roots.size());
}

TEST(TrustStoreThreads, ReadCopyAndAddConcurrently)
{
    TrustStore store;
    store.addCertificate(X509Certificate(pki()["root"].der()));
    X509CertificateChain const chain(pki().pemBundle({"leaf", "intermediate", "root"}));
    auto const& roots = manyRoots();
    inParallel(numThreads, [&](int number) {
        for (std::size_t round = 0; round < 4; ++round) {
            store.addCertificate(roots[static_cast<std::size_t>(number) * 4 + round]);
            store.addCertificates(chain);
            EXPECT_FALSE(store.empty());
            EXPECT_GE(store.size(), 3U);
            EXPECT_GE(store.getCertificates().getNumCertificates(), 3U);
            EXPECT_GE(store.getPEMStrings().size(), 3U);
            TrustStore const copy(store);
            EXPECT_GE(copy.size(), 3U);
            EXPECT_NE(copyOpenSSLStore(store), nullptr);
            EXPECT_NE(getOpenSSLStore(store), nullptr);
        }
    });
    EXPECT_EQ(store.size(), 2 + roots.size());
}

TEST(TrustStoreThreads, ValidateACertificateWhileOthersAddIt)
{
    X509Certificate const leaf(pki()["leaf"].der());
    X509CertificateChain chain(pki().pemBundle({"intermediate"}));
    TrustStore store;
    store.addCertificate(X509Certificate(pki()["root"].der()));
    CertificateValidationOptions const options;
    constexpr int numValidators = numThreads / 2;
    std::atomic<int> numValidating{numValidators};
    inParallel(numThreads, [&](int number) {
        if (number < numValidators) {
            for (int round = 0; round < 100; ++round) {
                EXPECT_EQ(
                    leaf.validateCertificate(chain, options, store).getCertificateChainStatus(),
                    CertificateChainStatus::Valid);
            }
            --numValidating;
            return;
        }
        // The other threads continue as long as one validates.
        while (numValidating > 0) {
            store.addCertificate(leaf);
            chain.addCertificate(leaf);
            store.addCertificates(chain);
            EXPECT_EQ(chain.popLeafCertificate(), leaf);
        }
    });
    EXPECT_EQ(store.size(), 3U);
    EXPECT_EQ(chain.getNumCertificates(), 1U);
}

TEST(TrustStoreThreads, ValidateAddCopyHandOutAndShakeHandsConcurrently)
{
    constexpr int numRounds = 20;
    X509CertificateChain const chain(pki().pemBundle({"intermediate"}));
    X509Certificate const leaf(pki()["leaf"].der());
    CertificateValidationOptions const options;
    TrustStore store;
    store.addCertificate(X509Certificate(pki()["root"].der()));
    auto const isValid = [&](X509Certificate const& certificate, TrustStore const& trustStore) {
        return certificate.validateCertificate(chain, options, trustStore).getCertificateChainStatus() ==
               CertificateChainStatus::Valid;
    };
    auto const server =
        makeTLSServer(pki()["leaf"].certificate, pki()["leaf"].key, {pki()["intermediate"].certificate});
    std::function<void(int)> const roles[] = {
        [&](int) {
            X509Certificate const own(leaf);
            EXPECT_TRUE(isValid(own, store));
        },
        [&](int round) { store.addCertificate(manyRoots().at(static_cast<std::size_t>(round))); },
        [&](int round) {
            TrustStore copy(store);
            EXPECT_TRUE(isValid(X509Certificate(leaf), copy));
            copy.addCertificate(manyRoots().at(static_cast<std::size_t>(numRounds + round % 12)));
            EXPECT_TRUE(isValid(X509Certificate(leaf), copy));
        },
        [&](int round) {
            EXPECT_GE(store.getPEMStrings().size(), 1U);
            EXPECT_FALSE(store.getCertificates().empty());
            EXPECT_NE(copyOpenSSLStore(store), nullptr);
            if (round >= numRounds / 2) {
                EXPECT_NE(getOpenSSLStore(store), nullptr);
            }
        },
        [&](int round) {
            if (round >= numRounds / 2) {
                auto const client = makeTLSClient();
                attachTrustStoreToSSLCTX(store, client.get());
                EXPECT_EQ(verifyResultOfHandshake(client, server), X509_V_OK);
            } else {
                EXPECT_TRUE(isValid(X509Certificate(leaf), store));
            }
        },
    };
    inParallel(numThreads, [&](int number) {
        auto const& role = roles[static_cast<std::size_t>(number) % std::size(roles)];
        for (int round = 0; round < numRounds; ++round) {
            role(round);
        }
    });
    EXPECT_EQ(store.size(), 1U + numRounds);
    EXPECT_TRUE(isValid(leaf, store));
}
