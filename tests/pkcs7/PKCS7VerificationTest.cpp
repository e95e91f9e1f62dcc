#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/Rendering.hpp"
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

/// Replaces the operating system in this program: one root, and a record of the adder's calls.
struct OperatingSystem
{
    std::optional<Usage> failing; ///< the usage whose roots cannot be read
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

CertificateAndKey const& untrusted()
{
    static auto const made = makeLeaf(makeRoot("untrusted root"), "untrusted");
    return made;
}

/// Restricted to TLS servers. OpenSSL's own check requires the purpose of S/MIME; the library's validation
/// requires none.
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

/// Returns the reason that OpenSSL queues first when it checks the chain and the signatures.
std::string chainReasonOf(Pkcs7Handle const& pkcs7, CertificateAndKey const& trusted)
{
    CleanErrorQueue const clean;
    auto const store = own(X509_STORE_new());
    require(X509_STORE_add_cert(store.get(), trusted.certificate.get()));
    PKCS7_verify(pkcs7.get(), nullptr, store.get(), nullptr, nullptr, PKCS7_NO_DUAL_CONTENT);
    return oldestReasonText();
}

/// Returns the reason that OpenSSL queues first when it checks the signatures and no chain.
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

/// A call of verifySignature and its result. The defaults: no intermediates, `root()` is trusted, the content
/// is embedded, and everything is valid.
struct Case
{
    Case(char const* caseName, Pkcs7Handle signedData) : name(caseName), data(std::move(signedData)) {}

    Case withIntermediates(Certificates const& given) const
    {
        auto changed = *this;
        changed.intermediates = given;
        return changed;
    }

    Case trusting(Certificates const& roots) const
    {
        auto changed = *this;
        changed.trusted = roots;
        return changed;
    }

    Case over(std::string const& givenContent) const
    {
        auto changed = *this;
        changed.content = givenContent;
        return changed;
    }

    /// The signature does not verify.
    Case failsWith(std::string const& reason) const
    {
        auto changed = *this;
        changed.signature = false;
        changed.status = Status::Failed;
        changed.text = reason;
        return changed;
    }

    /// The signature verifies.
    Case hasChain(Status verdict, std::string const& verdictText) const
    {
        auto changed = *this;
        changed.status = verdict;
        changed.text = verdictText;
        return changed;
    }

