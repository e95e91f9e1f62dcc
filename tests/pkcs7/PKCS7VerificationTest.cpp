#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include "truststore/DefaultSystemCertificateAdder.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

using Status = CertificateChainStatus;

namespace {

using Usage = TrustStore::Usage;

CertificateAndKey const& systemRoot()
{
    static auto const made = makeRoot("system root");
    return made;
}

/// What stands for the operating system in this program: one root, and the adder's record of the calls.
struct OperatingSystem
{
    std::optional<Usage> failing; ///< the usage whose roots cannot be read to the end
    std::vector<std::pair<Usage, bool>> asked;
};

OperatingSystem& operatingSystem()
{
    static OperatingSystem system;
    return system;
}

class SystemRootAdder : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override { return new SystemRootAdder; }

    void addCertificatesTo(TrustStoreImpl& store, Usage usage, bool rethrowOnFailure) override
    {
        operatingSystem().asked.emplace_back(usage, rethrowOnFailure);
        if (operatingSystem().failing == usage) {
            throw TrustStoreException("the disk is gone");
        }
        store.addDERCertificate(systemRoot().der());
    }
};

} // namespace

// Takes the place of the library's own, so that these tests know the system's roots.
namespace foundation::certificates {

std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder()
{
    return std::make_unique<SystemRootAdder>();
}

} // namespace foundation::certificates

namespace {

using Certificates = std::vector<CertificateAndKey>;

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

CertificateAndKey const& otherRoot()
{
    static auto const made = makeRoot("other root");
    return made;
}

CertificateAndKey const& intermediate()
{
    static auto const made = makeIntermediate(root(), "intermediate");
    return made;
}

CertificateAndKey const& signer()
{
    static auto const made = makeLeaf(root(), "signer");
    return made;
}

CertificateAndKey const& deepSigner()
{
    static auto const made = makeLeaf(intermediate(), "deep signer");
    return made;
}

CertificateAndKey const& stranger()
{
    static auto const made = makeLeaf(makeRoot("nobody's root"), "stranger");
    return made;
}

/// Fit for TLS servers alone: OpenSSL's check of signed data asks for mail, the library's validation for
/// nothing.
CertificateAndKey const& serverSigner()
{
    static auto const made = makeLeaf(
        root(), "server", [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "serverAuth"); });
    return made;
}

PKCS7Certificate load(Pkcs7Handle const& pkcs7)
{
    return PKCS7Certificate(toDer(pkcs7));
}

Pkcs7Handle signedBy(Certificates const& signers)
{
    SignedDataSpec spec;
    spec.signers = signers;
    return makeSignedData(spec);
}

Pkcs7Handle detached(std::string const& content, CertificateAndKey const& by)
{
    SignedDataSpec spec;
    spec.content = content;
    spec.signers = {by};
    spec.detached = true;
    return makeSignedData(spec);
}

Pkcs7Handle withoutCertificates(CertificateAndKey const& by)
{
    SignedDataSpec spec;
    spec.signers = {by};
    spec.withoutCertificates = true;
    return makeSignedData(spec);
}

/// The reason that OpenSSL queues first when it checks the signatures by itself, chains left aside.
std::string signatureReasonOf(Pkcs7Handle const& pkcs7, std::string const& data = {})
{
    CleanErrorQueue const clean;
    auto const bytes = asBytes(data);
    auto const content = data.empty() ? nullptr : readerOf(bytes);
    PKCS7_verify(pkcs7.get(), nullptr, nullptr, content.get(), nullptr, PKCS7_NOVERIFY);
    return oldestReasonText();
}

CertificateValidationResults validated(CertificateAndKey const& leaf, Certificates const& trusted)
{
    return X509Certificate(leaf.der())
        .validateCertificate(X509CertificateChain(), CertificateValidationOptions(), storeOf(trusted));
}

