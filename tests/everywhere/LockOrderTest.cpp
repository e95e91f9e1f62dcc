#include "truststore/TrustStoreImpl.hpp"

#include "support/Text.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/operations/StoreHistory.hpp"
#include "support/system/LockRecorder.hpp"

#include <foundation/certificates/Exceptions.hpp>
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

// Which operation takes the lock of which object, and in which order locks nest. No two objects of a caller
// are ever locked in both orders, so no combination of operations can deadlock.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Names = std::set<std::string>;
using Nestings = std::set<LockRecorder::Nesting>;

struct Locking
{
    std::string operation;
    std::function<void(Objects&)> run;
    Names locked;
    Nestings nestings = {};
};

/// Returns the locks of an operation, and which of them it takes while it holds another.
Locking locking(Names const& locked, Nestings const& nestings = {})
{
    Locking made;
    made.locked = locked;
    made.nestings = nestings;
    return made;
}

/// The operations that lock other objects than their own. All others lock their own object alone.
std::map<std::string, Locking> const& lockingOfOthers()
{
    auto const validation =
        locking({"certificate", "chain", "store"}, {{"certificate", "chain"}, {"certificate", "store"}});
    static std::map<std::string, Locking> const table{
        {"X509Certificate::validateCertificate", validation},
        {"X509Certificate::getRootCACertificate", validation},
        {"X509Certificate::validateCertificate, chain with leaf",
         locking(
             {"certificate", "chainWithLeaf", "store"},
             {{"certificate", "chainWithLeaf"}, {"certificate", "store"}})},
        {"X509Certificate::operator!=, certificate of a bundle", locking({"certificate", "bundle"})},
        {"X509CertificateChain::operator!=, other chain", locking({"chain", "chainWithLeaf"})},
        {"X509CertificateChain::addCertificate", locking({"chain", "certificate"})},
        {"TrustStore::addCertificate", locking({"store", "certificate"})},
        {"TrustStore::addCertificates", locking({"store", "chain"}, {{"store", "chain"}})},
        {"PKCS7Certificate::addCertificate", locking({"signedData", "certificate"})},
        {"PKCS7Certificate::verifySignature",
         locking({"signedData", "chain", "store"}, {{"signedData", "chain"}, {"signedData", "store"}})},
        {"PKCS7Certificate::verifySignature, detached content",
         locking({"detached", "chain", "store"}, {{"detached", "chain"}, {"detached", "store"}})},
        {"PKCS7Certificate::operator!=, other signed data", locking({"signedData", "detached"})},
        {"CertificateValidationResults::setRootCertificate", locking({"certificate"})},
    };
    return table;
}

/// Returns how many locks the operation takes besides one for each object. Most of these objects are locked
/// for a short question first, such as whether they are empty, or are compared with themselves.
std::size_t numFurtherLocks(std::string const& operation)
{
    static std::map<std::string, std::size_t> const table{
        {"X509Certificate::validateCertificate", 1},
        {"X509Certificate::validateCertificate, chain with leaf", 1},
        {"X509Certificate::getRootCACertificate", 1},
        {"X509Certificate::operator==", 1},
        {"X509Certificate::operator!=", 1},
        {"X509CertificateChain::getAsString", 1},
        {"X509CertificateChain::operator==", 1},
        {"X509CertificateChain::operator!=", 1},
        {"X509CertificateChain::addCertificate", 1},
        {"TrustStore::addCertificate", 1},
        {"TrustStore::addCertificates", 1},
        {"attachTrustStoreToSSLCTX", 1},
        {"PKCS7Certificate::getAsBytes", 1},
        {"PKCS7Certificate::getAsString", 1},
        {"PKCS7Certificate::operator==", 1},
        {"PKCS7Certificate::operator!=", 1},
        {"PKCS7Certificate::addCertificate", 1},
        {"PKCS7Certificate::verifySignature", 1},
        {"PKCS7Certificate::verifySignature, detached content", 1},
        {"PKCS12Certificate::getAsBytes", 1},
        {"PKCS12Certificate::operator!=", 1},
        {"fallback", 4},
    };
    auto const found = table.find(operation);
    return found == table.end() ? 0 : found->second;
}

Locking lockingOf(BoundOperation const& operation)
{
    auto const found = lockingOfOthers().find(operation.name);
    Locking locking;
    if (found != lockingOfOthers().end()) {
        locking = found->second;
    } else if (!operation.owner.empty()) {
        locking.locked = {operation.owner};
    }
    locking.operation = operation.name;
    locking.run = [answer = operation.answer](Objects& objects) { answer(objects); };
    return locking;
}

std::vector<Locking> wholeTable()
{
    std::vector<Locking> all;
    for (auto const& operation : readOperations()) {
        all.push_back(lockingOf(operation));
    }
    for (auto const& operation : allOperations()) {
        if (operation.access == Access::Changes || operation.isCostly) {
            all.push_back(lockingOf(operation));
        }
    }
    return all;
}

std::vector<Locking> assignments()
{
    return {
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

/// Operations on two objects of one class. They never hold both locks at once.
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
            runIfPossible(row);
            EXPECT_EQ(recorder.locked(), row.locked);
            EXPECT_EQ(recorder.nestings(), row.nestings);
            EXPECT_EQ(recorder.numLocks(), row.locked.size() + numFurtherLocks(row.operation));
            all.insert(recorder.nestings().begin(), recorder.nestings().end());
        }
    }

    /// A trust store with a CRL does not list its certificates. Such an operation takes its locks, too.
    void runIfPossible(Locking const& row)
    {
        try {
            row.run(objects);
        } catch (TrustStoreException const& failure) {
            EXPECT_STREQ(failure.what(), "Unsupported object type found in TrustStore");
        }
    }

    Objects objects = makeObjects();
    Objects others = makeObjects();
    LockRecorder recorder;
    /// The nestings of all operations so far.
    Nestings all;
};

/// Whether the nestings lead from the name back to it.
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

} // namespace

TEST_F(LockOrder, IsAsDocumentedAndHasNoCircle)
{
    expectAsDocumented(wholeTable());
    expectAsDocumented(betweenTwo(others));
    expectAsDocumented(assignments());

    EXPECT_FALSE(all.empty());
    for (auto const& nesting : all) {
        EXPECT_FALSE(isInACircle(nesting.first, all)) << nesting.first << " and " << nesting.second;
    }
}

TEST_F(LockOrder, IsTheSameWithEveryHistoryOfTheStore)
{
    for (auto const history : allStoreHistories()) {
        SCOPED_TRACE(history);
        auto const& fresh = makeObjects();
        objects.store = fresh.store;
        others.store = fresh.store;
        auto const kept = undergo(objects.store, history);
        auto const keptOfOthers = undergo(others.store, history);
        expectAsDocumented(wholeTable());
        expectAsDocumented(betweenTwo(others));
    }
}

TEST(SharedContent, IsReadUnderItsLock)
{
    TrustStoreImpl store;
    store.trustedCertificates();
    LockRecorder const recorder;
    store.trustedCertificates();
    EXPECT_EQ(recorder.othersLocked(), 1U);
}

TEST_F(LockOrder, CircleIsDetected)
{
    EXPECT_TRUE(isInACircle("a", {{"a", "b"}, {"b", "c"}, {"c", "a"}}));
    EXPECT_TRUE(isInACircle("a", {{"a", "a"}}));
    EXPECT_FALSE(isInACircle("a", {{"a", "b"}, {"b", "c"}, {"c", "b"}}));
}
