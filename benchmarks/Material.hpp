#pragma once

/// @file
/// What the operations work on, made anew for each run by bare OpenSSL, and the pieces that the bare sides of
/// several groups share.

#include "libcrypto/OpenSSLHandles.hpp"

#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <string>
#include <vector>

namespace foundation::benchmarks {

using namespace foundation::certificates;
using test::CertificateAndKey;
using test::chainOf;
using test::load;
using test::storeOf;

enum class KeyKind
{
    RSA2048,
    P256,
    Ed25519
};

/// A leaf as public authorities issue them: five attributes, key usages, policies, names.
CertificateAndKey const& typicalLeaf(KeyKind kind);

/// As many roots as asked for, half of them with RSA keys, half with P-256 keys.
std::vector<CertificateAndKey> roots(std::size_t count);

/// A leaf first, then intermediates; the last is signed by the root.
std::vector<CertificateAndKey> chainBelow(CertificateAndKey const& root, std::size_t length);

/// The operating system's roots that the library accepts, as one PEM text; made-up roots where there are
/// none.
std::string systemBundle();

/// The library's rule for keys, in the least work: RSA of at least 1024 bits, prime256v1, Ed25519.
bool hasFitKey(X509* certificate);

/// A store of duplicates.
X509_STOREUPtr bareStore(std::vector<CertificateAndKey> const& certificates);
/// A store of duplicates of all certificates in the store.
X509_STOREUPtr bareCopy(X509_STORE* store);

} // namespace foundation::benchmarks
