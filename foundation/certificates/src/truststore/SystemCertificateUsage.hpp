#pragma once

/// @file
/// The usages of the operating system's certificates, and what the adders of all platforms share.

#include <foundation/certificates/TrustStore.hpp>

#include <functional>
#include <vector>

namespace foundation::certificates {

/// Returns the dotted OIDs of the extended key usages that belong to the usage. A certificate with extended
/// key usages must name one of them. Empty for a usage outside the enumeration.
std::vector<char const*> extendedKeyUsageOIDs(TrustStore::Usage usage);

/// Returns the same extended key usages as OpenSSL's NIDs.
std::vector<int> extendedKeyUsageNIDs(TrustStore::Usage usage);

/// Adds the operating system's certificates for Signing, then for ServerAuthentication. What remains fits
/// ServerAuthentication. A failure ends the run; what was added before stays.
/// @throws TrustStoreException as TrustStore::addSystemCertificates does
void addSystemCertificatesOfAllUsages(TrustStore& store);

/// Calls the function, which delivers one certificate. If it throws a TrustStoreException, rethrows that if
/// rethrowOnFailure is set, and otherwise logs it at severity 16.
///
/// Running out of memory must not look like a damaged certificate: validation keeps the system's roots until
/// the process ends. So a function that fails is called a second time.
/// @throws std::bad_alloc if OpenSSL has run out of memory
void deliver(bool rethrowOnFailure, std::function<void()> const& addCertificate);

} // namespace foundation::certificates
