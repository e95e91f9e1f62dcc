#include "support/allocation/AllocationCounter.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <openssl/x509_vfy.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A validation costs what its path costs. The number of roots does not matter.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// OpenSSL's memory functions can be replaced only before its first allocation.
bool const isCounting = (countAllocationsOfOpenSSL(), true);

constexpr int manyRoots = 150;
/// OpenSSL makes most allocations of a validation. These are the library's own: the store and the context of
/// the run, the chain, and the result.
constexpr std::int64_t numOwnAllocations = 60;

/// A chain of three, and what a validation needs of it.
struct Pki
{
    explicit Pki(KeyHandle const& key)
        : root(makeRoot("root", withKey(key))),
          ca(makeIntermediate(root, "ca", withKey(key))),
          leaf(makeLeaf(ca, "leaf", withKey(key)))
    {}

    static Mutation withKey(KeyHandle const& key)
    {
        return [key](CertificateSpec& spec) { spec.key = key; };
    }

    CertificateAndKey root;
    CertificateAndKey ca;
    CertificateAndKey leaf;
};

/// Returns the root of the chain and others.
std::vector<CertificateAndKey> rootsWith(Pki const& pki, int number)
{
    std::vector<CertificateAndKey> roots{pki.root};
    while (static_cast<int>(roots.size()) < number) {
        roots.push_back(makeRoot("root " + std::to_string(roots.size())));
    }
    return roots;
}

TrustStore storeWith(std::vector<X509Certificate> const& roots)
{
    TrustStore store;
    for (auto const& root : roots) {
        store.addCertificate(root);
    }
    return store;
}

std::vector<X509Certificate> loaded(std::vector<CertificateAndKey> const& certificates)
{
    std::vector<X509Certificate> all;
    all.reserve(certificates.size());
    for (auto const& certificate : certificates) {
        all.push_back(load(certificate));
    }
    return all;
}

/// The subject of the validations. Loaded once, because OpenSSL computes some values on first use.
struct Subject
{
    explicit Subject(Pki const& pki) : leaf(load(pki.leaf)), chain(chainOf({pki.ca})) {}

    X509Certificate leaf;
    X509CertificateChain chain;

    CertificateChainStatus validate(TrustStore const& store) const
    {
        return leaf.validateCertificate(chain, Options(), store).getCertificateChainStatus();
    }

    /// A trust store is read at the first validation.
    Allocations allocationsWith(TrustStore const& store) const
    {
        EXPECT_EQ(validate(store), Status::Valid);
        return allocationsOf([&] { return validate(store); });
    }
};

int verifyWithOpenSSL(X509_STORE* store, X509* leaf, STACK_OF(X509) * untrusted)
{
    std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX*)> const context(
        X509_STORE_CTX_new(), X509_STORE_CTX_free);
    require(X509_STORE_CTX_init(context.get(), store, leaf, untrusted));
    X509_STORE_CTX_set_flags(
        context.get(), X509_V_FLAG_X509_STRICT | X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST);
    return X509_verify_cert(context.get());
}

/// Counts the allocations of OpenSSL alone, with one store for all verifications.
Allocations allocationsOfOpenSSL(Pki const& pki)
{
    std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> const store(X509_STORE_new(), X509_STORE_free);
    require(X509_STORE_add_cert(store.get(), pki.root.certificate.get()));
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> const untrusted(
        sk_X509_new_null(), [](STACK_OF(X509) * stack) { sk_X509_free(stack); });
    require(sk_X509_push(untrusted.get(), pki.ca.certificate.get()));
    auto const verify = [&] {
        return verifyWithOpenSSL(store.get(), pki.leaf.certificate.get(), untrusted.get());
    };
    EXPECT_EQ(verify(), 1);
    return allocationsOf(verify);
}

void expectFewOwnAllocations(KeyHandle const& key)
{
    ASSERT_TRUE(isCounting);
    Pki const pki(key);
    Subject const subject(pki);
    auto const limit = allocationsOfOpenSSL(pki).count + numOwnAllocations;
    auto const store = storeWith(loaded(rootsWith(pki, manyRoots)));
    EXPECT_LE(subject.allocationsWith(store).count, limit);
}

} // namespace

TEST(ValidationCost, OfRSAChainHasFewOwnAllocations)
{
    expectFewOwnAllocations(rsaKey());
}

TEST(ValidationCost, OfECChainHasFewOwnAllocations)
{
    expectFewOwnAllocations(p256Key());
}

TEST(ValidationCost, DoesNotGrowWithNumberOfRoots)
{
    Pki const pki(p256Key());
    Subject const subject(pki);
    auto const small = storeWith(loaded(rootsWith(pki, 1)));
    auto const large = storeWith(loaded(rootsWith(pki, manyRoots)));
    EXPECT_EQ(subject.allocationsWith(large).count, subject.allocationsWith(small).count);
}

TEST(ValidationCost, LeavesNothingBehind)
{
    Pki const pki(p256Key());
    Subject const subject(pki);
    EXPECT_EQ(subject.allocationsWith(storeWith({load(pki.root)})).kept, 0);
}

TEST(StoreCost, IsAtMost10KilobytesBesideCertificates)
{
    Pki const pki(p256Key());
    Subject const subject(pki);
    auto const roots = loaded(rootsWith(pki, manyRoots));
    subject.validate(storeWith(roots));
    auto const allocations = allocationsOf([&] {
        auto store = std::make_unique<TrustStore>(storeWith(roots));
        subject.validate(*store);
        return store;
    });
    EXPECT_LE(allocations.kept, 10 * 1024);
}

TEST(StoreCost, OfCopyIsAtMostOneKilobyte)
{
    Pki const pki(p256Key());
    Subject const subject(pki);
    auto const store = storeWith(loaded(rootsWith(pki, manyRoots)));
    subject.validate(store);
    auto const allocations = allocationsOf([&] {
        auto copy = std::make_unique<TrustStore>(store);
        EXPECT_EQ(subject.validate(*copy), Status::Valid);
        EXPECT_EQ(copy->size(), std::size_t{manyRoots});
        return copy;
    });
    EXPECT_LE(allocations.kept, 1024);
}
