#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const uninitialized[] = "Error: PKCS7Certificate is uninitialized.";

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

CertificateAndKey leaf(std::string const& name)
{
    return makeLeaf(root(), name);
}

CertificateAndKey const& signer()
{
    static auto const made = leaf("signer");
    return made;
}

SignedDataSpec signedBy(std::vector<CertificateAndKey> const& signers)
{
    SignedDataSpec spec;
    spec.signers = signers;
    return spec;
}

PKCS7Certificate load(Pkcs7Handle const& pkcs7)
{
    return PKCS7Certificate(toDer(pkcs7));
}

PKCS7Certificate load(SignedDataSpec const& spec)
{
    return load(makeSignedData(spec));
}

} // namespace

TEST(PKCS7Queries, DefaultObjectHasNoContent)
{
    PKCS7Certificate const nothing;
    EXPECT_TRUE(nothing.empty());
    EXPECT_EQ(nothing.getAsBytes(), ByteArray());
    EXPECT_EQ(nothing.getAsString(), "");
    EXPECT_EQ(nothing.getNumCertificates(), 0u);
    EXPECT_TRUE(nothing.getCertificates().empty());
    EXPECT_EQ(nothing.getSignedData(), ByteArray());
    EXPECT_TRUE(nothing.getSignerCerts().empty());
    EXPECT_EQ(printed(nothing), "Printing PKCS7 certificate.\n");
    EXPECT_TRUE(nothing == PKCS7Certificate());
}

TEST(PKCS7Queries, CertificatesKeepTheirOrder)
{
    auto const first = leaf("first");
    auto const second = leaf("second");
    auto spec = signedBy({second, first});
    spec.furtherCertificates = {root().certificate};
    auto loaded = load(spec);
    loaded.addCertificate(X509Certificate(first.der()));
    EXPECT_EQ(
        derOf(loaded.getCertificates()),
        (std::vector<Bytes>{second.der(), first.der(), root().der(), first.der()}));
    EXPECT_EQ(loaded.getNumCertificates(), 4u);
}

TEST(PKCS7Queries, SignedDataWithoutCertificatesIsEmpty)
{
    auto spec = signedBy({signer()});
    spec.withoutCertificates = true;
    auto const loaded = load(spec);
    EXPECT_TRUE(loaded.empty());
    EXPECT_EQ(loaded.getNumCertificates(), 0u);
    EXPECT_EQ(loaded.getAsBytes(), ByteArray());
    EXPECT_EQ(loaded.getAsString(), "");
    EXPECT_EQ(loaded.getSignedData(), ByteArray()); // no certificate to check the signature
}

TEST(PKCS7Output, SignedDataIsWrittenAsPem)
{
    auto const data = makeSignedData("content", signer());
    auto const pem = toPem(data);
    for (auto const& loaded : {PKCS7Certificate(toDer(data)), PKCS7Certificate(pem)}) {
        EXPECT_EQ(loaded.getAsString(), pem);
        EXPECT_EQ(asText(loaded.getAsBytes()), pem);
        EXPECT_EQ(asText(PKCS7Certificate(loaded.getAsBytes()).getSignedData()), "content");
    }
}

TEST(PKCS7Output, SignedAndEnvelopedDataIsWrittenAsPem)
{
    auto const recipient =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    auto const data = makeSignedAndEnvelopedData("content", signer(), recipient);
    EXPECT_EQ(load(data).getAsString(), toPem(data));
}

TEST(PKCS7Output, ObjectWithoutStructureIsNotWritten)
{
    PKCS7Certificate made;
    made.addCertificate(X509Certificate(signer().der()));
    EXPECT_FALSE(made.empty());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, "Unable to write out the PKCS7 data", made.getAsBytes());
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException, "Unable to write out the PKCS7 data", made.getAsString());
    EXPECT_EQ(made.getSignedData(), ByteArray());
    EXPECT_TRUE(made.getSignerCerts().empty());
}

TEST(PKCS7Output, AddedCertificatesAreNotWritten)
{
    auto loaded = load(signedBy({signer()}));
    auto const before = loaded.getAsString();
    loaded.addCertificate(X509Certificate(root().der()));
    EXPECT_EQ(loaded.getNumCertificates(), 2u);
    EXPECT_EQ(loaded.getAsString(), before);
    EXPECT_EQ(derOf(loaded.getSignerCerts()), std::vector<Bytes>{signer().der()});
    EXPECT_EQ(asText(loaded.getSignedData()), "signed content");
}

TEST(PKCS7SignedContent, ContentIsReturnedUnchanged)
{
    for (auto const& content :
         {std::string("content"), std::string(), std::string("1"), std::string(1, '\0'), std::string("12"),
          std::string("\0\r\n\xFF\0", 5), std::string(300000, 'x')}) {
        EXPECT_EQ(asText(load(makeSignedData(content, signer())).getSignedData()), content);
    }
}

