#include "truststore/StoreEntries.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/opensslv.h>

namespace foundation::certificates {

namespace {

#if OPENSSL_VERSION_NUMBER >= 0x30300000L
StoreEntries::StackUPtr read(X509_STORE* store)
{
    return {X509_STORE_get1_objects(store), [](StoreEntries::Stack* stack) {
                sk_X509_OBJECT_pop_free(stack, X509_OBJECT_free);
            }};
}
#else
StoreEntries::StackUPtr read(X509_STORE* store)
{
    return {liveEntriesOf(store), [](StoreEntries::Stack* /*borrowed*/) {}};
}
#endif

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

StoreEntries::StoreEntries(X509_STORE* store) : entries(read(store))
{
    constexpr int countOfNoStack = -1;
    if (count() == countOfNoStack) {
        throw TrustStoreException("Failed to read X509_STORE");
    }
}

int StoreEntries::count() const
{
    return sk_X509_OBJECT_num(entries.get());
}

X509_OBJECT const* StoreEntries::at(int index) const
{
    return sk_X509_OBJECT_value(entries.get(), index);
}

} // namespace foundation::certificates