    char const* name;
    Pkcs7Handle data;
    Certificates intermediates;
    Certificates trusted = {root()};
    std::string content;
    bool signature = true;
    Status status = Status::Valid;
    std::string text;
};

PKCS7CertificateValidationResults verify(Case const& test)
{
    auto const loaded = load(test.data);
    return loaded.verifySignature(chainOf(test.intermediates), storeOf(test.trusted), asBytes(test.content));
}

void expectResultOf(Case const& test, PKCS7CertificateValidationResults const& results)
{
    expectResult(results, test.signature, test.status, test.text);
}

Pkcs7Handle withEmbedded(CertificateAndKey const& by, CertificateAndKey const& further)
{
    return makeSignedData("content", by, {further.certificate});
}

/// A root whose names differ in case. OpenSSL ignores case in names and so takes it as self-signed.
CertificateAndKey const& disguisedRoot()
{
    static auto const made =
        makeRoot("Disguised", [](CertificateSpec& spec) { spec.issuer = commonName("disguised"); });
    return made;
}

CertificateAndKey leafFor(std::string const& purpose, CertificateAndKey const& issuer)
{
    return makeLeaf(
        issuer, purpose, [&](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", purpose); });
}

/// Checks signed data as a program for signed code does: the signatures first, and then every signer. The
/// embedded certificates help to build the chains and are not trusted.
bool acceptsSigners(PKCS7Certificate const& loaded, TrustStore const& trusted)
{
    CleanErrorQueue const clean;
    X509CertificateChain embedded;
    for (auto const& certificate : loaded.getCertificates()) {
        embedded.addCertificate(certificate);
    }
    auto const results = loaded.verifySignature(X509CertificateChain(), trusted, ByteArray());
    auto const signers = loaded.getSignerCerts().getCertificates();
    bool accepted = results.getSignatureVerificationStatus() && !signers.empty();
    for (auto const& certificate : signers) {
        auto const chain = certificate.validateCertificate(embedded, CertificateValidationOptions(), trusted);
        accepted = accepted && chain.getCertificateChainStatus() == Status::Valid &&
                   certificate.isValidForDigitalSigning();
    }
    return accepted;
}

std::vector<Case> validCases()
{
    return {
        Case("signed by a leaf of the root", signedBy({signer()})),
        Case("an intermediate given", signedBy({deepSigner()})).withIntermediates({intermediate()}),
        Case("an intermediate embedded", withEmbedded(deepSigner(), intermediate())),
        Case("two signers, both trusted", signedBy({signer(), deepSigner()}))
            .withIntermediates({intermediate()}),
        Case("detached", detached("detached", signer())).over("detached"),
        Case("content embedded and given, equal", makeSignedData("both", signer())).over("both"),
        Case("no certificate embedded", withoutCertificates(signer())).withIntermediates({signer()}),
        Case("the root given as an intermediate", signedBy({signer()}))
            .withIntermediates({root()})
            .trusting({otherRoot()}),
    };
}

std::vector<Case> invalidSignatures()
{
    auto const damaged = withDamagedSignature(signedBy({signer()}));
    auto const embedded = makeSignedData("embedded", signer());
    SignedDataSpec unsignedSpec;
    unsignedSpec.furtherCertificates = {signer().certificate};
    auto const reason = [](int code) { return reasonText(ERR_LIB_PKCS7, code); };
    auto const digestFailure = reason(PKCS7_R_DIGEST_FAILURE);
    return {
        Case("changed content", withTamperedContent(signedBy({signer()}))).failsWith(digestFailure),
        Case("damaged signature", damaged).failsWith(signatureReasonOf(damaged)),
        Case("changed content, untrusted", withTamperedContent(signedBy({untrusted()})))
            .failsWith(digestFailure),
        Case("detached, no content given", detached("detached", signer()))
            .failsWith(reason(PKCS7_R_NO_CONTENT)),
        Case("detached, other content given", detached("detached", signer()))
            .over("other")
            .failsWith(digestFailure),
        Case("content embedded, other content given", embedded)
            .over("other")
            .failsWith(signatureReasonOf(embedded, "other")),
        Case("no signature", makeSignedData(unsignedSpec)).failsWith(reason(PKCS7_R_NO_SIGNATURES_ON_DATA)),
        Case("signer's certificate missing", withoutCertificates(signer()))
            .failsWith(reason(PKCS7_R_SIGNER_CERTIFICATE_NOT_FOUND)),
        Case("signer not embedded, and untrusted", withoutCertificates(untrusted()))
            .withIntermediates({untrusted()})
            .failsWith("certificate verify error"),
    };
}

std::string untrustedText(std::string const& subject)
{
    return "Errors present: Error code 20  at depth 0Certificate Subject Name=" + subject +
           "\n. \nMessage:" + X509_verify_cert_error_string(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY) +
           "\n";
}

std::vector<Case> failedChains()
{
    using std::chrono::hours;
    auto const selfSigned = makeSelfSignedLeaf("self-signed");
    auto const expired = makeLeaf(
        root(), "expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(hours(-1)); });
    auto const early = makeLeaf(
        root(), "early", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(hours(1)); });
    auto const codeSigner = leafFor("codeSigning", intermediate());
    auto const expiredText = validated(expired, {root()}).getValidationErrorString();
    auto const earlyText = validated(early, {root()}).getValidationErrorString();
    return {
        Case("untrusted signer", signedBy({untrusted()}))
            .hasChain(Status::Untrusted, untrustedText("CN=untrusted")),
        Case("untrusted signer, detached", detached("detached", untrusted()))
            .over("detached")
            .hasChain(Status::Untrusted, untrustedText("CN=untrusted")),
        Case("intermediate missing", signedBy({deepSigner()}))
            .hasChain(Status::Untrusted, untrustedText("CN=deep signer")),
        Case("self-signed signer", signedBy({selfSigned})).hasChain(Status::SelfSigned, ""),
        Case("expired", signedBy({expired})).hasChain(Status::Expired, expiredText),
        Case("not yet valid", signedBy({early})).hasChain(Status::Failed, earlyText),
        Case("restricted to servers, trusted", signedBy({serverSigner()}))
            .hasChain(Status::Valid, "certificate verify error"),
        Case("restricted to servers, the root given as an intermediate", signedBy({serverSigner()}))
            .withIntermediates({root()})
            .trusting({otherRoot()})
            .hasChain(Status::SelfSigned, ""),
        Case("restricted to code signing, intermediate embedded", withEmbedded(codeSigner, intermediate()))
            .hasChain(Status::Untrusted, untrustedText("CN=codeSigning")),
        Case("restricted to code signing, intermediate given", withEmbedded(codeSigner, intermediate()))
            .withIntermediates({intermediate()})
            .hasChain(Status::Valid, "certificate verify error"),
    };
}

} // namespace

// Replaces the library's own function, so that these tests know the system's roots.
namespace foundation::certificates {

std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder()
{
    return std::make_unique<SystemRootAdder>();
}

} // namespace foundation::certificates

TEST_F(PKCS7Verification, ValidSignatureAndTrustedChainPass)
{
    for (auto const& test : validCases()) {
        SCOPED_TRACE(test.name);
        expectResultOf(test, verify(test));
    }
}

TEST_F(PKCS7Verification, InvalidSignatureReportsOpenSSLsReason)
{
    for (auto const& test : invalidSignatures()) {
        SCOPED_TRACE(test.name);
        CleanErrorQueue const clean;
        EXPECT_NE(test.text, "");
        expectResultOf(test, verify(test));
    }
}

TEST_F(PKCS7Verification, FailedChainIsNotReportedAsInvalidSignature)
{
    for (auto const& test : failedChains()) {
        SCOPED_TRACE(test.name);
        CleanErrorQueue const clean;
        expectResultOf(test, verify(test));
    }
}

TEST_F(PKCS7Verification, InvalidSignatureInTheChainIsReportedAsInvalidSignature)
{
    auto const broken =
        makeLeaf(root(), "broken", [](CertificateSpec& spec) { spec.damagedSignature = true; });
    EXPECT_EQ(validated(broken, {root()}).getCertificateChainStatus(), Status::BadSignature);
    ERR_clear_error();

    auto const results =
        load(signedBy({broken})).verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray());
    EXPECT_NE(results.getValidationErrorString(), "certificate verify error");
    expectResult(results, false, Status::Failed, chainReasonOf(signedBy({broken}), root()));
}

TEST_F(PKCS7Verification, NotYetValidCertificateReportsItsCode)
{
    auto const early = makeLeaf(root(), "early", [](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::fromNow(std::chrono::hours(1));
    });
    auto const results =
        load(signedBy({early})).verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray());
    EXPECT_EQ(results.getValidationErrorString().substr(0, 34), "Validation Failed. Return code=9.E");
}

