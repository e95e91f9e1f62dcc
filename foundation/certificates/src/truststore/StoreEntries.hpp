#pragma once

/// @file
/// Access to the entries of an OpenSSL store: certificates, CRLs, and entries of no type.
///
/// OpenSSL 4 keeps the entries in a hash table. The first call of X509_STORE_get0_objects turns it into a
/// stack, without a lock. makeStore makes that call while the store is empty and no other thread has it.

#include "libcrypto/OpenSSLHandles.hpp"

#include <openssl/x509_vfy.h>

namespace foundation::certificates {

/// Returns a new, empty store; null if OpenSSL cannot create one.
X509_STOREUPtr makeStore();

/// Returns the stack that the store itself uses, for removing entries. Null only if out of memory.
STACK_OF(X509_OBJECT) * liveEntriesOf(X509_STORE* store);

/// Returns the certificate of an entry, borrowed from the store.
/// @throws TrustStoreException "Unsupported object type found in TrustStore" for any other entry and for null
/// @throws TrustStoreException "Null X509 certificate found in TrustStore"
X509* certificateOf(X509_OBJECT const* entry);

/// Holds OpenSSL's lock of a store: other threads that use the store through OpenSSL wait.
class StoreLock
{
public:
    /// @throws TrustStoreException "Failed to read X509_STORE"
    explicit StoreLock(X509_STORE* store);
    ~StoreLock();
    StoreLock(StoreLock const&) = delete;
    StoreLock& operator=(StoreLock const&) = delete;

private:
    X509_STORE* store;
};

/// The entries of a store for reading. Holds OpenSSL's lock of the store.
class StoreEntries
{
public:
    /// @throws TrustStoreException "Failed to read X509_STORE" if out of memory
    explicit StoreEntries(X509_STORE* store);

    int count() const;
    /// Returns the entry at the index; null outside of the range.
    X509_OBJECT const* at(int index) const;

private:
    STACK_OF(X509_OBJECT) * entries;
    StoreLock lock;
};

} // namespace foundation::certificates