void expectResult(
    PKCS7CertificateValidationResults const& results, bool signature, Status status, std::string const& text)
{
    EXPECT_EQ(results.getSignatureVerificationStatus(), signature);
    EXPECT_EQ(results.getCertificateChainStatus(), status);
    EXPECT_EQ(results.getValidationErrorString(), text);
    EXPECT_EQ(results.isValidSignature(), signature && status == Status::Valid);
}

class PKCS7Verification : public testing::Test
{
protected:
    PKCS7Verification() { operatingSystem() = OperatingSystem(); }

    CleanErrorQueue const cleanQueue;
};

struct Row
{
    char const* name;
    Pkcs7Handle data;
    Certificates intermediates;
    Certificates trusted;
    std::string content;
    bool signature;
    Status status;
    std::string text;
};

PKCS7CertificateValidationResults verify(Row const& row)
{
    auto const loaded = load(row.data);
    return loaded.verifySignature(chainOf(row.intermediates), storeOf(row.trusted), asBytes(row.content));
}

std::vector<Row> soundAndTrusted()
{
    auto embedded = makeSignedData("content", deepSigner(), {intermediate().certificate});
    return {
        {"signed by a leaf of the root", signedBy({signer()}), {}, {root()}, "", true, Status::Valid, ""},
        {"an intermediate given",
         signedBy({deepSigner()}),
         {intermediate()},
         {root()},
         "",
         true,
         Status::Valid,
         ""},
        {"an intermediate embedded", embedded, {}, {root()}, "", true, Status::Valid, ""},
        {"two signers, both trusted",
         signedBy({signer(), deepSigner()}),
         {intermediate()},
         {root()},
         "",
         true,
         Status::Valid,
         ""},
        {"detached", detached("apart", signer()), {}, {root()}, "apart", true, Status::Valid, ""},
        {"content inside and given, equal",
         makeSignedData("both", signer()),
         {},
         {root()},
         "both",
         true,
         Status::Valid,
         ""},
        {"no certificate embedded",
         withoutCertificates(signer()),
         {signer()},
         {root()},
         "",
         true,
         Status::Valid,
         ""},
        {"the root given as an intermediate",
         signedBy({signer()}),
         {root()},
         {otherRoot()},
         "",
         true,
         Status::Valid,
         ""},
    };
}

std::vector<Row> signatureFails()
{
    auto const tampered = withTamperedContent(signedBy({signer()}));
    auto const damaged = withDamagedSignature(signedBy({signer()}));
    auto const tamperedByStranger = withTamperedContent(signedBy({stranger()}));
    auto const apart = detached("apart", signer());
    auto const inside = makeSignedData("inside", signer());
    SignedDataSpec unsignedSpec;
    unsignedSpec.furtherCertificates = {signer().certificate};
    auto const noSigner = makeSignedData(unsignedSpec);
    auto const missing = withoutCertificates(signer());
    auto const reason = [](int code) { return reasonText(ERR_LIB_PKCS7, code); };
    return {
        {"content tampered with",
         tampered,
         {},
         {root()},
         "",
         false,
         Status::Failed,
         reason(PKCS7_R_DIGEST_FAILURE)},
        {"signature damaged", damaged, {}, {root()}, "", false, Status::Failed, signatureReasonOf(damaged)},
        {"tampered with, and not trusted",
         tamperedByStranger,
         {},
         {root()},
         "",
         false,
         Status::Failed,
         reason(PKCS7_R_DIGEST_FAILURE)},
        {"detached, no content given",
         apart,
         {},
         {root()},
         "",
         false,
         Status::Failed,
         reason(PKCS7_R_NO_CONTENT)},
        {"detached, other content given",
         apart,
         {},
         {root()},
         "other",
         false,
         Status::Failed,
         reason(PKCS7_R_DIGEST_FAILURE)},
        {"content inside, another given",
         inside,
         {},
         {root()},
         "other",
         false,
         Status::Failed,
         signatureReasonOf(inside, "other")},
        {"no signature",
         noSigner,
         {},
         {root()},
         "",
         false,
         Status::Failed,
         reason(PKCS7_R_NO_SIGNATURES_ON_DATA)},
        {"signer not to be found",
         missing,
         {},
         {root()},
         "",
         false,
         Status::Failed,
         reason(PKCS7_R_SIGNER_CERTIFICATE_NOT_FOUND)},
        {"signer not embedded, and not trusted",
         withoutCertificates(stranger()),
         {stranger()},
         {root()},
         "",
         false,
         Status::Failed,
         "certificate verify error"},
    };
}