// An entry of an earlier call in OpenSSL's queue

TEST_F(PKCS7Verification, EarlierErrorInTheQueueLeavesSuccessUnchanged)
{
    for (auto const& test : validCases()) {
        SCOPED_TRACE(test.name);
        auto const loaded = load(test.data);
        auto const chain = chainOf(test.intermediates);
        auto const store = storeOf(test.trusted);
        CleanErrorQueue const clean;
        auto const foreign = queueForeignError();
        expectResultOf(test, loaded.verifySignature(chain, store, asBytes(test.content)));
        EXPECT_EQ(oldestError(), foreign);
    }
}

TEST_F(PKCS7Verification, EarlierErrorInTheQueueReplacesTheReason)
{
    auto cases = invalidSignatures();
    for (auto& test : failedChains()) {
        cases.push_back(std::move(test));
    }
    for (auto const& test : cases) {
        SCOPED_TRACE(test.name);
        auto const loaded = load(test.data);
        auto const chain = chainOf(test.intermediates);
        auto const store = storeOf(test.trusted);
        CleanErrorQueue const clean;
        queueForeignError();
        auto const text = oldestReasonText();
        expectResult(
            loaded.verifySignature(chain, store, asBytes(test.content)), false, Status::Failed, text);
    }
}

TEST_F(PKCS7Verification, ErrorOfFailedQueryReplacesTheReason)
{
    auto const loaded = load(detached("detached", untrusted()));
    auto const trusted = storeOf({root()});
    EXPECT_EQ(loaded.getSignedData(), ByteArray());
    expectResult(
        loaded.verifySignature(X509CertificateChain(), trusted, asBytes("detached")), false, Status::Failed,
        reasonText(ERR_LIB_PKCS7, PKCS7_R_NO_CONTENT));
}

// Several signers