TEST(PKCS7SignedContent, ContentIsReturnedWithoutTrustedChain)
{
    auto const expired = makeLeaf(root(), "expired", [](CertificateSpec& spec) {
        spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
    });
    EXPECT_EQ(asText(load(makeSignedData("content", expired)).getSignedData()), "content");
}

TEST(PKCS7SignedContent, OnlyEmbeddedContentWithValidSignatureIsReturned)
{
    auto const valid = makeSignedData("content", signer());
    auto detached = signedBy({signer()});
    detached.detached = true;
    auto unsignedData = signedBy({});
    unsignedData.furtherCertificates = {signer().certificate};
    auto const recipient =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    struct Row
    {
        char const* name;
        Pkcs7Handle data;
        int reason;
    };
    std::vector<Row> const rows{
        {"tampered content", withTamperedContent(valid), PKCS7_R_DIGEST_FAILURE},
        {"detached", makeSignedData(detached), PKCS7_R_NO_CONTENT},
        {"no signer", makeSignedData(unsignedData), PKCS7_R_NO_SIGNATURES_ON_DATA},
        {"enveloped", makeSignedAndEnvelopedData("content", signer(), recipient), PKCS7_R_WRONG_CONTENT_TYPE},
    };
    for (auto const& row : rows) {
        auto const loaded = load(row.data);
        CleanErrorQueue const clean;
        EXPECT_EQ(loaded.getSignedData(), ByteArray()) << row.name;
        EXPECT_EQ(oldestReasonText(), reasonText(ERR_LIB_PKCS7, row.reason)) << row.name;
    }
    EXPECT_EQ(load(withDamagedSignature(valid)).getSignedData(), ByteArray());
}

TEST(PKCS7SignerCerts, SignersComeInDerOrder)
{
    std::vector<CertificateAndKey> const signers{
        leaf("one"), leaf("two"),
        makeLeaf(root(), "three", [](CertificateSpec& spec) { spec.key = rsaKey(); }), leaf("four")};
    auto const data = makeSignedData(signedBy(signers));
    auto const loaded = load(data);
    std::vector<Bytes> expected;
    for (int index = 0; index < 4; ++index) {
        auto const* const info = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(data.get()), index);
        for (auto const& candidate : signers) {
            if (ASN1_INTEGER_cmp(
                    X509_get0_serialNumber(candidate.certificate.get()), info->issuer_and_serial->serial) ==
                0) {
                expected.push_back(candidate.der());
            }
        }
    }
    ASSERT_EQ(expected.size(), 4u);
    // DER sorts the long signature last, although it was the third.
    EXPECT_EQ(expected.back(), signers[2].der());
    // Each call returns the certificates again and releases none of them twice.
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(derOf(loaded.getSignerCerts()), expected);
    }
}

TEST(PKCS7SignerCerts, SignerComesOncePerSignature)
{
    auto const data = makeSignedData(signedBy({signer()}));
    auto const* const info = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(data.get()), 0);
    auto const again = static_cast<PKCS7_SIGNER_INFO*>(
        ASN1_item_dup(ASN1_ITEM_rptr(PKCS7_SIGNER_INFO), const_cast<PKCS7_SIGNER_INFO*>(info)));
    require(sk_PKCS7_SIGNER_INFO_push(PKCS7_get_signer_info(data.get()), again));
    EXPECT_EQ(derOf(load(data).getSignerCerts()), (std::vector<Bytes>{signer().der(), signer().der()}));
}

TEST(PKCS7SignerCerts, SignersOutliveTheSignedData)
{
    X509CertificateChain signers;
    {
        signers = load(signedBy({signer(), leaf("signer")})).getSignerCerts();
    }
    ASSERT_EQ(signers.getNumCertificates(), 2u);
    for (auto const& certificate : signers.getCertificates()) {
        EXPECT_EQ(certificate.getSubjectName(), "CN=signer");
    }
}

TEST(PKCS7SignerCerts, MissingSignerLeavesTheChainEmpty)
{
    auto spec = signedBy({signer(), leaf("missing")});
    spec.withoutCertificates = true;
    spec.furtherCertificates = {signer().certificate};
    auto const loaded = load(spec);
    CleanErrorQueue const clean;
    EXPECT_EQ(loaded.getNumCertificates(), 1u);
    EXPECT_TRUE(loaded.getSignerCerts().empty());
    EXPECT_EQ(oldestReasonText(), reasonText(ERR_LIB_PKCS7, PKCS7_R_SIGNER_CERTIFICATE_NOT_FOUND));
}

TEST(PKCS7SignerCerts, OtherStructuresHaveNoSigners)
{
    auto unsignedData = signedBy({});
    unsignedData.furtherCertificates = {signer().certificate};
    EXPECT_TRUE(load(unsignedData).getSignerCerts().empty());
    auto const recipient =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    EXPECT_TRUE(load(makeSignedAndEnvelopedData("content", signer(), recipient)).getSignerCerts().empty());
}

