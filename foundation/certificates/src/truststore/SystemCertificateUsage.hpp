#pragma once

/// @file
/// What the adders of system certificates share, whatever the platform.

#include <foundation/certificates/TrustStore.hpp>

#include <functional>
#include <vector>

namespace foundation::certificates {

/// The extended key usages, in dotted form, of which a certificate of the operating system's must have one
/// to be of use, unless it is not restricted to any. Empty for a usage outside the enumeration.
std::vector<char const*> extendedKeyUsagesFor(TrustStore::Usage usage);

/// Delivers one certificate by the given call. A TrustStoreException of that passes through if
/// rethrowOnFailure is set, and otherwise becomes a record of severity 16.
void deliver(bool rethrowOnFailure, std::function<void()> const& addCertificate);

} // namespace foundation::certificates