TEST_F(PKCS7Verification, OnlyTheFirstSignersChainIsValidated)
{
    auto const rootOfOther = makeRoot("root of other");
    auto const other = makeLeaf(rootOfOther, "other");
    auto const loaded = load(signedBy({signer(), other}));
    auto const first = loaded.getSignerCerts().getCertificates().front();
    bool const oursIsFirst = first.getSubjectName() == "CN=signer";
    auto const firstRoot = storeOf({oursIsFirst ? root() : rootOfOther});
    auto const secondRoot = storeOf({oursIsFirst ? rootOfOther : root()});
    ERR_clear_error();

    // The first signer is trusted and the second is not: OpenSSL fails, and the validation passes.
    expectResult(
        loaded.verifySignature(X509CertificateChain(), firstRoot, ByteArray()), true, Status::Valid,
        "certificate verify error");
    ERR_clear_error();
    expectResult(
        loaded.verifySignature(X509CertificateChain(), secondRoot, ByteArray()), true, Status::Untrusted,
        untrustedText(first.getSubjectName()));
}

TEST_F(PKCS7Verification, EverySignatureMustBeValid)
{
    auto const both = withDamagedSignature(signedBy({signer(), deepSigner()}));
    auto const results =
        load(both).verifySignature(chainOf({intermediate()}), storeOf({root()}), ByteArray());
    expectResult(results, false, Status::Failed, signatureReasonOf(both));
}

TEST_F(PKCS7Verification, SeparateValidationOfSignersTrustsNoEmbeddedCertificate)
{
    ASSERT_FALSE(X509Certificate(disguisedRoot().der()).isSelfSigned());
    auto const attacker = makeRoot("attacker");
    auto const codeSigner = leafFor("codeSigning", intermediate());
    struct SignersRow
    {
        char const* name;
        Pkcs7Handle data;
        bool accepted;
    };
    std::vector<SignersRow> const rows{
        {"code signer below an embedded intermediate", withEmbedded(codeSigner, intermediate()), true},
        {"server below an embedded intermediate",
         withEmbedded(leafFor("serverAuth", intermediate()), intermediate()), false},
        {"changed content", withTamperedContent(withEmbedded(codeSigner, intermediate())), false},
        {"signer below an embedded root", withEmbedded(makeLeaf(attacker, "signer"), attacker), false},
        {"code signer below an embedded root", withEmbedded(leafFor("codeSigning", attacker), attacker),
         false},
        {"signer below an embedded disguised root",
         withEmbedded(makeLeaf(disguisedRoot(), "signer"), disguisedRoot()), false},
        {"code signer below an embedded disguised root",
         withEmbedded(leafFor("codeSigning", disguisedRoot()), disguisedRoot()), false},
        {"trusted and untrusted code signer",
         signedBy({leafFor("codeSigning", root()), leafFor("codeSigning", attacker)}), false},
        {"signer's certificate missing", withoutCertificates(signer()), false},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(acceptsSigners(load(row.data), storeOf({root()})), row.accepted);
    }
}

TEST_F(PKCS7Verification, DisguisedRootAmongTheIntermediatesIsTrusted)
{
    auto const loaded = load(withEmbedded(makeLeaf(disguisedRoot(), "signer"), disguisedRoot()));
    auto const trusted = storeOf({root()});
    expectResult(
        loaded.verifySignature(chainOf({disguisedRoot()}), trusted, ByteArray()), true, Status::Valid, "");
    expectResult(
        loaded.verifySignature(X509CertificateChain(), trusted, ByteArray()), true, Status::Untrusted,
        untrustedText("CN=signer"));
}

// The trust store

TEST_F(PKCS7Verification, ArgumentsStayUnchanged)
{
    auto const trusted = storeOf({root()});
    auto const intermediates = chainOf({intermediate()});
    load(signedBy({deepSigner()})).verifySignature(intermediates, trusted, ByteArray());
    load(signedBy({untrusted()})).verifySignature(intermediates, trusted, ByteArray());
    EXPECT_EQ(trusted.size(), 1u);
    EXPECT_EQ(intermediates.getNumCertificates(), 1u);
    EXPECT_TRUE(operatingSystem().asked.empty());
}

TEST_F(PKCS7Verification, EmptyTrustStoreMeansSystemRoots)
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

TEST_F(PKCS7Verification, FailedChainIsValidatedAgainstSystemRoots)
{
    auto const loaded = load(signedBy({untrusted()}));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()), true, Status::Untrusted,
        untrustedText("CN=untrusted"));
}

TEST_F(PKCS7Verification, SystemRootsReadBeforeAFailureAreUsed)
{
    operatingSystem().failing = Usage::ServerAuthentication;
    auto const loaded = load(signedBy({makeLeaf(systemRoot(), "signer")}));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()), true, Status::Valid, "");
    EXPECT_EQ(operatingSystem().asked.size(), 2u);
}