std::string untrustedText(std::string const& subject)
{
    return "Errors present: Error code 20  at depth 0Certificate Subject Name=" + subject +
           "\n. \nMessage:" + X509_verify_cert_error_string(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY) +
           "\n";
}

std::vector<Row> chainFails()
{
    using std::chrono::hours;
    auto const selfSigned = makeSelfSignedLeaf("self-signed");
    auto const expired = makeLeaf(
        root(), "expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(hours(-1)); });
    auto const early = makeLeaf(
        root(), "early", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(hours(1)); });
    auto const expiredText = validated(expired, {root()}).getValidationErrorString();
    auto const earlyText = validated(early, {root()}).getValidationErrorString();
    return {
        {"signed by a stranger",
         signedBy({stranger()}),
         {},
         {root()},
         "",
         true,
         Status::Untrusted,
         untrustedText("CN=stranger")},
        {"signed by a stranger, detached",
         detached("apart", stranger()),
         {},
         {root()},
         "apart",
         true,
         Status::Untrusted,
         untrustedText("CN=stranger")},
        {"intermediate missing",
         signedBy({deepSigner()}),
         {},
         {root()},
         "",
         true,
         Status::Untrusted,
         untrustedText("CN=deep signer")},
        {"signed by itself", signedBy({selfSigned}), {}, {root()}, "", true, Status::SelfSigned, ""},
        {"expired", signedBy({expired}), {}, {root()}, "", true, Status::Expired, expiredText},
        {"not yet valid", signedBy({early}), {}, {root()}, "", true, Status::Failed, earlyText},
        {"fit for servers, and trusted",
         signedBy({serverSigner()}),
         {},
         {root()},
         "",
         true,
         Status::Valid,
         "certificate verify error"},
        {"fit for servers, root an intermediate",
         signedBy({serverSigner()}),
         {root()},
         {otherRoot()},
         "",
         true,
         Status::SelfSigned,
         ""},
    };
}

} // namespace

TEST_F(PKCS7Verification, PassesWhatIsSoundAndTrusted)
{
    for (auto const& row : soundAndTrusted()) {
        SCOPED_TRACE(row.name);
        expectResult(verify(row), row.signature, row.status, row.text);
    }
}

TEST_F(PKCS7Verification, RefusesASignatureThatDoesNotVerifyWithOpenSSLsReason)
{
    for (auto const& row : signatureFails()) {
        SCOPED_TRACE(row.name);
        CleanErrorQueue const clean;
        EXPECT_NE(row.text, "");
        expectResult(verify(row), row.signature, row.status, row.text);
    }
}

TEST_F(PKCS7Verification, TellsABadChainFromABadSignature)
{
    for (auto const& row : chainFails()) {
        SCOPED_TRACE(row.name);
        CleanErrorQueue const clean;
        expectResult(verify(row), row.signature, row.status, row.text);
    }
}

TEST_F(PKCS7Verification, GivesTheCodeOfACertificateThatIsNotYetValid)
{
    auto const early = makeLeaf(root(), "early", [](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::fromNow(std::chrono::hours(1));
    });
    auto const results =
        load(signedBy({early})).verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray());
    EXPECT_EQ(results.getValidationErrorString().substr(0, 34), "Validation Failed. Return code=9.E");
}

// An entry that an earlier call left in OpenSSL's queue

