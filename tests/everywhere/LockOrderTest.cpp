#include "support/Text.hpp"
#include "support/operations/ReadOperations.hpp"
#include "support/system/LockRecorder.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Which operation takes the lock of which object, and in which order where locks nest. No two objects of a
// caller are ever locked in both orders, so that threads cannot wait for each other for ever, whatever they
// do at once.

namespace {

using namespace foundation::certificates;
using namespace foundation::test;

using Names = std::set<std::string>;
using Nestings = std::set<LockRecorder::Nesting>;

struct Locking
{
    std::string operation;
    std::function<void(Objects&)> run;
    Names locked;
    Nestings nestings = {};
};

/// The object that the operation belongs to is the first word of its name.
std::string ownerOf(std::string const& operation)
{
    return operation.substr(0, operation.find_first_of(". "));
}

/// The operations that read more than the object that they belong to.
std::map<std::string, Locking> const& readsOfSeveralObjects()
{
    Locking const validation{
        {}, {}, {"certificate", "chain", "store"}, {{"certificate", "chain"}, {"certificate", "store"}}};
    static std::map<std::string, Locking> const table{
        {"certificate.validateCertificate", validation},
        {"certificate.getRootCACertificate", validation},
        {"certificate.validateCertificate, chain with leaf",
         {{},
          {},
          {"certificate", "chainWithLeaf", "store"},
          {{"certificate", "chainWithLeaf"}, {"certificate", "store"}}}},
        {"certificate !=", {{}, {}, {"certificate", "bundle"}}},
        {"chain !=", {{}, {}, {"chain", "chainWithLeaf"}}},
        {"signedData.verifySignature",
         {{}, {}, {"signedData", "chain", "store"}, {{"signedData", "chain"}, {"signedData", "store"}}}},
        {"detached.verifySignature",
         {{}, {}, {"detached", "chain", "store"}, {{"detached", "chain"}, {"detached", "store"}}}},
        {"signedData !=", {{}, {}, {"signedData", "detached"}}},
        {"getOpenSSLStore", {{}, {}, {"store"}}},
        {"copyOpenSSLStore", {{}, {}, {"store"}}},
        {"attachTrustStoreToSSLCTX", {{}, {}, {"store"}}},
    };
    return table;
}

std::vector<Locking> reads()
{
    std::vector<Locking> all;
    for (auto const& operation : readOperations()) {
        auto const found = readsOfSeveralObjects().find(operation.name);
        auto locking = found == readsOfSeveralObjects().end() ? Locking{{}, {}, {ownerOf(operation.name)}}
                                                              : found->second;
        locking.operation = operation.name;
        locking.run = [answer = operation.answer](Objects& objects) { answer(objects); };
        all.push_back(std::move(locking));
    }
    return all;
}

std::vector<Locking> changes()
{
    return {
        {"chain.addCertificate",
         [](Objects& all) { all.chain.addCertificate(all.certificate); },
         {"chain", "certificate"}},
        {"chain.popLeafCertificate",
         [](Objects& all) { all.chainWithLeaf.popLeafCertificate(); },
         {"chainWithLeaf"}},
        {"store.addCertificate",
         [](Objects& all) { all.store.addCertificate(all.certificate); },
         {"store", "certificate"}},
        {"store.addCertificates",
         [](Objects& all) { all.store.addCertificates(all.chain); },
         {"store", "chain"},
         {{"store", "chain"}}},
        {"store.addSystemCertificates",
         [](Objects& all) { all.store.addSystemCertificates(TrustStore::Usage::Signing); },
         {"store"}},
        {"signedData.addCertificate",
         [](Objects& all) { all.signedData.addCertificate(all.certificate); },
         {"signedData", "certificate"}},
        {"assignment to a certificate",
         [](Objects& all) { X509Certificate() = all.certificate; },
         {"certificate"}},
        {"assignment of a certificate", [](Objects& all) { all.certificate = X509Certificate(); }, {}},
        {"assignment of a chain", [](Objects& all) { all.chain = X509CertificateChain(); }, {}},
        {"assignment of a store", [](Objects& all) { all.store = TrustStore(); }, {}},
        {"assignment of signed data", [](Objects& all) { all.signedData = PKCS7Certificate(); }, {}},
        {"assignment of a bundle", [](Objects& all) { all.bundle = PKCS12Certificate(); }, {}},
    };
}

/// Operations on two objects of one class; the lock of the second one is not taken within that of the first.
std::vector<Locking> betweenTwo(Objects& others)
{
    return {
        {"certificate == other",
         [&](Objects& all) { static_cast<void>(all.certificate == others.certificate); },
         {"certificate", "other certificate"}},
        {"chain == other",
         [&](Objects& all) { static_cast<void>(all.chain == others.chain); },
         {"chain", "other chain"}},
        {"signedData == other",
         [&](Objects& all) { static_cast<void>(all.signedData == others.signedData); },
         {"signedData", "other signedData"}},
        {"bundle == other",
         [&](Objects& all) { static_cast<void>(all.bundle == others.bundle); },
         {"bundle"}},
        {"certificate = other",
         [&](Objects& all) { all.certificate = others.certificate; },
         {"other certificate"}},
        {"chain = other", [&](Objects& all) { all.chain = others.chain; }, {"other chain"}},
        {"store = other", [&](Objects& all) { all.store = others.store; }, {"other store"}},
        {"signedData = other",
         [&](Objects& all) { all.signedData = others.signedData; },
         {"other signedData"}},
        {"bundle = other", [&](Objects& all) { all.bundle = others.bundle; }, {"other bundle"}},
        {"fallback",
         [&](Objects& all) {
             CertificateValidationOptions const options(
                 CertificateValidationOptions::AllowSelfSignedCertificate::No,
                 CertificateValidationOptions::AllowExpiredCertificate::No,
                 CertificateValidationOptions::AllowRevokedCertificate::No,
                 CertificateValidationOptions::CheckCRL::None,
                 CertificateValidationOptions::DownloadCRL::None,
                 std::shared_ptr<TrustStore const>(&others.store, [](TrustStore const*) {}));
             others.certificate.validateCertificate(X509CertificateChain(), options, all.store);
         },
         {"other certificate", "store", "other store"},
         {{"other certificate", "store"}, {"other certificate", "other store"}}},
    };
}

class LockOrder : public testing::Test
{
protected:
    LockOrder()
    {
        recorder.watch(objects.certificate, "certificate");
        recorder.watch(objects.chain, "chain");
        recorder.watch(objects.chainWithLeaf, "chainWithLeaf");
        recorder.watch(objects.store, "store");
        recorder.watch(objects.signedData, "signedData");
        recorder.watch(objects.detached, "detached");
        recorder.watch(objects.bundle, "bundle");
        recorder.watch(others.certificate, "other certificate");
        recorder.watch(others.chain, "other chain");
        recorder.watch(others.store, "other store");
        recorder.watch(others.signedData, "other signedData");
        recorder.watch(others.bundle, "other bundle");
    }

