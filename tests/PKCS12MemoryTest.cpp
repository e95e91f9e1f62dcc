#include "support/OpenSSLMemory.hpp"
#include "support/TestBundles.hpp"
#include "support/TestKeys.hpp"
#include "support/TestPki.hpp"

#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;

/// What becomes of a bundle when OpenSSL runs out of memory, at each of the allocations that it makes.
namespace {

Bytes rsaBundle()
{
    return toDer(makePkcs12(makeRoot("root", [](CertificateSpec& spec) { spec.key = rsaKey(); }), "secret"));
}

TEST(PKCS12WithoutMemory, IsNotWritten)
{
    PKCS12Certificate const bundle(rsaBundle(), "secret");
    EXPECT_EQ(
        failuresWithoutMemory([&] { bundle.getAsBytes(); }),
        std::set<std::string>{"Unable to write out PKCS12 bytes."});
}

TEST(PKCS12WithoutMemory, IsNotLoadedOrIsWhole)
{
    auto const der = rsaBundle();
    std::set<std::string> incomplete;
    auto const failures = failuresWithoutMemory([&] {
        PKCS12Certificate const bundle(der, "secret");
        if (bundle.empty() || bundle.getPrivateKeyInfo() == std::nullopt) {
            incomplete.insert("a bundle without its key");
        }
    });
    EXPECT_EQ(incomplete, std::set<std::string>());
    EXPECT_EQ(failures.count("Failed to get the private exponent for the private key"), 1U);
}

} // namespace