TEST_F(PKCS7Verification, IsNotDisturbedByAnEarlierErrorWhereItSucceeds)
{
    for (auto const& row : soundAndTrusted()) {
        SCOPED_TRACE(row.name);
        auto const loaded = load(row.data);
        auto const chain = chainOf(row.intermediates);
        auto const store = storeOf(row.trusted);
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        expectResult(
            loaded.verifySignature(chain, store, asBytes(row.content)), row.signature, row.status, row.text);
        EXPECT_EQ(oldestError(), foreign);
    }
}

TEST_F(PKCS7Verification, TakesAnEarlierErrorForItsReasonWhereItFails)
{
    auto rows = signatureFails();
    for (auto& row : chainFails()) {
        rows.push_back(std::move(row));
    }
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const loaded = load(row.data);
        auto const chain = chainOf(row.intermediates);
        auto const store = storeOf(row.trusted);
        CleanErrorQueue const clean;
        queueForeignError();
        auto const text = oldestReasonText();
        expectResult(loaded.verifySignature(chain, store, asBytes(row.content)), false, Status::Failed, text);
    }
}

TEST_F(PKCS7Verification, TakesAFailedQuerysErrorForItsReason)
{
    auto const loaded = load(detached("apart", stranger()));
    auto const trusted = storeOf({root()});
    EXPECT_EQ(loaded.getSignedData(), ByteArray());
    expectResult(
        loaded.verifySignature(X509CertificateChain(), trusted, asBytes("apart")), false, Status::Failed,
        reasonText(ERR_LIB_PKCS7, PKCS7_R_NO_CONTENT));
}

// Several signers

TEST_F(PKCS7Verification, ValidatesTheFirstSignerAlone)
{
    auto const strangersRoot = makeRoot("stranger's root");
    auto const other = makeLeaf(strangersRoot, "other");
    auto const loaded = load(signedBy({signer(), other}));
    auto const first = loaded.getSignerCerts().getCertificates().front();
    bool const oursIsFirst = first.getSubjectName() == "CN=signer";
    auto const firstRoot = storeOf({oursIsFirst ? root() : strangersRoot});
    auto const secondRoot = storeOf({oursIsFirst ? strangersRoot : root()});
    ERR_clear_error();

    // The first is trusted and the second is not: OpenSSL fails, the validation passes.
    expectResult(
        loaded.verifySignature(X509CertificateChain(), firstRoot, ByteArray()), true, Status::Valid,
        "certificate verify error");
    ERR_clear_error();
    expectResult(
        loaded.verifySignature(X509CertificateChain(), secondRoot, ByteArray()), true, Status::Untrusted,
        untrustedText(first.getSubjectName()));
}

TEST_F(PKCS7Verification, WantsEverySignatureSound)
{
    auto const both = withDamagedSignature(signedBy({signer(), deepSigner()}));
    auto const results =
        load(both).verifySignature(chainOf({intermediate()}), storeOf({root()}), ByteArray());
    expectResult(results, false, Status::Failed, signatureReasonOf(both));
}

// The trust store

TEST_F(PKCS7Verification, LeavesItsArgumentsAsTheyWere)
{
    auto const trusted = storeOf({root()});
    auto const intermediates = chainOf({intermediate()});
    load(signedBy({deepSigner()})).verifySignature(intermediates, trusted, ByteArray());
    load(signedBy({stranger()})).verifySignature(intermediates, trusted, ByteArray());
    EXPECT_EQ(trusted.size(), 1u);
    EXPECT_EQ(intermediates.getNumCertificates(), 1u);
    EXPECT_TRUE(operatingSystem().asked.empty());
}

TEST_F(PKCS7Verification, TurnsToTheOperatingSystemWithoutATrustStore)
{
    auto const loaded = load(signedBy({makeLeaf(systemRoot(), "signer")}));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()), true, Status::Valid, "");
    EXPECT_EQ(
        operatingSystem().asked,
        (std::vector<std::pair<Usage, bool>>{{Usage::Signing, false}, {Usage::ServerAuthentication, false}}));

    TrustStore source;
    TrustStore const target(std::move(source));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), source, ByteArray()), true, Status::Valid, "");
}

