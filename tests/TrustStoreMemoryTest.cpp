#include "support/TestCrl.hpp"
#include "support/TestPki.hpp"

#include "TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/crypto.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

/// What becomes of each operation when OpenSSL runs out of memory, at each of the allocations that it makes.
namespace {

/// Allocations that still succeed; negative: all do.
thread_local long allocationsLeft = -1;
thread_local bool hasFailed = false;

bool fails()
{
    if (allocationsLeft < 0 || allocationsLeft-- > 0) {
        return false;
    }
    hasFailed = true;
    return true;
}

void* allocate(std::size_t size, char const* /*file*/, int /*line*/)
{
    return size == 0 || fails() ? nullptr : std::malloc(size);
}

void* reallocate(void* memory, std::size_t size, char const* /*file*/, int /*line*/)
{
    return fails() ? nullptr : std::realloc(memory, size);
}

void release(void* memory, char const* /*file*/, int /*line*/)
{
    std::free(memory);
}

/// OpenSSL takes other functions only before it has allocated anything.
bool const isInCharge = CRYPTO_set_mem_functions(allocate, reallocate, release) == 1;

using Texts = std::set<std::string>;

/// The texts of all failures. An operation may also succeed although something in it had failed.
Texts failuresOf(std::function<void()> const& operation)
{
    Texts texts;
    operation(); // What OpenSSL allocates once is there from now on.
    for (long count = 0; count < 100000; ++count) {
        hasFailed = false;
        allocationsLeft = count;
        try {
            operation();
        } catch (std::runtime_error const& failure) {
            allocationsLeft = -1;
            texts.insert(failure.what());
        }
        allocationsLeft = -1;
        if (!hasFailed) {
            return texts;
        }
    }
    ADD_FAILURE() << "The operation never ends its allocating";
    return texts;
}

class WithoutMemory : public testing::Test
{
protected:
    WithoutMemory()
    {
        store.addCertificate(certificate);
        require(X509_STORE_add_crl(getOpenSSLStore(store).get(), makeCrl(root).get()));
    }

    void SetUp() override { ASSERT_TRUE(isInCharge); }

    CertificateAndKey const root = makeRoot("root");
    X509Certificate const certificate = X509Certificate(root.der());
    TrustStore store;
};

TEST_F(WithoutMemory, ATrustStoreIsNotMade)
{
    EXPECT_EQ(failuresOf([] { TrustStore const made; }), Texts{"Failed to create X509_STORE"});
}

TEST_F(WithoutMemory, ATrustStoreIsNotCopied)
{
    EXPECT_EQ(
        failuresOf([&] { TrustStore const copy(store); }),
        (Texts{
            "Failed to create X509_STORE", "Failed to add CRL to store",
            "Failed to add certificate to store, CN: root"}));
    EXPECT_EQ(store.size(), 2U);
}

TEST_F(WithoutMemory, ACopyForOpenSSLIsNullOrFails)
{
    int nulls = 0;
    auto const failures = failuresOf([&] { nulls += copyOpenSSLStore(store) == nullptr ? 1 : 0; });
    EXPECT_EQ(
        failures, (Texts{"Failed to add CRL to store", "Failed to add certificate to store, CN: root"}));
    EXPECT_GT(nulls, 0);
}

TEST_F(WithoutMemory, NothingIsAdded)
{
    auto const fromOutside = failuresOf([&] {
        TrustStoreImpl target;
        target.addCertificate(certificate);
    });
    EXPECT_EQ(fromOutside.count("Failed to add certificate to store"), 1U);

    auto const der = root.der();
    auto const fromTheSystem = failuresOf([&] {
        TrustStoreImpl target;
        target.addDERCertificate(der);
    });
    EXPECT_EQ(fromTheSystem.count("Failed to add certificate to store"), 1U);
    bool parsingFailed = false;
    for (std::string const& text : fromTheSystem) {
        parsingFailed |= text.rfind("Failed to parse DER data to X509 certificate.", 0) == 0;
    }
    EXPECT_TRUE(parsingFailed);
}

TEST_F(WithoutMemory, NothingIsWritten)
{
    TrustStore certificatesOnly;
    certificatesOnly.addCertificate(certificate);
    EXPECT_EQ(failuresOf([&] { certificatesOnly.getPEMStrings(); }), Texts{"Failed to convert X509 to PEM"});
    EXPECT_FALSE(failuresOf([&] { certificatesOnly.getCertificates(); }).empty());
}

TEST_F(WithoutMemory, NoChainIsLoaded)
{
    std::string const bundle = root.pem();
    auto const failures = failuresOf([&] {
        X509CertificateChain const chain(bundle);
        EXPECT_EQ(chain.getNumCertificates(), 1U);
    });
    EXPECT_FALSE(failures.empty());
}

} // namespace
