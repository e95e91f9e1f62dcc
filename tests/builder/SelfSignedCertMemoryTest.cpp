#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/SelfSigned.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/x509.h>

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

} // namespace

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

FOUNDATION_TEST_ALLOCATION_FAILURE(
    Setters, tableOn<SelfSignedCertBuilder>(builder, builderOperations(), nothingOf));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Plain, tableOn<SelfSignedCertBuilder>(builder, buildsWithStride(plainStride), nothingOf));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Encrypted,
    tableOn<SelfSignedCertBuilder>(builderWithPassphrase, buildsWithStride(encryptedStride), nothingOf));
