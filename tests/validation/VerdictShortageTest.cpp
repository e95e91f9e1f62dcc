#include "support/Text.hpp"
#include "support/allocation/Shortage.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509Duplicates.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>
#include <openssl/stack.h>

#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>

// OpenSSL answers some questions wrong while memory is short, instead of failing. None of these answers may
// make a certificate valid.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

/// How many consecutive allocations are refused, and the distance between the first ones of two runs. Four
/// refusals provoke each known wrong answer from four neighbouring allocations.
struct Sweep
{
    static constexpr Sweep refusing(std::size_t number) { return {number, 1}; }
    constexpr Sweep withStride(std::size_t distance) const { return {numRefusals, distance}; }

    std::size_t numRefusals;
    std::size_t stride;
};

using Validation = std::function<Status(TrustStore const&)>;
using StoreMaker = std::function<std::shared_ptr<TrustStore const>()>;

/// The verdict while OpenSSL is refused memory; none after an exception.
std::optional<Status> verdictDuring(
    std::size_t allocation, std::size_t numRefusals, TrustStore const& store, Validation const& validate)
{
    Shortage const shortage(Memory::OpenSSL, allocation, numRefusals);
    try {
        return validate(store);
    } catch (std::exception const&) {
        return std::nullopt;
    }
}

/// Validates again and again, each time with another allocation as the first that is refused. Expects more
/// allocations than the given number.
void expectNeverValid(Validation const& validate, StoreMaker const& makeStore, std::size_t numAllocations)
{
    constexpr Sweep sweeps[] = {
        Sweep::refusing(1).withStride(5),
        Sweep::refusing(4).withStride(2),
        Sweep::refusing(16).withStride(7),
    };
    for (auto const [numRefusals, stride] : sweeps) {
        std::size_t allocation = 0;
        do {
            auto const store = makeStore();
            EXPECT_NE(verdictDuring(allocation, numRefusals, *store, validate), Status::Valid)
                << numRefusals << " refusals from allocation " << allocation;
            allocation += stride;
        } while (Shortage::hasOccurred());
        EXPECT_GT(allocation, numAllocations);
    }
}

/// Validates against one store, and then against a new store each time. The first validation against a store
/// reads its certificates. The verification itself has few allocations.
void expectNeverValid(Validation const& validate, StoreMaker const& makeStore)
{
    auto const knownStore = makeStore();
    validate(*knownStore);
    expectNeverValid(
        validate, [&] { return knownStore; }, 40);
    expectNeverValid(validate, makeStore, 100);
}

Mutation withCheapKey(Mutation const& mutate)
{
    return [mutate](CertificateSpec& spec) {
        spec.key = ed25519Key(spec.subject.front().value);
        if (mutate) {
            mutate(spec);
        }
    };
}

constexpr int noPush = -1;
int pushWithoutMemory = noPush; // of the function below, counted from 0

/// Whether a call comes from the library and not from OpenSSL. False if nobody asks for a failure.
bool isCalledByLibrary(void const* returnAddress)
{
    Dl_info caller{};
    return pushWithoutMemory >= 0 && dladdr(returnAddress, &caller) != 0 &&
           !contains(caller.dli_fname, "libcrypto");
}

/// Returns the text of the exception if this push finds no memory; empty if the operation succeeds.
std::string failureWithout(int push, std::function<void()> const& operation)
{
    pushWithoutMemory = push;
    std::string text;
    try {
        operation();
    } catch (std::runtime_error const& failure) {
        text = failure.what();
    }
    pushWithoutMemory = noPush;
    return text;
}

} // namespace

/// Replaces OpenSSL's function: calls it, or fails as it does without memory. OpenSSL's own calls do not
/// count.
int OPENSSL_sk_push(OPENSSL_STACK* stack, void const* element)
{
    static auto* const original =
        reinterpret_cast<decltype(&OPENSSL_sk_push)>(dlsym(RTLD_NEXT, "OPENSSL_sk_push"));
    if (isCalledByLibrary(__builtin_return_address(0)) && pushWithoutMemory-- == 0) {
        return 0;
    }
    return original(stack, element);
}

