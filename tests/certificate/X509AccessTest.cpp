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

namespace {

void setSignatureAlgorithm(X509* certificate, int nid)
{
    X509_ALGOR const* algorithm = nullptr;
    X509_get0_signature(nullptr, &algorithm, certificate);
    auto* const object = nid == NID_undef ? nullptr : OBJ_nid2obj(nid);
    X509_ALGOR_set0(const_cast<X509_ALGOR*>(algorithm), object, V_ASN1_UNDEF, nullptr);
}

/// OpenSSL cannot encode the certificate afterwards.
void makeUnencodable(X509* certificate)
{
    setSignatureAlgorithm(certificate, NID_undef);
}

/// Gives the certificate another, shorter encoding.
void shorten(X509* certificate)
{
    setSignatureAlgorithm(certificate, NID_ED25519);
}

} // namespace

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
    makeUnencodable(root.certificate.get());
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    EXPECT_TRUE(implementation.encoding().empty());
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(X509CertificateEncoding, FailureIsReported)
{
    auto const root = makeRoot("root");
    auto const implementation = X509Access::implementationWith(root.certificate.get());
    EXPECT_EQ(implementation.encoding(), root.der());

    makeUnencodable(root.certificate.get());
    EXPECT_TRUE(implementation.encoding().empty());
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Internal error: Could not serialize the X509 certificate.",
        implementation.getAsBytes());
}

TEST(X509CertificateEncoding, UnexpectedSizeLeadsToSecondAttempt)
{
    auto const root = makeRoot("root");
    auto const implementation = X509Access::implementationWith(root.certificate.get());
    EXPECT_EQ(implementation.encoding(), root.der());

    shorten(root.certificate.get());
    EXPECT_TRUE(implementation.encoding().empty());
    EXPECT_EQ(implementation.getAsBytes(), root.der());
}

TEST(X509CertificateEncoding, ComparisonWithoutItUsesFingerprint)
{
    auto const root = makeRoot("root");
    X509Certificate const certificate(X509Access::implementationWith(root.certificate.get()));
    auto const other = load(makeRoot("other"));
    EXPECT_FALSE(certificate == other); // finds out the size of the encoding

    shorten(root.certificate.get());
    EXPECT_TRUE(certificate == load(root));
    EXPECT_TRUE(load(root) == certificate);
    EXPECT_FALSE(certificate == other);

    makeUnencodable(root.certificate.get());
    constexpr char const text[] = "Internal error: Unable to compute the SHA256 fingerprint.";
    EXPECT_THROWS_EXACTLY(X509CertificateException, text, static_cast<void>(certificate == other));
    EXPECT_THROWS_EXACTLY(X509CertificateException, text, static_cast<void>(other == certificate));
}