TEST_F(PKCS7Verification, FailureToReadSystemRootsIsNotReported)
{
    // No root can be read. OpenSSL's own check trusts the intermediates instead.
    operatingSystem().failing = Usage::Signing;
    auto const loaded = load(signedBy({signer()}));
    expectResult(
        loaded.verifySignature(chainOf({root()}), TrustStore(), ByteArray()), true, Status::Valid, "");
    EXPECT_EQ(operatingSystem().asked.size(), 1u);
}

TEST_F(PKCS7Verification, TrustStoreThatCannotBeCopiedTrustsNothing)
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
    // The roots of the operating system do not replace the caller's.
    expectResult(
        load(signedBy({makeLeaf(systemRoot(), "signer")}))
            .verifySignature(X509CertificateChain(), trusted, ByteArray()),
        true, Status::Untrusted, "certificate verify error");
    ERR_clear_error();
    expectResult(
        load(signedBy({signer()})).verifySignature(chainOf({root()}), trusted, ByteArray()), true,
        Status::Valid, "");
}

// The same OpenSSL object in the signed data, among the intermediates and in the trust store

TEST_F(PKCS7Verification, SharedObjectsGetTheResultOfEqualOnes)
{
    auto const selfSigned = makeSelfSignedLeaf("self-signed");
    auto const selfIssued =
        makeLeaf(root(), "self-issued", [](CertificateSpec& spec) { spec.issuer = spec.subject; });
    struct SharingRow
    {
        char const* name;
        Pkcs7Handle data;
        std::size_t shared; ///< the position of the embedded certificate that is shared
    };
    std::vector<SharingRow> const rows{
        {"signer", signedBy({signer()}), 0},
        {"untrusted signer", signedBy({untrusted()}), 0},
        {"self-signed signer", signedBy({selfSigned}), 0},
        {"self-issued signer", signedBy({selfIssued}), 0},
        {"root", withEmbedded(signer(), root()), 1},
        {"intermediate", withEmbedded(deepSigner(), intermediate()), 1},
        {"disguised root", withEmbedded(makeLeaf(disguisedRoot(), "signer"), disguisedRoot()), 1},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const loaded = load(row.data);
        X509Certificate const shared = loaded.getCertificates().at(row.shared);
        X509Certificate const equal(shared.getAsBytes());
        auto const answer = [&](X509Certificate const* intermediate, X509Certificate const* anchor) {
            X509CertificateChain chain;
            if (intermediate != nullptr) {
                chain.addCertificate(*intermediate);
            }
            TrustStore store;
            store.addCertificate(anchor != nullptr ? *anchor : X509Certificate(otherRoot().der()));
            CleanErrorQueue const clean;
            auto const results = rendered(loaded.verifySignature(chain, store, ByteArray()));
            return std::make_pair(results, drainErrorQueue());
        };
        EXPECT_EQ(answer(nullptr, &shared), answer(nullptr, &equal));
        EXPECT_EQ(answer(&shared, nullptr), answer(&equal, nullptr));
        EXPECT_EQ(answer(&shared, &shared), answer(&equal, &equal));
    }
}

// Objects that cannot be verified

TEST_F(PKCS7Verification, ObjectWithoutStructureFails)
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

TEST_F(PKCS7Verification, SignedAndEnvelopedDataFails)
{
    auto const recipient =
        makeSelfSignedLeaf("recipient", [](CertificateSpec& spec) { spec.key = rsaKey(); });
    auto const loaded = load(makeSignedAndEnvelopedData("content", signer(), recipient));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray()), false, Status::Failed,
        reasonText(ERR_LIB_PKCS7, PKCS7_R_WRONG_CONTENT_TYPE));
}

TEST_F(PKCS7Verification, AddedCertificatesHaveNoEffect)
{
    auto loaded = load(signedBy({deepSigner()}));
    loaded.addCertificate(X509Certificate(intermediate().der()));
    loaded.addCertificate(X509Certificate(root().der()));
    expectResult(
        loaded.verifySignature(X509CertificateChain(), storeOf({root()}), ByteArray()), true,
        Status::Untrusted, untrustedText("CN=deep signer"));
}

TEST_F(PKCS7Verification, MovedFromChainThrowsItsException)
{
    X509CertificateChain source;
    X509CertificateChain const target(std::move(source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        load(signedBy({signer()})).verifySignature(source, storeOf({root()}), ByteArray()));
}
