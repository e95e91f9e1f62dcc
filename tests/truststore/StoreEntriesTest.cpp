#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <dlfcn.h>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Whether OpenSSL returns no entries, as it does if it runs out of memory.
bool areEntriesMissing = false;

class MissingEntries
{
public:
    MissingEntries() { areEntriesMissing = true; }
    ~MissingEntries() { areEntriesMissing = false; }
    MissingEntries(MissingEntries const&) = delete;
    MissingEntries& operator=(MissingEntries const&) = delete;
};

bool isStoreLocked = false;
/// For each entry that left a stack, whether a store was locked.
std::vector<bool> removals;

class NoSystemCertificates : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override { return new NoSystemCertificates; }
    void addCertificatesTo(TrustStoreImpl& /*store*/, TrustStore::Usage /*usage*/, bool /*rethrow*/) override
    {}
};

/// The function of OpenSSL that is replaced in this program.
template <class Function>
Function* original(Function* /*type*/, char const* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// Replaces the function of OpenSSL that reads the entries.
extern "C" STACK_OF(X509_OBJECT) * X509_STORE_get0_objects(X509_STORE const* store)
{
    if (areEntriesMissing) {
        ERR_raise(ERR_LIB_X509, ERR_R_MALLOC_FAILURE);
        return nullptr;
    }
    return original(&X509_STORE_get0_objects, "X509_STORE_get0_objects")(store);
}

extern "C" int X509_STORE_lock(X509_STORE* store)
{
    isStoreLocked = true;
    return original(&X509_STORE_lock, "X509_STORE_lock")(store);
}

extern "C" int X509_STORE_unlock(X509_STORE* store)
{
    isStoreLocked = false;
    return original(&X509_STORE_unlock, "X509_STORE_unlock")(store);
}

extern "C" void* OPENSSL_sk_delete_ptr(OPENSSL_STACK* stack, void const* entry)
{
    removals.push_back(isStoreLocked);
    return original(&OPENSSL_sk_delete_ptr, "OPENSSL_sk_delete_ptr")(stack, entry);
}

TEST(StoreEntries, ReadingFailsIfOpenSSLReturnsNoEntries)
{
    TrustStoreImpl store;
    store.addX509(makeRoot("root").certificate.get());
    CleanErrorQueue const clean;
    {
        MissingEntries const missing;
        constexpr char const text[] = "Failed to read X509_STORE";
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, store.size());
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, store.empty());
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, store.getCertificates());
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, store.getPEMStrings());
        EXPECT_THROWS_EXACTLY(TrustStoreException, text, store.x509At(0));
    }
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(store.getPEMStrings().size(), 1U);
}

TEST(StoreEntries, NewStoreNeedsItsEntries)
{
    TrustStore original = storeOf({makeRoot("root")});
    TrustStore const copy(original);
    CleanErrorQueue const clean;
    MissingEntries const missing;
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to create X509_STORE", TrustStore());
    EXPECT_TRUE(queueIsEmpty());
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to create X509_STORE",
        original.addCertificate(load(makeRoot("second"))));
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to create X509_STORE", getOpenSSLStore(original));
    EXPECT_EQ(copyOpenSSLStore(original), nullptr);
}

TEST(StoreEntries, FailureToReadLeavesErrorQueue)
{
    auto const root = makeRoot("root");
    auto const second = makeRoot("second");
    X509CertificateChain const chain(second.pem());
    struct Row
    {
        std::string what;
        std::function<void(TrustStoreImpl&)> run;
    };
    std::vector<Row> const rows = {
        {"size", [](TrustStoreImpl& store) { store.size(); }},
        {"getCertificates", [](TrustStoreImpl& store) { store.getCertificates(); }},
        {"copyStore", [](TrustStoreImpl& store) { store.copyStore(); }},
        {"handOutStore", [](TrustStoreImpl& store) { store.handOutStore(); }},
        {"trustedCertificates", [](TrustStoreImpl& store) { store.trustedCertificates(); }},
        {"addCertificate", [&](TrustStoreImpl& store) { store.addCertificate(second.certificate.get()); }},
        {"addCertificates", [&](TrustStoreImpl& store) { store.addCertificates(chain); }},
        {"addSystemCertificates",
         [](TrustStoreImpl& store) {
             store.addSystemCertificates(TrustStore::Usage::ServerAuthentication, false);
         }},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        TrustStoreImpl store(std::make_unique<NoSystemCertificates>());
        store.addX509(root.certificate.get());
        // A copy shares the entries, so that a change has to read them.
        std::mutex mutex;
        TrustStoreImpl const copy(store, std::lock_guard<std::mutex>(mutex));
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        MissingEntries const missing;
        try {
            row.run(store);
        } catch (TrustStoreException const&) {
        }
        EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
    }
}

TEST(StoreEntries, FilterRemovesThemUnderLockOfStore)
{
    constexpr auto unknownUsage = static_cast<TrustStore::Usage>(9);
    TrustStoreImpl store;
    store.addX509(makeRoot("root").certificate.get());
    store.addX509(makeRoot("second").certificate.get());
    removals.clear();
    store.removeUnsuitableCertificates(unknownUsage);
    EXPECT_EQ(removals, (std::vector<bool>{true, true}));
    EXPECT_TRUE(store.empty());
}
