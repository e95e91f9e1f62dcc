#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/allocation/Shortage.hpp"
#include "support/pki/SelfSigned.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/x509.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// The source files in which OpenSSL allocates while it decodes ASN.1.
SparedSources::Files const decoder{"a_object.c", "asn1_lib.c", "tasn_dec.c", "tasn_new.c"};

SelfSignedCertBuilder builder()
{
    auto made = fastBuilder();
    made.withSerialNumber(7).withCommonName("build.example");
    return made;
}

SelfSignedCertBuilder builderWithPassphrase()
{
    auto made = builder();
    made.withPrivateKeyPassphrase("secret");
    return made;
}

/// A builder shows its state only by what it builds.
std::string nothingOf(SelfSignedCertBuilder const& /*builder*/)
{
    return "";
}

std::vector<Operation<SelfSignedCertBuilder>> buildsWithStride(std::size_t stride)
{
    std::vector<Operation<SelfSignedCertBuilder>> builds;
    for (auto build : builderOperations()) {
        if (build.isCostly) {
            build.openSSL.stride = stride;
            build.isCostly = false;
            builds.push_back(build);
        }
    }
    return builds;
}

/// Most allocations of an encryption belong to the thousands of rounds that derive a key from the passphrase.
constexpr std::size_t encryptedStride = 701;
constexpr std::size_t plainStride = 53;

/// A shortage that begins when OpenSSL adds an attribute to a name.
struct ShortageOfAttribute
{
    std::size_t attribute; // its number, counted from 0
    std::size_t numRefused;
    std::optional<Shortage> shortage{};
};

ShortageOfAttribute* shortageOfAttribute = nullptr;

} // namespace

/// Replaces OpenSSL's function: calls it, perhaps without memory.
int X509_NAME_add_entry_by_txt(
    X509_NAME* name, char const* field, int type, unsigned char const* bytes, int length, int place, int set)
{
    static auto* const original = reinterpret_cast<decltype(&X509_NAME_add_entry_by_txt)>(
        dlsym(RTLD_NEXT, "X509_NAME_add_entry_by_txt"));
    if (shortageOfAttribute != nullptr && shortageOfAttribute->attribute-- == 0) {
        shortageOfAttribute->shortage.emplace(Memory::OpenSSL, 0, shortageOfAttribute->numRefused);
    }
    return original(name, field, type, bytes, length, place, set);
}

/// Replaces OpenSSL's function: calls it and exempts the decoder's allocations from the shortage.
///
/// ASN1_item_sign_ctx calls d2i_X509_ALGOR to fill the two algorithm identifiers of the certificate. A
/// decoder that fails frees the object that it was to fill, but these two are members of the X509. If one of
/// the decoder's allocations is refused, OpenSSL passes free() a pointer that malloc() never returned.
int X509_sign_ctx(X509* certificate, EVP_MD_CTX* context)
{
    static auto* const original =
        reinterpret_cast<decltype(&X509_sign_ctx)>(dlsym(RTLD_NEXT, "X509_sign_ctx"));
    SparedSources const spared(decoder);
    return original(certificate, context);
}

TEST(SelfSignedCertShortage, NeverLeavesOutAnAttribute)
{
    auto const complete = builder().build().first.getSubjectName();
    std::size_t numFailures = 0;
    for (std::size_t const numRefused : {1U, 2U, 4U, 8U, 16U}) {
        bool hasOccurred = true;
        for (std::size_t attribute = 0; hasOccurred; ++attribute) {
            SCOPED_TRACE(std::to_string(numRefused) + " refused from attribute " + std::to_string(attribute));
            ShortageOfAttribute active{attribute, numRefused};
            shortageOfAttribute = &active;
            try {
                auto const certificate = builder().build().first;
                active.shortage.reset();
                EXPECT_EQ(certificate.getSubjectName(), complete);
            } catch (std::runtime_error const& failure) {
                active.shortage.reset();
                EXPECT_TRUE(beginsWith(failure.what(), "Failed to generate a certificate: "))
                    << failure.what();
                ++numFailures;
            }
            shortageOfAttribute = nullptr;
            hasOccurred = active.attribute > attribute; // counted below 0
        }
    }
    EXPECT_GT(numFailures, 0U);
}

FOUNDATION_TEST_ALLOCATION_FAILURE(
    Setters, tableOn<SelfSignedCertBuilder>(builder, builderOperations(), nothingOf));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Plain, tableOn<SelfSignedCertBuilder>(builder, buildsWithStride(plainStride), nothingOf));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Encrypted,
    tableOn<SelfSignedCertBuilder>(builderWithPassphrase, buildsWithStride(encryptedStride), nothingOf));
