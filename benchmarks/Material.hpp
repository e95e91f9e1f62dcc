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

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
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

/// Returns the first roots of a list that this process makes once. Of the first thousand, half have RSA keys
/// and half P-256 keys. All others have P-256 keys, which sign faster.
std::vector<CertificateAndKey> roots(std::size_t count);

/// Returns a leaf, then intermediates. The root signed the last one.
std::vector<CertificateAndKey> chainBelow(CertificateAndKey const& root, std::size_t length);

/// Writes what the programs of other libraries measure: "chain.pem", the leaf and two intermediates, and
/// "roots.pem", the roots. The first root signed the chain.
void writeMaterial(std::string const& folder, std::size_t rootCount);

/// Returns the operating system's roots that the library accepts, as one PEM text. Without any, returns
/// generated roots.
std::string systemBundle();

/// The library's rule for keys with the least work: RSA with at least 1024 bits, prime256v1, Ed25519.
bool hasFitKey(X509* certificate);

/// Returns a store that shares the certificates.
X509_STOREUPtr bareStore(std::vector<CertificateAndKey> const& certificates);
/// Returns a store that shares all certificates of the given store.
X509_STOREUPtr bareCopy(X509_STORE* store);
/// Returns a store with duplicates of all certificates in the given store.
X509_STOREUPtr bareDeepCopy(X509_STORE* store);

/// An object that is made when it is first used. The rows that a filter excludes make nothing.
template <typename T>
class Lazy
{
public:
    template <typename Maker>
    explicit Lazy(Maker maker) : state(std::make_shared<State>(std::move(maker)))
    {}

    T const& operator*() const
    {
        std::call_once(state->once, [this] { state->object.emplace(state->make()); });
        return *state->object;
    }
    T const* operator->() const { return &**this; }

private:
    struct State
    {
        explicit State(std::function<T()> maker) : make(std::move(maker)) {}

        std::once_flag once;
        std::function<T()> make;
        std::optional<T> object;
    };

    std::shared_ptr<State> state;
};

} // namespace foundation::benchmarks
