#pragma once

/// @file
/// The test data of the operations, created by bare OpenSSL in each run, and code that the OpenSSL sides of
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

/// A leaf as public CAs issue it: five attributes, key usages, policies, names.
CertificateAndKey const& typicalLeaf(KeyKind kind);

/// Returns the given number of roots, half with RSA keys and half with P-256 keys.
std::vector<CertificateAndKey> roots(std::size_t count);

/// Returns a leaf, then intermediates. The root signed the last one.
std::vector<CertificateAndKey> chainBelow(CertificateAndKey const& root, std::size_t length);

/// Returns the operating system's roots that the library accepts, as one PEM text. Without any, returns
/// generated roots.
std::string systemBundle();

/// The library's rule for keys with the least work: RSA with at least 1024 bits, prime256v1, Ed25519.
bool hasFitKey(X509* certificate);

/// Returns a store of duplicates.
X509_STOREUPtr bareStore(std::vector<CertificateAndKey> const& certificates);
/// Returns a store with duplicates of all certificates in the given store.
X509_STOREUPtr bareCopy(X509_STORE* store);

} // namespace foundation::benchmarks
