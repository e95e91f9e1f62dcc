#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/toolkit/Paths.hpp"
#include "support/toolkit/ToolkitOperations.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>
#include <vector>

// Without memory an operation throws. It never gives another answer than the one at rest.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

/// The certificate is loaded anew for each run, so that OpenSSL has cached nothing of it.
std::vector<SweptOperation> queriesOf(Bytes const& der)
{
    return tableOn<Certificate>([der] { return Certificate::fromDER(der); }, toolkitCertificateOperations());
}

std::vector<SweptOperation> validations()
{
    return tableOn<PathValidator>(
        [] { return PathValidator({Certificate::fromDER(toolkitMaterial().root)}); },
        pathValidatorOperations(), renderedValidator);
}

struct Roots : Unchanging
{
    TrustStore store;
    std::vector<Certificate> certificates;
};

AllowedOutcomes const noValidator = failsWith(
    storeUnread() + Failures{
                        toolkitOutOfMemory(), extensionsUnread(),
                        failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: ")});

struct Cheap
{
    Bytes root;
    Bytes leaf;
};

/// A root and a leaf whose keys are fast.
Cheap const& cheap()
{
    static Cheap const made = [] {
        auto const root = makeRoot("root", [](CertificateSpec& spec) { spec.key = ed25519Key("root"); });
        auto const leaf =
            makeLeaf(root, "leaf", [](CertificateSpec& spec) { spec.key = ed25519Key("leaf"); });
        return Cheap{root.der(), leaf.der()};
    }();
    return made;
}

/// Whether a validator that was made under shortage trusts what it should.
bool trustsLeaf(PathValidator const& validator)
{
    static auto const leaf = Certificate::fromDER(cheap().leaf);
    return validator.validate(leaf, {}).isValid();
}

struct Validator
{
    PathValidator made;
};

std::string rendered(Validator const& validator)
{
    return trustsLeaf(validator.made) ? "trusts" : "does not trust";
}

std::vector<SweptOperation> constructions()
{
    auto const make = [] {
        Roots roots;
        roots.certificates = {Certificate::fromDER(cheap().root)};
        roots.store.addCertificate(X509Certificate(cheap().root));
        return roots;
    };
    return operationsOn<Roots>(
        "PathValidator of ", make,
        {
            {"certificates", [](auto& roots) { return Validator{PathValidator(roots.certificates)}; },
             noValidator},
            {"a trust store", [](auto& roots) { return Validator{PathValidator(roots.store)}; }, noValidator},
            {"certificates that are loaded for it",
             [](auto&) { return Validator{PathValidator({Certificate::fromDER(cheap().root)})}; },
             noValidator},
        });
}

/// The result while OpenSSL is refused memory; none after an exception.
std::optional<PathResult>
resultDuring(std::size_t allocation, std::size_t numRefusals, std::function<PathResult()> const& validate)
{
    Shortage const shortage(Memory::OpenSSL, allocation, numRefusals);
    try {
        return validate();
    } catch (std::exception const&) {
        return std::nullopt;
    }
}

/// Loads and validates again and again, each time with other refused allocations.
void expectSameOrException(std::function<PathResult()> const& validate)
{
    auto const atRest = foundation::toolkit::rendered(validate());
    for (auto const numRefusals : {1U, 4U, 16U}) {
        std::size_t allocation = 0;
        do {
            auto const result = resultDuring(allocation, numRefusals, validate);
            if (result) {
                ASSERT_EQ(foundation::toolkit::rendered(*result), atRest)
                    << numRefusals << " refusals from allocation " << allocation;
            }
            allocation += numRefusals == 1 ? 7 : 5;
        } while (Shortage::hasOccurred());
        EXPECT_GT(allocation, 100U);
    }
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

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(Leaf, queriesOf(toolkitMaterial().leaf));
FOUNDATION_TEST_ALLOCATION_FAILURE(Validations, validations());
FOUNDATION_TEST_ALLOCATION_FAILURE(Validators, constructions());

TEST(PathValidationShortage, NeverHidesFlaw)
{
    struct
    {
        char const* name;
        Mutation mutateRoot;
        Mutation mutateLeaf;
        int code;
    } const rows[] = {
        {"expired root",
         [](CertificateSpec& spec) { spec.notAfter = TimeSpec::at(1000000000); },
         {},
         X509_V_ERR_CERT_HAS_EXPIRED},
        {"damaged root",
         [](CertificateSpec& spec) { spec.damagedSignature = true; },
         {},
         X509_V_ERR_CERT_SIGNATURE_FAILURE},
        {"forged leaf",
         {},
         [](CertificateSpec& spec) { spec.damagedSignature = true; },
         X509_V_ERR_CERT_SIGNATURE_FAILURE},
        {"leaf for signing",
         {},
         [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "codeSigning"); },
         X509_V_ERR_INVALID_PURPOSE},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const root = makeRoot("root", withCheapKey(row.mutateRoot));
        auto const leaf = makeLeaf(root, "leaf", withCheapKey(row.mutateLeaf)).der();
        auto const rootDer = root.der();
        PathOptions options;
        options.purpose = Purpose::TLSServer;
        auto const validate = [&] {
            // All is loaded without memory, too: what OpenSSL caches then must not change the result.
            return PathValidator({Certificate::fromDER(rootDer)})
                .validate(Certificate::fromDER(leaf), {}, options);
        };
        ASSERT_EQ(validate().errorCode, row.code);
        expectSameOrException(validate);
    }
}
