#include "support/OpenSSLMemory.hpp"
#include "support/TestCrl.hpp"
#include "support/TestPki.hpp"

#include "TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

/// What becomes of each operation when OpenSSL runs out of memory, at each of the allocations that it makes.
namespace {

using Texts = std::set<std::string>;

class WithoutMemory : public testing::Test
{
protected:
    WithoutMemory()
    {
        store.addCertificate(certificate);
        require(X509_STORE_add_crl(getOpenSSLStore(store).get(), makeCrl(root).get()));
    }

    CertificateAndKey const root = makeRoot("root");
    X509Certificate const certificate = X509Certificate(root.der());
    TrustStore store;
};

TEST_F(WithoutMemory, ATrustStoreIsNotMade)
{
    EXPECT_EQ(failuresWithoutMemory([] { TrustStore const made; }), Texts{"Failed to create X509_STORE"});
}

TEST_F(WithoutMemory, ATrustStoreIsNotCopied)
{
    EXPECT_EQ(
        failuresWithoutMemory([&] { TrustStore const copy(store); }),
        (Texts{
            "Failed to create X509_STORE", "Failed to add CRL to store",
            "Failed to add certificate to store, CN: root"}));
    EXPECT_EQ(store.size(), 2U);
}

TEST_F(WithoutMemory, ACopyForOpenSSLIsNullOrFails)
{
    int nulls = 0;
    auto const failures = failuresWithoutMemory([&] { nulls += copyOpenSSLStore(store) == nullptr ? 1 : 0; });
    EXPECT_EQ(
        failures, (Texts{"Failed to add CRL to store", "Failed to add certificate to store, CN: root"}));
    EXPECT_GT(nulls, 0);
}

TEST_F(WithoutMemory, NothingIsAdded)
{
    auto const fromOutside = failuresWithoutMemory([&] {
        TrustStoreImpl target;
        target.addCertificate(certificate);
    });
    EXPECT_EQ(fromOutside.count("Failed to add certificate to store"), 1U);

    auto const der = root.der();
    auto const fromTheSystem = failuresWithoutMemory([&] {
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
    EXPECT_EQ(
        failuresWithoutMemory([&] { certificatesOnly.getPEMStrings(); }),
        Texts{"Failed to convert X509 to PEM"});
    EXPECT_FALSE(failuresWithoutMemory([&] { certificatesOnly.getCertificates(); }).empty());
}

TEST_F(WithoutMemory, NoChainIsLoaded)
{
    std::string const bundle = root.pem();
    auto const failures = failuresWithoutMemory([&] {
        X509CertificateChain const chain(bundle);
        EXPECT_EQ(chain.getNumCertificates(), 1U);
    });
    EXPECT_FALSE(failures.empty());
}

} // namespace
