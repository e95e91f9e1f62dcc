#include "support/ExactThrow.hpp"
#include "support/OpenSSLMemory.hpp"
#include "support/RefusedAllocation.hpp"
#include "support/TestKeys.hpp"
#include "support/TestPki.hpp"

#include "KeyExtraction.hpp"
#include "X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <typeinfo>

using namespace foundation::certificates;
using namespace foundation::test;

/// What a loaded certificate answers when OpenSSL runs out of memory, at each of the allocations that it
/// makes.
namespace {

/// The operation, but for failures of any other class than the given one: those come out with another text.
template <typename Exception>
std::function<void()> failingOnlyAs(std::function<void()> const& operation)
{
    return [operation] {
        try {
            operation();
        } catch (std::exception const& failure) {
            if (typeid(failure) != typeid(Exception)) {
                throw std::runtime_error(std::string("another class: ") + failure.what());
            }
            throw;
        }
    };
}

class X509CertificateWithoutMemory : public testing::Test
{
protected:
    template <typename Exception>
    std::set<std::string> failures(std::function<void()> const& operation) const
    {
        return failuresWithoutMemory(failingOnlyAs<Exception>(operation));
    }

    X509Certificate const certificate = X509Certificate(makeRoot("root").der());
};

TEST_F(X509CertificateWithoutMemory, HasNoFingerprint)
{
    EXPECT_EQ(
        failures<X509CertificateException>([&] { certificate.getSHA256Fingerprint(); }),
        std::set<std::string>{"Internal error: Unable to compute the SHA256 fingerprint."});
}

TEST_F(X509CertificateWithoutMemory, HasNoSerialNumber)
{
    EXPECT_EQ(
        failures<X509CertificateException>([&] { certificate.getSerialNumber(); }),
        (std::set<std::string>{
            "Internal error: Unable to get serial number.",
            "Internal error: Unable to get serial number from BN."}));
}

TEST_F(X509CertificateWithoutMemory, HasNoDates)
{
    EXPECT_EQ(
        failures<X509CertificateException>([&] { certificate.getValidNotAfter(); }),
        std::set<std::string>{"Error: printing the ASN1 time failed."});
    EXPECT_EQ(
        failures<X509CertificateException>([&] { certificate.getValidNotAfterTimePoint(); }),
        std::set<std::string>{"Invalid time format used in the certificate."});
}

TEST_F(X509CertificateWithoutMemory, IsNotWritten)
{
    EXPECT_EQ(
        failures<X509CertificateException>([&] { certificate.getAsBytes(); }),
        std::set<std::string>{"Internal error: Could not serialize the X509 certificate."});
}

TEST_F(X509CertificateWithoutMemory, HasNoModulusAndNoExponent)
{
    X509CertificateImpl const rsa(makeRoot("rsa", [](CertificateSpec& spec) { spec.key = rsaKey(); }).der());
    EXPECT_EQ(
        failures<X509CertificateException>([&] {
            rsa.getModulus();
        }).count("Failed to get the modulus for the public key"),
        1U);
    EXPECT_EQ(
        failures<X509CertificateException>([&] {
            rsa.getPublicExponent();
        }).count("Failed to get the public exponent for the public key"),
        1U);
}

TEST_F(X509CertificateWithoutMemory, HasNoPublicPoint)
{
    X509CertificateImpl const ecc(makeRoot("ecc").der());
    EXPECT_EQ(
        failures<CertificateException>([&] {
            ecc.getECCPublicPoint();
        }).count("Failed to extract public point from public EVP_PKEY"),
        1U);
}

TEST_F(X509CertificateWithoutMemory, HasNoPrivateInteger)
{
    auto const key = p256Key();
    EXPECT_EQ(
        failures<CertificateException>([&] {
            getECCPrivateIntegerFromEVPKey(key.get());
        }).count("Failed to initialize BIGNUM with private integer data."),
        1U);
}

TEST_F(X509CertificateWithoutMemory, IsWholeAgainAfterwards)
{
    std::string const fingerprint = certificate.getSHA256Fingerprint();
    failures<X509CertificateException>([&] { certificate.getAsBytes(); });
    EXPECT_EQ(certificate.getSHA256Fingerprint(), fingerprint);
    EXPECT_EQ(X509Certificate(certificate.getAsPEMString()), certificate);
}

TEST_F(X509CertificateWithoutMemory, IsNotLoadedFromAStringThatCannotBeCopied)
{
    std::string const text(54321, 'A');
    RefusedAllocation const refused(text.size());
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The input certificate data string is invalid. Reason:std::bad_alloc",
        X509Certificate(text));
}

} // namespace
