#pragma once

#include "support/openssl/Handles.hpp"
#include "support/openssl/ReferenceVerifier.hpp"

#include <openssl/x509_vfy.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

/// @file
/// Validation with the bare OpenSSL API, as the reference for the library's own. Written for clarity: each
/// run makes full duplicates of everything, keeps nothing, and shares nothing.

namespace foundation::test {

/// The whole outcome of a validation.
struct ReferenceVerdict
{
    /// The number of the status in the public enumeration.
    int status = 0;
    std::string text;
    std::optional<Bytes> root;
    /// The text of the exception, if there was one instead of a verdict.
    std::optional<std::string> failure;

    bool operator==(ReferenceVerdict const& other) const;
    bool operator!=(ReferenceVerdict const& other) const { return !(*this == other); }
};

std::ostream& operator<<(std::ostream& out, ReferenceVerdict const& verdict);

/// The verdict on signed data.
struct ReferenceVerification
{
    bool signature = false;
    int status = 0;
    std::string text;

    bool operator==(ReferenceVerification const& other) const;
};

std::ostream& operator<<(std::ostream& out, ReferenceVerification const& verification);

/// Makes an empty store that keeps its entries in the order of OpenSSL 3. OpenSSL 4 keeps a hash table until
/// it is asked for the entries.
StoreHandle makeStore();

/// A store that only its entries count of: not its flags, callbacks and look-ups, and not the trust settings
/// of its certificates. Returns a new store with duplicates of the certificates, in the same order, and with
/// the same CRLs.
/// @throws std::runtime_error "Unsupported object type found in TrustStore" for any other entry
StoreHandle duplicateOf(StoreHandle const& store);

/// Returns a duplicate through the encoding, with nothing cached.
X509Handle duplicateOf(X509Handle const& certificate);

/// Removes the certificates that have expired or do not fit TLS servers, and all other entries, as the
/// library does when it adds the system's roots.
void removeUnsuitableForServers(StoreHandle const& store);

/// How far CRLs are checked in a run that downloaded all of them.
enum class CrlScope
{
    None,
    Leaf,
    WholeChain
};

enum class CrlDownload
{
    None,
    BestEffort,
    Required
};

/// The input of a validation.
struct ReferenceValidator
{
    X509Handle leaf;
    std::vector<X509Handle> chain;
    StoreHandle store;
    /// Tried after a first verdict that another store may change. May be null.
    StoreHandle fallback;
    /// Used instead of a store without entries.
    StoreHandle systemRoots;
    Tolerances tolerances;
    CrlScope crlScope = CrlScope::None;
    CrlDownload crlDownload = CrlDownload::None;
    /// Returns the CRL that a server offers for the certificate; null without one.
    std::function<CrlHandle(X509Handle const&)> download;

    /// Leaves the calling thread's error queue as the library does, unless CRLs are downloaded. A required
    /// CRL that is missing gives the failure text "required CRL".
    ReferenceVerdict validate() const;
    /// Returns the root that every tolerance finds, without CRLs.
    ReferenceVerdict findRoot() const;
    /// Verifies signed data with embedded content. The leaf is ignored and the chain holds the intermediates.
    ReferenceVerification verify(Pkcs7Handle const& signedData) const;
};

} // namespace foundation::test
