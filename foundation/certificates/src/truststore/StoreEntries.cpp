#include "truststore/StoreEntries.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>

namespace foundation::certificates {

namespace {

constexpr char const unreadText[] = "Failed to read X509_STORE";

} // namespace

X509_STOREUPtr makeStore()
{
    auto store = makeX509_STORE(X509_STORE_new());
    if (store != nullptr && liveEntriesOf(store.get()) == nullptr) {
        store.reset();
    }
    return store;
}

STACK_OF(X509_OBJECT) * liveEntriesOf(X509_STORE* store)
{
    return X509_STORE_get0_objects(store);
}

X509* certificateOf(X509_OBJECT const* entry)
{
    if (entry == nullptr || X509_OBJECT_get_type(entry) != X509_LU_X509) {
        throw TrustStoreException("Unsupported object type found in TrustStore");
    }
    return throwIfNull<TrustStoreException>(
        X509_OBJECT_get0_X509(entry), "Null X509 certificate found in TrustStore");
}

StoreLock::StoreLock(X509_STORE* theStore) : store(theStore)
{
    throwIfNotOne<TrustStoreException>(X509_STORE_lock(store), unreadText);
}

StoreLock::~StoreLock()
{
    X509_STORE_unlock(store);
}

StoreEntries::StoreEntries(X509_STORE* store)
    : entries(throwIfNull<TrustStoreException>(liveEntriesOf(store), unreadText)),
      lock(store)
{}

int StoreEntries::count() const
{
    return sk_X509_OBJECT_num(entries);
}

X509_OBJECT const* StoreEntries::at(int index) const
{
    return sk_X509_OBJECT_value(entries, index);
}

} // namespace foundation::certificates
