#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

CertificateAndKey const& signer()
{
    static auto const made = makeLeaf(root(), "signer");
    return made;
}

PKCS7CertificateImpl load(std::string const& content)
{
    return PKCS7CertificateImpl(toDer(makeSignedData(content, signer())));
}

} // namespace

TEST(PKCS7CertificateImpl, LoadsFromBytesStringAndStream)
{
    auto const pem = toPem(makeSignedData("content", signer()));
    std::istringstream stream(pem);
    EXPECT_EQ(asText(PKCS7CertificateImpl(Bytes(pem.begin(), pem.end())).getSignedData()), "content");
    EXPECT_EQ(asText(PKCS7CertificateImpl(pem).getSignedData()), "content");
    EXPECT_EQ(asText(PKCS7CertificateImpl(stream).getSignedData()), "content");
}

TEST(PKCS7CertificateImpl, HasTheOperationsOfTheHandle)
{
    auto implementation = load("content");
    EXPECT_FALSE(implementation.empty());
    EXPECT_EQ(implementation.getNumCertificates(), 1u);
    EXPECT_EQ(implementation.getCertificates().front().getSubjectName(), "CN=signer");
    EXPECT_EQ(implementation.getSignerCerts().getNumCertificates(), 1u);
    EXPECT_EQ(implementation.getAsString().substr(0, 22), "-----BEGIN PKCS7-----\n");
    EXPECT_EQ(asText(implementation.getAsBytes()), implementation.getAsString());
    std::ostringstream out;
    implementation.print(out);
    EXPECT_EQ(out.str().substr(0, 28), "Printing PKCS7 certificate.\n");
    implementation.addCertificate(X509Certificate(root().der()));
    EXPECT_EQ(implementation.getNumCertificates(), 2u);
}

TEST(PKCS7CertificateImpl, ThrowIfEmptyThrowsWithoutCertificates)
{
    PKCS7CertificateImpl implementation;
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException, "PKCS7Certificate has no content.", implementation.throwIfEmpty());
    implementation.addCertificate(X509Certificate(signer().der()));
    EXPECT_NO_THROW(implementation.throwIfEmpty());
}

TEST(PKCS7CertificateImpl, ReturnsNoBytesWithoutCertificates)
{
    EXPECT_EQ(PKCS7CertificateImpl().getAsBytes(), ByteArray());
    EXPECT_EQ(PKCS7CertificateImpl().getAsString(), "");
}

TEST(PKCS7CertificateImpl, EqualityComparesCertificates)
{
    auto one = load("one");
    EXPECT_TRUE(one == load("two"));
    EXPECT_FALSE(one != load("two"));
    one.addCertificate(X509Certificate(root().der()));
    EXPECT_FALSE(one == load("two"));
    EXPECT_TRUE(one != load("two"));
}

TEST(PKCS7CertificateImpl, CopyOwnsItsStructure)
{
    std::mutex mutex;
    std::lock_guard<std::mutex> const lock(mutex);
    auto source = std::make_unique<PKCS7CertificateImpl>(load("content"));
    PKCS7CertificateImpl const copy(*source, lock);
    source.reset();
    EXPECT_EQ(copy.getNumCertificates(), 1u);
    EXPECT_EQ(asText(copy.getSignedData()), "content");
    PKCS7CertificateImpl const emptyCopy(PKCS7CertificateImpl(), lock);
    EXPECT_TRUE(emptyCopy.empty());
    EXPECT_EQ(emptyCopy.getSignedData(), ByteArray());
}

TEST(PKCS7CertificateImpl, MoveEmptiesTheSource)
{
    auto source = load("content");
    PKCS7CertificateImpl moved(std::move(source));
    EXPECT_EQ(asText(moved.getSignedData()), "content");
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.getSignedData(), ByteArray());

    PKCS7CertificateImpl assigned = load("old");
    assigned.addCertificate(X509Certificate(root().der()));
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getNumCertificates(), 1u);
    EXPECT_EQ(asText(assigned.getSignedData()), "content");
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(moved.getSignedData(), ByteArray());
}

TEST(PKCS7CertificateImpl, MoveToItselfKeepsTheContent)
{
    auto implementation = load("content");
    auto& same = implementation;
    implementation = std::move(same);
    EXPECT_EQ(implementation.getNumCertificates(), 1u);
    EXPECT_EQ(asText(implementation.getSignedData()), "content");
}

// Copy assignment copies the certificates and never the structure.

TEST(PKCS7CertificateImplAssignment, TargetKeepsItsStructure)
{
    auto target = load("target");
    auto source = load("source");
    source.addCertificate(X509Certificate(root().der()));
    target = source;
    EXPECT_EQ(target.getNumCertificates(), 2u);
    EXPECT_EQ(asText(target.getSignedData()), "target");
    EXPECT_EQ(asText(source.getSignedData()), "source");
}

TEST(PKCS7CertificateImplAssignment, TargetWithoutStructureGetsNone)
{
    PKCS7CertificateImpl target;
    auto const source = load("source");
    target = source;
    EXPECT_EQ(target.getNumCertificates(), 1u);
    EXPECT_EQ(target.getSignedData(), ByteArray());
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException, "Unable to write out the PKCS7 data", target.getAsBytes());
}

TEST(PKCS7CertificateImplAssignment, SourceWithoutStructureLeavesTheTargets)
{
    auto target = load("target");
    PKCS7CertificateImpl const source;
    target = source;
    EXPECT_TRUE(target.empty());
    EXPECT_EQ(asText(target.getSignedData()), "target");
}

TEST(PKCS7CertificateImplAssignment, AssignmentToItselfChangesNothing)
{
    auto implementation = load("content");
    auto const& same = implementation;
    implementation = same;
    EXPECT_EQ(implementation.getNumCertificates(), 1u);
    EXPECT_EQ(asText(implementation.getSignedData()), "content");
}