TEST(Validation, ShortageNeverHidesFlawOfRoot)
{
    struct
    {
        char const* name;
        Mutation mutateRoot;
        Status verdict;
    } const rows[] = {
        {"expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); }, Status::Expired},
        {"damaged", [](CertificateSpec& spec) { spec.damagedSignature = true; }, Status::BadSignature},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const root = makeRoot("root", withCheapKey(row.mutateRoot));
        auto const leaf = load(makeLeaf(root, "leaf", withCheapKey({})));
        auto const makeStore = [&] {
            auto const made = std::make_shared<TrustStore>();
            addUnchecked(*made, root.certificate);
            return made;
        };
        auto const validate = [&](TrustStore const& store) {
            return leaf.validateCertificate(X509CertificateChain(), Options(), store)
                .getCertificateChainStatus();
        };
        ASSERT_EQ(validate(*makeStore()), row.verdict);

        expectNeverValid(validate, makeStore);
    }
}

TEST(Validation, ShortageNeverLeadsToFallbackStore)
{
    auto const root = makeRoot("root", withCheapKey({}));
    auto const expiredRoot =
        makeRoot("root", withCheapKey([](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); }));
    auto const leaf = load(makeLeaf(root, "leaf", withCheapKey({})));
    auto const makeStore = [&] {
        auto const made = std::make_shared<TrustStore const>(storeOf({expiredRoot}));
        getOpenSSLStore(*made);
        return made;
    };
    auto const options = optionsWith(
        {}, Options::CheckCRL::None, Options::DownloadCRL::None,
        std::make_shared<TrustStore const>(storeOf({root})));
    auto const validate = [&](TrustStore const& store) {
        return leaf.validateCertificate(X509CertificateChain(), options, store).getCertificateChainStatus();
    };
    ASSERT_EQ(validate(*makeStore()), Status::Expired);

    expectNeverValid(validate, makeStore);
}

TEST(Validation, ShortageNeverDropsGivenChain)
{
    auto const root = makeRoot("root", withCheapKey({}));
    auto const expired = makeIntermediate(
        root, "ca", withCheapKey([](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); }));
    auto const renewed = makeIntermediate(root, "ca", withCheapKey({}));
    auto const leaf = load(makeLeaf(expired, "leaf", withCheapKey({})));
    auto const chain = chainOf({expired});
    // Without the chain, the issuer is unknown. That leads to the fallback store, which has the renewed one.
    auto const options = optionsWith(
        {}, Options::CheckCRL::None, Options::DownloadCRL::None,
        std::make_shared<TrustStore const>(storeOf({root, renewed})));
    auto const validate = [&](TrustStore const& store) {
        return leaf.validateCertificate(chain, options, store).getCertificateChainStatus();
    };
    auto const makeStore = [&] { return std::make_shared<TrustStore const>(storeOf({root})); };
    ASSERT_EQ(validate(*makeStore()), Status::Expired);

    expectNeverValid(validate, makeStore, 40);
}

TEST(Validation, ListThatCannotGrowIsAFailure)
{
    auto const root = makeRoot("root", withCheapKey({}));
    auto const ca = makeIntermediate(root, "ca", withCheapKey({}));
    auto const leaf = load(makeLeaf(ca, "leaf", withCheapKey({})));
    auto const failureWithoutPush = [&](int push) {
        auto const store = storeOf({root});
        return failureWithout(push, [&] {
            EXPECT_EQ(
                leaf.validateCertificate(chainOf({ca}), Options(), store).getCertificateChainStatus(),
                Status::Valid);
        });
    };

    EXPECT_EQ(failureWithoutPush(0), "Failed to create X509_STORE");            // the root
    EXPECT_EQ(failureWithoutPush(1), "Error: X509Certificate has no content."); // the leaf
    EXPECT_EQ(failureWithoutPush(2), "Error: X509Certificate has no content."); // the intermediate
    EXPECT_EQ(failureWithoutPush(3), "");
}

TEST(StackOfCertificates, ThrowsIfItCannotGrow)
{
    std::vector<X509Certificate> const certificates{load(makeRoot("root", withCheapKey({})))};
    EXPECT_EQ(failureWithout(0, [&] { stackOf(certificates); }), "Error: X509Certificate has no content.");
}

TEST(StackOfCertificates, ThrowsIfItCannotBeMade)
{
    std::vector<X509Certificate> const certificates{load(makeRoot("root", withCheapKey({})))};
    EXPECT_EQ(sk_X509_num(stackOf(certificates).get()), 1);

    Shortage const shortage(Memory::OpenSSL, 0, 1);
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.", stackOf(certificates));
}
