#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/x509_vfy.h>

#include <gtest/gtest.h>

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
    return areEntriesMissing ? nullptr : original(&X509_STORE_get0_objects, "X509_STORE_get0_objects")(store);
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
    MissingEntries const missing;
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to create X509_STORE", TrustStore());
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to create X509_STORE",
        original.addCertificate(load(makeRoot("second"))));
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to create X509_STORE", getOpenSSLStore(original));
    EXPECT_EQ(copyOpenSSLStore(original), nullptr);
}
