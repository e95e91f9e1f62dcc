#include "support/OpenSSLMemory.hpp"
#include "support/Verifying.hpp"

#include <gtest/gtest.h>

#include <map>

#if defined(__has_feature)
#define FOUNDATION_TEST_HAS_FEATURE(name) __has_feature(name)
#else
#define FOUNDATION_TEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || FOUNDATION_TEST_HAS_FEATURE(address_sanitizer)
#include <sanitizer/lsan_interface.h>
/// OpenSSL 3.0 itself loses a certificate of the untrusted set if memory runs out while it builds a chain; a
/// verification with nothing but OpenSSL shows the same.
using OpenSSLMayLeak = __lsan::ScopedDisabler;
#else
struct OpenSSLMayLeak
{
    OpenSSLMayLeak() {}
};
#endif

// A verification that OpenSSL cannot finish for want of memory ends in a failure of some kind, and never in a
// trust that is not deserved.

namespace {

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

void withCheapKey(CertificateSpec& spec)
{
    spec.key = ed25519Key(spec.subject.front().value);
}

struct Outcomes
{
    std::set<std::string> failures;
    std::map<Status, int> verdicts;
};

class ValidationWithoutMemory : public testing::Test
{
protected:
    Outcomes validate(CertificateAndKey const& leaf, CertificateAndKey const& anchor, long stride) const
    {
        auto const certificate = load(leaf);
        auto const trustStore = storeOf({anchor});
        OpenSSLMayLeak const tolerated;
        Outcomes outcomes;
        outcomes.failures = failuresWithoutMemory(
            [&] {
                auto const results =
                    certificate.validateCertificate(X509CertificateChain(), Options(), trustStore);
                auto const status = results.getCertificateChainStatus();
                EXPECT_EQ(results.getRootCertificate().has_value(), status == Status::Valid);
                ++outcomes.verdicts[status];
            },
            stride);
        return outcomes;
    }

    CertificateAndKey const root = makeRoot("root", withCheapKey);
};

TEST_F(ValidationWithoutMemory, NamesWhatCouldNotBeDone)
{
    auto const outcomes = validate(makeLeaf(root, "leaf", withCheapKey), root, 1);

    for (auto const* const text :
         {"Internal Error: error creating X509_STORE_CTX object\n", "Failed to create X509_STORE",
          "Failed to set the flags to X509 parameters", "Invalid certificate chain length.\n"}) {
        EXPECT_EQ(outcomes.failures.count(text), 1U) << text;
    }
    EXPECT_GT(outcomes.verdicts.at(Status::Valid), 0);
}

TEST_F(ValidationWithoutMemory, NeverTrustsWhatDoesNotDeserveIt)
{
    CertificateAndKey const undeserving[] = {
        makeLeaf(root, "leaf", [](CertificateSpec& spec) { spec.damagedSignature = true; }),
        makeLeaf(root, "leaf", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); }),
        makeLeaf(root, "leaf", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); }),
        makeLeaf(makeRoot("other"), "leaf"),
        makeSelfSignedLeaf("leaf"),
    };
    for (auto const& leaf : undeserving) {
        SCOPED_TRACE(&leaf - undeserving);
        auto const outcomes = validate(leaf, root, 13);
        EXPECT_EQ(outcomes.verdicts.count(Status::Valid), 0U);
        EXPECT_FALSE(outcomes.failures.empty());
        EXPECT_FALSE(outcomes.verdicts.empty());
    }
}

} // namespace