    void expectAsDocumented(std::vector<Locking> const& table)
    {
        for (auto const& row : table) {
            SCOPED_TRACE(row.operation);
            recorder.forget();
            row.run(objects);
            EXPECT_EQ(recorder.locked(), row.locked);
            EXPECT_EQ(recorder.nestings(), row.nestings);
            all.insert(recorder.nestings().begin(), recorder.nestings().end());
        }
    }

    Objects objects = makeObjects();
    Objects others = makeObjects();
    LockRecorder recorder;
    /// Of all operations so far.
    Nestings all;
};

/// Whether one can go from the name to itself along the nestings.
bool isInACircle(std::string const& name, Nestings const& nestings)
{
    Names reached{name};
    for (std::size_t before = 0; before != reached.size();) {
        before = reached.size();
        for (auto const& [holder, taken] : nestings) {
            if (reached.count(holder) != 0) {
                if (taken == name) {
                    return true;
                }
                reached.insert(taken);
            }
        }
    }
    return false;
}

TEST_F(LockOrder, IsThatOfTheDocumentationAndHasNoCircle)
{
    expectAsDocumented(reads());
    expectAsDocumented(betweenTwo(others));
    expectAsDocumented(changes());

    EXPECT_FALSE(all.empty());
    for (auto const& nesting : all) {
        EXPECT_FALSE(isInACircle(nesting.first, all)) << nesting.first << " and " << nesting.second;
    }
}

TEST_F(LockOrder, OfCirclesIsTold)
{
    EXPECT_TRUE(isInACircle("a", {{"a", "b"}, {"b", "c"}, {"c", "a"}}));
    EXPECT_TRUE(isInACircle("a", {{"a", "a"}}));
    EXPECT_FALSE(isInACircle("a", {{"a", "b"}, {"b", "c"}, {"c", "b"}}));
}

} // namespace
