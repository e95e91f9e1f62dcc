#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509Access.hpp"
#include "certificate/X509Duplicates.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

TEST(X509Stack, HoldsCertificatesInGivenOrder)
{
    auto const one = makeRoot("one");
    auto const two = makeRoot("two");
    auto const stack = stackOf({X509Certificate(two.der()), X509Certificate(one.der())});
    ASSERT_EQ(sk_X509_num(stack.get()), 2);
    EXPECT_EQ(X509_cmp(sk_X509_value(stack.get(), 0), two.certificate.get()), 0);
    EXPECT_EQ(X509_cmp(sk_X509_value(stack.get(), 1), one.certificate.get()), 0);
}

TEST(X509Stack, SharesAllButCertificatesThatVerificationMustParse)
{
    auto const damaged = makeRoot("damaged", [](CertificateSpec& spec) {
        spec.setRawExtension("keyUsage", {0x05, 0x01, 0x00});
    });
    auto const selfIssued =
        makeLeaf(makeRoot("root"), "self-issued", [](CertificateSpec& spec) { spec.issuer = spec.subject; });
    struct Row
    {
        char const* name;
        X509Certificate certificate;
        bool isShared;
    };
    std::vector<Row> const rows{
        {"root", X509Certificate(makeRoot("root").der()), true},
        {"invalid extensions", X509Certificate(damaged.der()), false},
        {"equal names, not self-signed", X509Certificate(selfIssued.der()), false},
    };
    for (auto const& row : rows) {
        auto const stack = stackOf({row.certificate});
        auto const own = X509Access::share(row.certificate);
        EXPECT_EQ(sk_X509_value(stack.get(), 0) == own.get(), row.isShared) << row.name;
        EXPECT_EQ(X509_cmp(sk_X509_value(stack.get(), 0), own.get()), 0) << row.name;
    }
}

TEST(X509Stack, IsEmptyForNoCertificates)
{
    auto const stack = stackOf({});
    ASSERT_NE(stack, nullptr);
    EXPECT_EQ(sk_X509_num(stack.get()), 0);
}

TEST(X509Stack, RefusesCertificateWithoutContent)
{
    std::vector<X509Certificate> certificates{X509Certificate(makeRoot("root").der()), X509Certificate()};
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.", stackOf(certificates));
    X509Certificate const taken(std::move(certificates.back()));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.", stackOf(certificates));
}

TEST(X509Stack, LeavesErrorQueueUnchanged)
{
    X509Certificate const certificate(makeRoot("root").der());
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    stackOf({certificate, certificate});
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}
