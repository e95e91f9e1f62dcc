#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <mutex>
#include <type_traits>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const uninitialized[] = "Error: X509Certificate is uninitialized.";
constexpr char const noContent[] = "Error: X509Certificate has no content.";

CertificateAndKey const& sample()
{
    static auto const made = makeRoot("sample");
    return made;
}

} // namespace

TEST(X509CertificateValue, IsEmptyByDefaultAndUninitializedAfterMove)
{
    X509Certificate a;
    EXPECT_TRUE(a.empty());
    X509Certificate const b(std::move(a));
    EXPECT_TRUE(b.empty());
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, uninitialized, a.empty()); // NOLINT(bugprone-use-after-move)
}

TEST(X509CertificateValue, IsNotEmptyWhenLoaded)
{
    EXPECT_FALSE(X509Certificate(sample().der()).empty());
}

TEST(X509CertificateValue, ExchangesContentOnMoveAssignment)
{
    X509Certificate a(sample().der());
    X509Certificate b(makeRoot("other").der());
    a = std::move(b);
    EXPECT_EQ(a.getSubjectName(), "CN=other");
    EXPECT_EQ(b.getSubjectName(), "CN=sample"); // NOLINT(bugprone-use-after-move): the state is documented
}

TEST(X509CertificateValue, StaysUninitializedWhenMovedAgain)
{
    X509Certificate a(sample().der());
    X509Certificate const b(std::move(a));
    X509Certificate const c(std::move(a)); // NOLINT(bugprone-use-after-move): the state is documented
    EXPECT_THROWS_EXACTLY(X509CertificateException, uninitialized, c.getSubjectName());
    EXPECT_EQ(b.getSubjectName(), "CN=sample");
}

TEST(X509CertificateValue, RefusesComparisonIfUninitializedOrEmpty)
{
    X509Certificate const loaded(sample().der());
    X509Certificate const empty;
    X509Certificate moved;
    X509Certificate const sink(std::move(moved));
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, loaded == empty);
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty == loaded);
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty == empty);
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty == X509Certificate());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty != X509Certificate());
    EXPECT_THROWS_EXACTLY(X509CertificateException, uninitialized, loaded == moved);
    EXPECT_THROWS_EXACTLY(X509CertificateException, uninitialized, moved == loaded);
    // The argument is read first.
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, moved == empty);
    EXPECT_THROWS_EXACTLY(X509CertificateException, uninitialized, empty == moved);
}

TEST(X509CertificateValue, ComparesWholeContent)
{
    X509Certificate const a(sample().der());
    X509Certificate const again(sample().pem());
    X509Certificate const other(makeRoot("sample").der()); // another serial number
    EXPECT_TRUE(a == X509Certificate(a));
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(a == again);
    EXPECT_FALSE(a != again);
    EXPECT_FALSE(a == other);
    EXPECT_TRUE(a != other);
}

TEST(X509CertificateValue, ComparesSignatures)
{
    auto const der = makeRoot("root", [](CertificateSpec& spec) { spec.key = ed25519Key(); }).der();
    constexpr std::size_t sizeOfSignature = 64;
    std::size_t const unusedBits = der.size() - sizeOfSignature - 1;
    Bytes even = der;
    even.back() &= 0xFEU;
    Bytes odd = even;
    odd.back() |= 1U;
    Bytes shorter = even; // the same bytes, of which the last bit does not count
    shorter[unusedBits] = 1;
    EXPECT_FALSE(X509Certificate(even) == X509Certificate(odd));
    EXPECT_FALSE(X509Certificate(even) == X509Certificate(shorter));
    EXPECT_TRUE(X509Certificate(shorter) == X509Certificate(shorter));
}

TEST(X509CertificateValue, SharesContentOfImplementation)
{
    X509CertificateImpl implementation(sample().der());
    X509Certificate const certificate(implementation);
    EXPECT_EQ(certificate.getSubjectName(), "CN=sample");
    EXPECT_FALSE(implementation.empty());
}

TEST(X509CertificateValue, TakesContentOfMovedImplementation)
{
    X509CertificateImpl implementation(sample().der());
    X509Certificate const certificate(std::move(implementation));
    EXPECT_EQ(certificate.getSubjectName(), "CN=sample");
    EXPECT_TRUE(implementation.empty()); // NOLINT(bugprone-use-after-move): the state is documented
}

TEST(X509CertificateValue, MovesContentBetweenImplementations)
{
    X509CertificateImpl source(sample().der());
    X509CertificateImpl target;
    target = std::move(source);
    EXPECT_EQ(target.getSubjectName(), "CN=sample");
    EXPECT_TRUE(source.empty()); // NOLINT(bugprone-use-after-move): the state is documented
}

TEST(X509CertificateValue, KeepsContentOfCopyWhenSourceIsDestroyed)
{
    std::mutex mutex;
    std::lock_guard<std::mutex> const lock(mutex);
    auto source = std::make_unique<X509CertificateImpl>(sample().der());
    X509CertificateImpl const copy(*source, lock);
    EXPECT_EQ(copy.getSubjectName(), "CN=sample");
    source.reset();
    EXPECT_EQ(copy.getSubjectName(), "CN=sample");
}

TEST(X509CertificateValue, MovesWithoutThrowing)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<X509Certificate>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<X509Certificate>);
    EXPECT_FALSE(std::is_polymorphic_v<X509Certificate>);
}

TEST(X509CertificateValue, NumbersBitsOfKeyUsage)
{
    using KeyUsage = X509Certificate::KeyUsage;
    EXPECT_EQ(static_cast<int>(KeyUsage::DigitalSignature), 0);
    EXPECT_EQ(static_cast<int>(KeyUsage::NonRepudiation), 1);
    EXPECT_EQ(static_cast<int>(KeyUsage::KeyEncipherment), 2);
    EXPECT_EQ(static_cast<int>(KeyUsage::DataEncipherment), 3);
    EXPECT_EQ(static_cast<int>(KeyUsage::KeyAgreement), 4);
    EXPECT_EQ(static_cast<int>(KeyUsage::KeyCertSign), 5);
    EXPECT_EQ(static_cast<int>(KeyUsage::CRLSign), 6);
    EXPECT_EQ(static_cast<int>(KeyUsage::EncipherOnly), 7);
    EXPECT_EQ(static_cast<int>(KeyUsage::DecipherOnly), 8);
}