TEST(PKCS7Queries, SuccessLeavesTheErrorQueueUnchanged)
{
    auto const loaded = load(signedBy({signer()}));
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    loaded.getCertificates();
    loaded.getAsBytes();
    loaded.getSignedData();
    loaded.getSignerCerts();
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(PKCS7Print, EachCertificateIsReportedWithABlankLine)
{
    auto loaded = load(signedBy({signer()}));
    loaded.addCertificate(X509Certificate(root().der()));
    std::ostringstream expected;
    expected << "Printing PKCS7 certificate.\n"
             << X509Certificate(signer().der()) << "\n"
             << X509Certificate(root().der()) << "\n";
    EXPECT_EQ(printed(loaded), expected.str());
    std::ostringstream out;
    out << loaded << "end";
    EXPECT_EQ(out.str(), expected.str() + "end");
}

TEST(PKCS7AddCertificate, EmptyCertificateIsRefused)
{
    PKCS7Certificate target;
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate has no content.",
        target.addCertificate(X509Certificate()));
    X509Certificate source(signer().der());
    X509Certificate const taken(std::move(source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.", target.addCertificate(source));
    EXPECT_TRUE(target.empty());
}

TEST(PKCS7AddCertificate, MovedFromObjectBecomesUsable)
{
    auto source = load(signedBy({signer()}));
    PKCS7Certificate const target(std::move(source));
    source.addCertificate(X509Certificate(root().der()));
    EXPECT_EQ(derOf(source.getCertificates()), std::vector<Bytes>{root().der()});
    EXPECT_EQ(source.getSignedData(), ByteArray());
    EXPECT_EQ(asText(target.getSignedData()), "signed content");
}

TEST(PKCS7AddCertificate, RefusedCertificateLeavesMovedFromObjectUninitialized)
{
    PKCS7Certificate source;
    PKCS7Certificate const target(std::move(source));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The provided certificate has no content.",
        source.addCertificate(X509Certificate()));
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.empty());
}

TEST(PKCS7Equality, OnlyCertificatesAreCompared)
{
    auto const other = leaf("other");
    auto const here = load(makeSignedData("content", signer()));
    EXPECT_TRUE(here == load(makeSignedData("other content", signer())));
    EXPECT_FALSE(here != load(makeSignedData("other content", signer())));
    EXPECT_FALSE(here == load(signedBy({other})));
    EXPECT_FALSE(here == load(makeSignedData("content", signer(), {other.certificate})));
    EXPECT_FALSE(here == PKCS7Certificate());
    PKCS7Certificate added;
    added.addCertificate(X509Certificate(signer().der()));
    EXPECT_TRUE(here == added);
}

TEST(PKCS7Equality, OrderOfCertificatesMatters)
{
    auto const other = leaf("other");
    EXPECT_FALSE(load(signedBy({signer(), other})) == load(signedBy({other, signer()})));
    EXPECT_TRUE(load(signedBy({signer(), other})) != load(signedBy({other, signer()})));
}

TEST(PKCS7Copy, CopyIsIndependentOfItsSource)
{
    auto source = load(signedBy({signer()}));
    PKCS7Certificate copy(source);
    PKCS7Certificate assigned;
    assigned = source;
    source.addCertificate(X509Certificate(root().der()));
    source = PKCS7Certificate();
    for (auto const& target : {copy, assigned}) {
        EXPECT_EQ(target.getNumCertificates(), 1u);
        EXPECT_EQ(asText(target.getSignedData()), "signed content");
        EXPECT_EQ(derOf(target.getSignerCerts()), std::vector<Bytes>{signer().der()});
    }
}

TEST(PKCS7Copy, AssignmentCopiesTheStructure)
{
    auto target = load(makeSignedData("old", signer()));
    target = load(makeSignedData("new", leaf("other")));
    EXPECT_EQ(asText(target.getSignedData()), "new");
}

TEST(PKCS7Move, MovedFromObjectIsUninitialized)
{
    auto source = load(signedBy({signer()}));
    PKCS7Certificate const target(std::move(source));
    std::ostringstream out;
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.empty());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getAsBytes());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getAsString());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getCertificates());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getNumCertificates());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getSignedData());
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.getSignerCerts());
    EXPECT_THROWS_EXACTLY(
        PKCS7CertificateException, uninitialized,
        source.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()));
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source.print(out));
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, out << source);
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, source == target);
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, target != source);
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, PKCS7Certificate(source));
    PKCS7Certificate assigned;
    EXPECT_THROWS_EXACTLY(PKCS7CertificateException, uninitialized, assigned = source);
    EXPECT_TRUE(assigned.empty());
    EXPECT_EQ(out.str(), "");
}

TEST(PKCS7Move, AssignmentExchangesTheContents)
{
    auto one = load(makeSignedData("one", signer()));
    auto two = load(makeSignedData("two", leaf("other")));
    one = std::move(two);
    EXPECT_EQ(asText(one.getSignedData()), "two");
    EXPECT_EQ(asText(two.getSignedData()), "one");
}
