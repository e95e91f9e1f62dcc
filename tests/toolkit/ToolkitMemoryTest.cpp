#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/toolkit/IssuanceOperations.hpp"
#include "support/toolkit/Paths.hpp"
#include "support/toolkit/SourceOperations.hpp"
#include "support/toolkit/ToolkitOperations.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <dlfcn.h>

// Without memory an operation throws and changes nothing. It never gives another answer than the one at rest:
// no request is taken for a forged one, no key for the wrong one, and no certificate lacks a part.

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

std::vector<SweptOperation> requests()
{
    return tableOn<CertificateRequest>(newRequest, certificateRequestOperations());
}

std::vector<SweptOperation> builders()
{
    return tableOn<EndEntityCertificateBuilder>(newBuilder, endEntityBuilderOperations(), renderedBuilder);
}

std::vector<SweptOperation> keys()
{
    // Bundles have random salts, so two are never alike.
    return tableOn<PKCS12Certificate>(
        newBundle, privateKeyOperations(), [](PKCS12Certificate const&) { return std::string(); });
}

std::vector<SweptOperation> results()
{
    return tableOn<PathResult>(
        [] {
            PathResult result;
            result.chain = {Certificate::fromDER(toolkitMaterial().leaf)};
            return result;
        },
        pathResultOperations());
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
    constexpr std::size_t stride = 7; // most allocations are those of OpenSSL's decoder of keys
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
            {"a trust store", [](auto& roots) { return Validator{PathValidator(roots.store)}; },
             withStride(stride, noValidator)},
            {"certificates that are loaded for it",
             [](auto&) { return Validator{PathValidator({Certificate::fromDER(cheap().root)})}; },
             withStride(stride, noValidator)},
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

/// The source files in which OpenSSL allocates while it decodes ASN.1.
SparedSources::Files const decoder{"a_object.c", "asn1_lib.c", "tasn_dec.c", "tasn_new.c"};

/// Signs without a shortage of memory in the decoder.
///
/// ASN1_item_sign_ctx fills the algorithm identifiers of the signed object with d2i_X509_ALGOR. A decoder
/// that fails frees the object that it was to fill, but these are members of the signed object. If one of the
/// decoder's allocations is refused, OpenSSL passes free() a pointer that malloc() never returned.
template <class Sign, class Object>
int signWithDecoder(Sign* original, Object* object, EVP_PKEY* key, EVP_MD const* digest)
{
    SparedSources const spared(decoder);
    return original(object, key, digest);
}

/// Calls expectPeer while OpenSSL is refused one allocation. Returns whether it succeeded.
bool expects(SSL* connection, std::string const& hostOrAddress, std::size_t firstRefused)
{
    try {
        Shortage const shortage(Memory::OpenSSL, firstRefused);
        expectPeer(connection, hostOrAddress);
        return true;
    } catch (X509CertificateException const& failure) {
        EXPECT_STREQ(failure.what(), "Internal error: OpenSSL ran out of memory.");
        return false;
    }
}

/// Reads a bundle without some of OpenSSL's memory. Returns the failure, or the exception's text.
std::string failureWithout(std::size_t firstRefused, std::string const& bundle)
{
    std::istringstream stream(bundle);
    CertificateReader reader(stream, "source");
    reader.withPassphrase("secret");
    try {
        constexpr std::size_t numRefusals = 16;
        Shortage const shortage(Memory::OpenSSL, firstRefused, numRefusals);
        return reader.next()->failure;
    } catch (X509CertificateException const& failure) {
        return failure.what();
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

// Replace OpenSSL's functions: call them and exempt the decoder's allocations.

int X509_sign(X509* certificate, EVP_PKEY* key, EVP_MD const* digest)
{
    static auto* const original = reinterpret_cast<decltype(&X509_sign)>(dlsym(RTLD_NEXT, "X509_sign"));
    return signWithDecoder(original, certificate, key, digest);
}

int X509_REQ_sign(X509_REQ* request, EVP_PKEY* key, EVP_MD const* digest)
{
    static auto* const original =
        reinterpret_cast<decltype(&X509_REQ_sign)>(dlsym(RTLD_NEXT, "X509_REQ_sign"));
    return signWithDecoder(original, request, key, digest);
}

FOUNDATION_TEST_ALLOCATION_FAILURE(Leaf, queriesOf(toolkitMaterial().leaf));
FOUNDATION_TEST_ALLOCATION_FAILURE(Validations, validations());
FOUNDATION_TEST_ALLOCATION_FAILURE(Results, results());
FOUNDATION_TEST_ALLOCATION_FAILURE(Validators, constructions());
FOUNDATION_TEST_ALLOCATION_FAILURE(Requests, requests());
FOUNDATION_TEST_ALLOCATION_FAILURE(Builders, builders());
FOUNDATION_TEST_ALLOCATION_FAILURE(Keys, keys());
FOUNDATION_TEST_ALLOCATION_FAILURE(Readers, tableOn<NoObject>([] { return NoObject(); }, readerOperations()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Peers, tableOn<ConnectedClient>(newConnectedClient, tlsPeerOperations()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Contexts, tableOn<ClientContext>([] { return ClientContext(); }, tlsContextOperations()));

TEST(ExpectPeerShortage, IsReportedOrNamesAreCompared)
{
    // The server's certificate is trusted, but issued for another name.
    for (std::string const expected : {"other.example.org", "192.0.2.7"}) {
        std::size_t numFailures = 0;
        for (std::size_t firstRefused = 0;; ++firstRefused) {
            SCOPED_TRACE(expected + " without allocation " + std::to_string(firstRefused));
            auto ends = makeTrustingConnections();
            if (!expects(ends.client.get(), expected, firstRefused)) {
                ++numFailures;
                continue;
            }
            bool const isRefused = Shortage::hasOccurred();
            shakeHands(ends);
            EXPECT_FALSE(ends.isComplete);
            if (!isRefused) {
                break;
            }
        }
        EXPECT_GT(numFailures, 0U);
    }
}

// A process loads the legacy provider once, so each shortage has a process of its own.
TEST(LegacyProviderDeathTest, ShortageIsNoDamage)
{
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = makeRoot("a").certificate;
    spec.certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC;
    auto const parsed = makePkcs12(spec);
    auto const bundle = asText(toDer(parsed));
    // OpenSSL stays unusable if it runs out of memory for its first provider.
    require(PKCS12_verify_mac(parsed.get(), "secret", -1));
    auto const run = [&](std::size_t firstRefused) {
        auto const failure = failureWithout(firstRefused, bundle);
        // OpenSSL can also stay without the provider's ciphers.
        std::shared_ptr<EVP_CIPHER> const cipher(
            EVP_CIPHER_fetch(nullptr, "RC2-40-CBC", nullptr), EVP_CIPHER_free);
        std::cerr << failure;
        std::_Exit(failure.empty() || beginsWith(failure, "Internal error: ") || cipher == nullptr ? 0 : 1);
    };
    constexpr std::size_t numAllocations = 1500;
    for (std::size_t firstRefused = 0; firstRefused < numAllocations; firstRefused += 31) {
        EXPECT_EXIT(run(firstRefused), testing::ExitedWithCode(0), "") << firstRefused;
    }
}

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