TEST_F(PKCS7Verification, ValidatesAgainstTheOperatingSystemsRootsToo)
{
    auto const loaded = load(signedBy({stranger()}));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()), true, Status::Untrusted,
        untrustedText("CN=stranger"));
}

TEST_F(PKCS7Verification, UsesTheRootsGatheredBeforeTheOperatingSystemFailed)
{
    operatingSystem().failing = Usage::ServerAuthentication;
    auto const loaded = load(signedBy({makeLeaf(systemRoot(), "signer")}));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()), true, Status::Valid, "");
    EXPECT_EQ(operatingSystem().asked.size(), 2u);
}

TEST_F(PKCS7Verification, DoesNotReportThatTheOperatingSystemFailed)
{
    // given roots that cannot be read at all, and intermediates that OpenSSL's check trusts instead
    operatingSystem().failing = Usage::Signing;
    auto const loaded = load(signedBy({signer()}));
    expectResult(
        loaded.verifySignature(chainOf({root()}), TrustStore(), ByteArray()), true, Status::Valid, "");
    EXPECT_EQ(operatingSystem().asked.size(), 1u);
}

TEST_F(PKCS7Verification, TrustsNothingIfTheTrustStoreCannotBeCopied)
{
    auto const trusted = storeOf({root()});
    auto* const objects = X509_STORE_get0_objects(getOpenSSLStore(trusted).get());
    ASSERT_GT(sk_X509_OBJECT_push(objects, X509_OBJECT_new()), 0); // neither certificate nor CRL
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Unsupported object type found in TrustStore", TrustStore(trusted));

    expectResult(
        load(signedBy({signer()})).verifySignature(X509CertificateChain(), trusted, ByteArray()), true,
        Status::Untrusted, untrustedText("CN=signer"));
    ERR_clear_error();
    // nor is the operating system's word taken for it
    expectResult(
        load(signedBy({makeLeaf(systemRoot(), "signer")}))
            .verifySignature(X509CertificateChain(), trusted, ByteArray()),
        true, Status::Untrusted, "certificate verify error");
    ERR_clear_error();
    expectResult(
        load(signedBy({signer()})).verifySignature(chainOf({root()}), trusted, ByteArray()), true,
        Status::Valid, "");
}

// What cannot be verified at all

TEST_F(PKCS7Verification, RefusesAnObjectWithoutStructure)
{
    PKCS7Certificate certificate;
    certificate.addCertificate(X509Certificate(signer().der()));
    for (auto const& object : {PKCS7Certificate(), certificate}) {
        for (auto const& content : {std::string(), std::string("content")}) {
            CleanErrorQueue const clean;
            expectResult(
                object.verifySignature(chainOf({root()}), storeOf({root()}), asBytes(content)), false,
                Status::Failed, reasonText(ERR_LIB_PKCS7, PKCS7_R_INVALID_NULL_POINTER));
        }
    }
}

TEST_F(PKCS7Verification, RefusesSignedAndEnvelopedData)
{
    auto const recipient =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    auto const loaded = load(makeSignedAndEnvelopedData("content", signer(), recipient));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray()), false, Status::Failed,
        reasonText(ERR_LIB_PKCS7, PKCS7_R_WRONG_CONTENT_TYPE));
}

TEST_F(PKCS7Verification, DoesNotCountAddedCertificates)
{
    auto loaded = load(signedBy({deepSigner()}));
    loaded.addCertificate(X509Certificate(intermediate().der()));
    loaded.addCertificate(X509Certificate(root().der()));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray()), true,
        Status::Untrusted, untrustedText("CN=deep signer"));
}

TEST_F(PKCS7Verification, PassesOnTheFailureOfAMovedFromChain)
{
    X509CertificateChain source;
    X509CertificateChain const target(std::move(source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        load(signedBy({signer()})).verifySignature(source, storeOf({root()}), ByteArray()));
}
