#pragma once

#include <foundation/certificates/TrustStore.hpp>

#include <memory>
#include <ostream>
#include <vector>

/// @file
/// What has happened to a trust store before its next use. The library keeps and reads the store differently
/// after each of these, and nobody may see a difference.

namespace foundation::test {

enum class StoreHistory
{
    /// Only the library has the store.
    Private,
    /// A copy shares it.
    Copied,
    /// The program has the OpenSSL store.
    HandedOut,
    /// The program has added a certificate to the OpenSSL store.
    ChangedOutside,
    /// The program has added a CRL to the OpenSSL store.
    HoldsCRL,
    /// It is a copy of a store that was handed out.
    CopyOfHandedOut
};

std::vector<StoreHistory> const& allStoreHistories();

/// The name, for the names of tests.
std::ostream& operator<<(std::ostream& out, StoreHistory history);

/// Lets the store have this history. Returns what must live as long as the history is to last.
std::shared_ptr<void> undergo(certificates::TrustStore& store, StoreHistory history);

} // namespace foundation::test
