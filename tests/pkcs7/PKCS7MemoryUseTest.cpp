#include "support/allocation/RefusedAllocation.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

// How much memory OpenSSL holds at most, and that the library copies no large content.

namespace {

constexpr std::size_t mebibyte = 1024U * 1024U;
constexpr std::size_t contentSize = 4 * mebibyte;

std::atomic<std::size_t> heldBytes{0};
std::atomic<std::size_t> highestHeldBytes{0};

/// Each block begins with its size.
constexpr std::size_t headerSize =
    alignof(std::max_align_t) < sizeof(std::size_t) ? sizeof(std::size_t) : alignof(std::max_align_t);

char* blockOf(void* memory)
{
    return static_cast<char*>(memory) - headerSize;
}

std::size_t sizeOf(void* memory)
{
    std::size_t size = 0;
    std::memcpy(&size, blockOf(memory), sizeof size);
    return size;
}

void* memoryIn(void* block, std::size_t size)
{
    if (block == nullptr) {
        return nullptr;
    }
    std::memcpy(block, &size, sizeof size);
    heldBytes += size;
    highestHeldBytes = std::max(highestHeldBytes.load(), heldBytes.load());
    return static_cast<char*>(block) + headerSize;
}

void* allocate(std::size_t size, char const* /*file*/, int /*line*/)
{
    return memoryIn(std::malloc(headerSize + size), size);
}

void release(void* memory, char const* /*file*/, int /*line*/)
{
    if (memory != nullptr) {
        heldBytes -= sizeOf(memory);
        std::free(blockOf(memory));
    }
}

void* reallocate(void* memory, std::size_t size, char const* file, int line)
{
    if (memory == nullptr) {
        return allocate(size, file, line);
    }
    std::size_t const before = sizeOf(memory);
    void* const block = std::realloc(blockOf(memory), headerSize + size);
    if (block != nullptr) {
        heldBytes -= before;
    }
    return memoryIn(block, size);
}

bool const isCounting = CRYPTO_set_mem_functions(allocate, reallocate, release) == 1;

/// Returns how much more memory OpenSSL holds at the highest point of the work than before it.
std::size_t memoryOf(std::function<void()> const& work)
{
    work(); // what OpenSSL allocates once is not counted
    std::size_t const before = heldBytes;
    highestHeldBytes = before;
    work();
    return highestHeldBytes - before;
}

/// Returns what OpenSSL alone needs to check the signature. Some releases of it copy embedded content.
std::size_t memoryOfOpenSSL(Bytes const& der)
{
    auto const* position = der.data();
    auto const data = own(d2i_PKCS7(nullptr, &position, static_cast<long>(der.size())));
    return memoryOf(
        [&] { EXPECT_EQ(PKCS7_verify(data.get(), nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY), 1); });
}

class PKCS7MemoryUse : public testing::Test
{
protected:
    PKCS7MemoryUse() { EXPECT_TRUE(isCounting); }

    Bytes signedBy(CertificateAndKey const& by, bool detached) const
    {
        SignedDataSpec spec;
        spec.content = std::string(contentSize, 'x');
        spec.signers = {by};
        spec.detached = detached;
        return toDer(makeSignedData(spec));
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const signer = makeLeaf(root, "signer");
    TrustStore const trusted = storeOf({root});
    X509CertificateChain const none;
};

} // namespace

TEST_F(PKCS7MemoryUse, LoadCopiesTheContentOnce)
{
    auto const der = signedBy(signer, false);
    RefusedAllocation const refused(der.size());
    EXPECT_LT(memoryOf([&] { EXPECT_FALSE(PKCS7Certificate(der).empty()); }), contentSize + mebibyte);
}

TEST_F(PKCS7MemoryUse, VerificationReadsDetachedContentInPlace)
{
    PKCS7Certificate const loaded(signedBy(signer, true));
    ByteArray const content(contentSize, 'x');
    RefusedAllocation const refused(content.size());
    auto const verify = [&] {
        EXPECT_TRUE(loaded.verifySignature(none, trusted, content).isValidSignature());
    };
    EXPECT_LT(memoryOf(verify), mebibyte);
}

TEST_F(PKCS7MemoryUse, VerificationCopiesNoEmbeddedContent)
{
    auto const der = signedBy(signer, false);
    PKCS7Certificate const loaded(der);
    auto const verify = [&] {
        EXPECT_TRUE(loaded.verifySignature(none, trusted, ByteArray()).isValidSignature());
    };
    EXPECT_LT(memoryOf(verify), memoryOfOpenSSL(der) + mebibyte);
}

TEST_F(PKCS7MemoryUse, UntrustedSignerNeedsNoCopyOfTheContent)
{
    auto const der = signedBy(makeLeaf(makeRoot("other root"), "signer"), false);
    PKCS7Certificate const loaded(der);
    auto const verify = [&] {
        ERR_clear_error();
        auto const results = loaded.verifySignature(none, trusted, ByteArray());
        EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Untrusted);
        EXPECT_EQ(loaded.getSignerCerts().getNumCertificates(), 1U);
    };
    EXPECT_LT(memoryOf(verify), memoryOfOpenSSL(der) + mebibyte);
}
