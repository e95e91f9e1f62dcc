#include "certificate/X509Access.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

TEST(X509Access, SharesOneObjectAmongCopies)
{
    auto const certificate = load(makeRoot("root"));
    auto const copy = certificate;
    EXPECT_EQ(X509Access::share(certificate).get(), X509Access::share(copy).get());
}

TEST(X509Access, OutlivesTheCertificate)
{
    auto const root = makeRoot("root");
    auto certificate = std::make_unique<X509Certificate>(root.der());
    auto const shared = X509Access::share(*certificate);
    certificate.reset();
    EXPECT_EQ(X509_cmp(shared.get(), root.certificate.get()), 0);
}

TEST(X509Access, RefusesACertificateWithoutContent)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509Access::share(X509Certificate()));
}

TEST(X509Access, RefusesACertificateThatWasMovedFrom)
{
    auto certificate = load(makeRoot("root"));
    auto const target = std::move(certificate);
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.", X509Access::share(certificate));
}

TEST(X509CertificateEncoding, FailureLeavesErrorQueue)
{
    auto const root = makeRoot("root");
    auto const implementation = X509Access::implementationWith(root.certificate.get());
    X509_ALGOR const* algorithm = nullptr;
    X509_get0_signature(nullptr, &algorithm, root.certificate.get());
    X509_ALGOR_set0(const_cast<X509_ALGOR*>(algorithm), nullptr, V_ASN1_UNDEF, nullptr);
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    EXPECT_TRUE(implementation.encoding().empty());
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}
