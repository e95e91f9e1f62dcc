#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

/// root -> ca -> leaf
class ChainValidation : public testing::Test
{
protected:
    CertificateValidationResults validate(
        X509CertificateChain const& chain, TrustStore const& trustStore,
        Options const& options = Options()) const
    {
        return load(pki["leaf"]).validateCertificate(chain, options, trustStore);
    }

    Topology const pki{{{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}};
};

void expectValid(CertificateValidationResults const& results, CertificateAndKey const& root)
{
    EXPECT_EQ(results.getCertificateChainStatus(), Status::Valid);
    EXPECT_EQ(results.getValidationErrorString(), "");
    ASSERT_TRUE(results.getRootCertificate().has_value());
    EXPECT_EQ(*results.getRootCertificate(), load(root));
}

void expectFailure(CertificateValidationResults const& results, Status status, std::string const& text)
{
    EXPECT_EQ(results.getCertificateChainStatus(), status);
    EXPECT_EQ(results.getValidationErrorString(), text);
    EXPECT_FALSE(results.getRootCertificate().has_value());
    EXPECT_EQ(
        results.getCertificateRevocationResults().getRevocationStatus(),
        CertificateRevocationResults::RevocationStatus::NotRevoked);
}

// The limits of the two forms of a date, in seconds since 1970.
constexpr std::int64_t startOf1950 = -631152000;
constexpr std::int64_t lastSecondOf1969 = -1;
constexpr std::int64_t lastSecondOf2049 = 2524607999;
constexpr std::int64_t startOf2050 = 2524608000;
constexpr std::int64_t lastSecondOf9999 = 253402300799;

void expireAnHourAgo(CertificateSpec& spec)
{
    spec.notAfter = TimeSpec::fromNow(-1h);
}

void startInAnHour(CertificateSpec& spec)
{
    spec.notBefore = TimeSpec::fromNow(1h);
}

void damageSignature(CertificateSpec& spec)
{
    spec.damagedSignature = true;
}

/// A chain with two faults, the faults that the validation tolerates, and the verdict.
struct FaultyChain
{
    explicit FaultyChain(char const* theName) : name(theName) {}

    FaultyChain& leaf(CertificateAndKey const& value)
    {
        leafOfChain = value;
        return *this;
    }

    FaultyChain& issuer(CertificateAndKey const& value)
    {
        issuerOfLeaf = value;
        return *this;
    }

    FaultyChain& tolerating(Tolerances const& value)
    {
        tolerances = value;
        return *this;
    }

    FaultyChain& is(Status value)
    {
        status = value;
        return *this;
    }

    char const* name;
    CertificateAndKey leafOfChain;
    CertificateAndKey issuerOfLeaf;
    Tolerances tolerances;
    Status status = Status::Valid;
};

class Fallback : public ChainValidation
{
protected:
    CertificateValidationResults validateWith(
        CertificateAndKey const& leaf, X509CertificateChain const& chain, TrustStore const& first,
        TrustStore const& second) const
    {
        return load(leaf).validateCertificate(
            chain,
            optionsWith(
                {}, Options::CheckCRL::None, Options::DownloadCRL::None,
                std::make_shared<TrustStore>(second)),
            first);
    }

    CertificateAndKey const other = makeRoot("other");
    TrustStore const withRoot = storeOf({pki["root"]});
    TrustStore const withOther = storeOf({other});
};

} // namespace

// Accepted input

TEST_F(ChainValidation, AcceptsIntermediatesWithoutLeaf)
{
    expectValid(validate(chainOf({pki["ca"]}), storeOf({pki["root"]})), pki["root"]);
}

TEST_F(ChainValidation, AcceptsChainThatBeginsWithLeaf)
{
    expectValid(validate(chainOf({pki["leaf"], pki["ca"]}), storeOf({pki["root"]})), pki["root"]);
}

TEST_F(ChainValidation, AcceptsChainWithLeafFurtherDown)
{
    expectValid(validate(chainOf({pki["ca"], pki["leaf"]}), storeOf({pki["root"]})), pki["root"]);
}

TEST_F(ChainValidation, AcceptsEmptyChainForLeafOfRoot)
{
    auto const direct = makeLeaf(pki["root"], "direct");

    auto const results =
        load(direct).validateCertificate(X509CertificateChain(), Options(), storeOf({pki["root"]}));

    expectValid(results, pki["root"]);
}

TEST_F(ChainValidation, FindsIntermediatesInTrustStore)
{
    expectValid(validate(X509CertificateChain(), storeOf({pki["root"], pki["ca"]})), pki["root"]);
}

TEST_F(ChainValidation, IgnoresUnrelatedCertificatesInChain)
{
    auto const unrelated = makeRoot("other");
    expectValid(validate(chainOf({unrelated, pki["root"], pki["ca"]}), storeOf({pki["root"]})), pki["root"]);
}

TEST_F(ChainValidation, ValidatesAnchorItself)
{
    auto const results =
        load(pki["root"]).validateCertificate(X509CertificateChain(), Options(), storeOf({pki["root"]}));
    expectValid(results, pki["root"]);
}

TEST_F(ChainValidation, DoesNotTrustIntermediateWithoutRoot)
{
    expectFailure(
        validate(X509CertificateChain(), storeOf({pki["ca"]})), Status::Untrusted,
        report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, 1, "CN=ca"));
}

TEST_F(ChainValidation, DoesNotTrustRootOfChain)
{
    auto const other = makeRoot("other");
    expectFailure(validate(chainOf({pki["ca"], pki["root"]}), storeOf({other})), Status::SelfSigned, "");
}

TEST_F(ChainValidation, RepeatedCallsAgree)
{
    auto const leaf = load(pki["leaf"]);
    auto const chain = chainOf({pki["ca"]});
    auto const trustStore = storeOf({pki["root"]});

    expectValid(leaf.validateCertificate(chain, Options(), trustStore), pki["root"]);
    expectValid(leaf.validateCertificate(chain, Options(), trustStore), pki["root"]);
}

TEST_F(ChainValidation, ChangesNeitherTrustStoreNorChain)
{
    auto const trustStore = storeOf({pki["root"]});
    auto const chain = chainOf({pki["ca"]});
    auto const live = getOpenSSLStore(trustStore);
    auto* const parameters = X509_STORE_get0_param(live.get());
    auto const flagsBefore = X509_VERIFY_PARAM_get_flags(parameters);
    auto const callbackBefore = X509_STORE_get_verify_cb(live.get());

    validate(chain, trustStore);

    EXPECT_EQ(X509_VERIFY_PARAM_get_flags(parameters), flagsBefore);
    EXPECT_EQ(X509_STORE_get_verify_cb(live.get()), callbackBefore);
    EXPECT_EQ(trustStore.size(), 1U);
    EXPECT_EQ(chain.getNumCertificates(), 1U);
}

// Unusable input

TEST_F(ChainValidation, RefusesCertificateWithoutContent)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509Certificate().validateCertificate(X509CertificateChain(), Options(), storeOf({pki["root"]})));
}

TEST_F(ChainValidation, RefusesMovedFromCertificate)
{
    auto certificate = load(pki["leaf"]);
    auto const taker = std::move(certificate);

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        certificate.validateCertificate(X509CertificateChain(), Options(), storeOf({pki["root"]})));
}

TEST_F(ChainValidation, RefusesMovedFromChain)
{
    auto chain = chainOf({pki["ca"]});
    auto const taker = std::move(chain);

    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        validate(chain, storeOf({pki["root"]})));
}

TEST_F(ChainValidation, UsesSystemRootsForMovedFromTrustStore)
{
    auto trustStore = storeOf({pki["root"]});
    auto const taker = std::move(trustStore);

    expectFailure(
        validate(chainOf({pki["ca"]}), trustStore), Status::Untrusted,
        report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca"));
}

TEST_F(ChainValidation, UsesSystemRootsForEmptyTrustStore)
{
    expectFailure(
        validate(chainOf({pki["ca"]}), TrustStore()), Status::Untrusted,
        report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca"));
}

TEST_F(ChainValidation, RefusesAnchorWithUnsupportedKey)
{
    auto const root = makeRoot("p384 root", [](CertificateSpec& spec) { spec.key = p384Key(); });
    auto const leaf = makeLeaf(root, "leaf");
    TrustStore trustStore;
    addUnchecked(trustStore, root.certificate);

    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "ECC-based key is not using supported ECC Curve. Curve: secp384r1",
        load(leaf).validateCertificate(X509CertificateChain(), Options(), trustStore));
}

TEST_F(ChainValidation, RefusesAnchorWithWeakRsaKey)
{
    auto const root = makeRoot("weak root", [](CertificateSpec& spec) { spec.key = rsaKey(1023); });
    auto const leaf = makeLeaf(root, "leaf");
    TrustStore trustStore;
    addUnchecked(trustStore, root.certificate);

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "RSA key size does not meet minimum cryptographic requirements",
        load(leaf).validateCertificate(X509CertificateChain(), Options(), trustStore));
}

TEST_F(ChainValidation, UsesStoreWithCrl)
{
    auto trustStore = storeOf({pki["root"]});
    addCrl(trustStore, makeCrl(pki["ca"]));
    expectValid(validate(chainOf({pki["ca"]}), trustStore), pki["root"]);
}

// Rules that always apply

TEST_F(ChainValidation, AppliesStrictChecks)
{
    auto const code = X509_V_ERR_MISSING_AUTHORITY_KEY_IDENTIFIER;
    auto const leaf = makeLeaf(
        pki["ca"], "leaf", [](CertificateSpec& spec) { spec.removeExtension("authorityKeyIdentifier"); });
    expectFailure(
        load(leaf).validateCertificate(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]})),
        Status::Failed,
        "Validation Failed. Return code=" + std::to_string(code) + "." + report(code, 0, "CN=leaf"));
}

TEST_F(ChainValidation, ChecksSignatureOfAnchor)
{
    auto const root = makeRoot("root", damageSignature);
    expectFailure(
        validate(chainOf({pki["ca"]}), storeOf({root})), Status::BadSignature,
        report(X509_V_ERR_CERT_SIGNATURE_FAILURE, 2, "CN=root"));
}

TEST_F(ChainValidation, AllowsProxyCertificates)
{
    auto const proxy = makeLeaf(pki["leaf"], "proxy", [](CertificateSpec& spec) {
        spec.subject = {{"CN", "leaf"}, {"CN", "proxy"}};
        spec.removeExtension("basicConstraints");
        spec.setExtension("proxyCertInfo", "critical,language:id-ppl-anyLanguage,pathlen:0");
    });
    expectValid(
        load(proxy).validateCertificate(chainOf({pki["leaf"], pki["ca"]}), Options(), storeOf({pki["root"]})),
        pki["root"]);
}

TEST_F(ChainValidation, PrefersTrustedIntermediateToThatOfChain)
{
    auto const expiredCa = makeIntermediate(pki["root"], "ca", expireAnHourAgo);
    expectValid(validate(chainOf({expiredCa}), storeOf({pki["root"], pki["ca"]})), pki["root"]);
}

TEST_F(ChainValidation, AppliesOnlyCrlsThatItDownloads)
{
    auto trustStore = storeOf({pki["root"]});
    addCrl(trustStore, makeCrl(pki["ca"], {revoke(pki["leaf"])}));
    addCrl(trustStore, makeCrl(pki["root"], {revoke(pki["ca"])}));

    for (auto const check :
         {Options::CheckCRL::None, Options::CheckCRL::LeafOnly, Options::CheckCRL::WholeChain}) {
        expectValid(validate(chainOf({pki["ca"]}), trustStore, optionsWith({}, check)), pki["root"]);
    }
}

// Tolerances

TEST_F(ChainValidation, RejectsSelfSignedLeafWithoutText)
{
    auto const leaf = makeSelfSignedLeaf("lonely");
    expectFailure(
        load(leaf).validateCertificate(X509CertificateChain(), Options(), storeOf({pki["root"]})),
        Status::SelfSigned, "");
}

TEST_F(ChainValidation, ToleratedSelfSignedLeafIsItsOwnRoot)
{
    auto const leaf = makeSelfSignedLeaf("lonely");
    Tolerances tolerances;
    tolerances.selfSigned = true;
    expectValid(
        load(leaf).validateCertificate(
            X509CertificateChain(), optionsWith(tolerances), storeOf({pki["root"]})),
        leaf);
}

TEST_F(ChainValidation, ToleratedExpiryLeavesNoTrace)
{
    auto const leaf = makeLeaf(pki["ca"], "leaf", expireAnHourAgo);
    Tolerances tolerances;
    tolerances.expired = true;
    expectValid(
        load(leaf).validateCertificate(chainOf({pki["ca"]}), optionsWith(tolerances), storeOf({pki["root"]})),
        pki["root"]);
}

TEST_F(ChainValidation, ReportsFirstErrorThatIsNotTolerated)
{
    // The leaf has two faults. The report names the one that OpenSSL finds first.
    auto const leaf = makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) {
        expireAnHourAgo(spec);
        damageSignature(spec);
    });
    auto const chain = chainOf({pki["ca"]});
    Tolerances expiredTolerated;
    expiredTolerated.expired = true;

    ReferenceVerifier verifier;
    verifier.leaf = leaf.certificate;
    verifier.untrusted = {pki["ca"].certificate};
    verifier.trusted = {pki["root"].certificate};
    auto const bare = verifier.verify();
    verifier.tolerances = expiredTolerated;
    auto const bareTolerant = verifier.verify();

    auto const results = load(leaf).validateCertificate(chain, Options(), storeOf({pki["root"]}));
    auto const tolerant =
        load(leaf).validateCertificate(chain, optionsWith(expiredTolerated), storeOf({pki["root"]}));
    EXPECT_EQ(results.getValidationErrorString(), report(bare.code, bare.depth, bare.subject));
    EXPECT_EQ(bareTolerant.code, X509_V_ERR_CERT_SIGNATURE_FAILURE);
    expectFailure(tolerant, Status::BadSignature, report(X509_V_ERR_CERT_SIGNATURE_FAILURE, 0, "CN=leaf"));
}

TEST_F(ChainValidation, ReportsFaultAfterToleratedFault)
{
    auto const also = [](Mutation const& first, Mutation const& second) {
        return [=](CertificateSpec& spec) {
            first(spec);
            second(spec);
        };
    };
    Tolerances selfSigned;
    selfSigned.selfSigned = true;
    Tolerances expired;
    expired.expired = true;
    auto const all = everyTolerance();
    auto const expiredCa = makeIntermediate(pki["root"], "ca", expireAnHourAgo);
    auto const forgedCa = makeIntermediate(pki["root"], "ca", also(expireAnHourAgo, damageSignature));
    auto const noCa = makeIntermediate(pki["root"], "ca", [](CertificateSpec& spec) {
        expireAnHourAgo(spec);
        spec.setExtension("basicConstraints", "critical,CA:FALSE").removeExtension("keyUsage");
    });
    auto const ofOtherRoot = makeLeaf(makeRoot("other"), "leaf", expireAnHourAgo);
    FaultyChain const rows[] = {
        FaultyChain("expired and forged")
            .leaf(makeLeaf(pki["ca"], "leaf", also(expireAnHourAgo, damageSignature)))
            .issuer(pki["ca"])
            .tolerating(all)
            .is(Status::BadSignature),
        FaultyChain("self-signed and forged")
            .leaf(makeSelfSignedLeaf("leaf", damageSignature))
            .issuer(pki["ca"])
            .tolerating(all)
            .is(Status::BadSignature),
        FaultyChain("self-signed and expired")
            .leaf(makeSelfSignedLeaf("leaf", expireAnHourAgo))
            .issuer(pki["ca"])
            .tolerating(selfSigned)
            .is(Status::Expired),
        FaultyChain("expired and self-signed")
            .leaf(makeSelfSignedLeaf("leaf", expireAnHourAgo))
            .issuer(pki["ca"])
            .tolerating(expired)
            .is(Status::SelfSigned),
        FaultyChain("self-signed and not yet valid")
            .leaf(makeSelfSignedLeaf("leaf", startInAnHour))
            .issuer(pki["ca"])
            .tolerating(all)
            .is(Status::Failed),
        FaultyChain("expired and of another root")
            .leaf(ofOtherRoot)
            .issuer(pki["ca"])
            .tolerating(all)
            .is(Status::Untrusted),
        FaultyChain("forged, below an expired issuer")
            .leaf(makeLeaf(expiredCa, "leaf", damageSignature))
            .issuer(expiredCa)
            .tolerating(all)
            .is(Status::BadSignature),
        FaultyChain("below an expired and forged issuer")
            .leaf(makeLeaf(forgedCa, "leaf"))
            .issuer(forgedCa)
            .tolerating(all)
            .is(Status::BadSignature),
        FaultyChain("below an expired issuer that is not a CA")
            .leaf(makeLeaf(noCa, "leaf"))
            .issuer(noCa)
            .tolerating(all)
            .is(Status::Untrusted),
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const results =
            load(row.leafOfChain)
                .validateCertificate(
                    chainOf({row.issuerOfLeaf}), optionsWith(row.tolerances), storeOf({pki["root"]}));
        EXPECT_EQ(results.getCertificateChainStatus(), row.status);
        EXPECT_FALSE(results.getRootCertificate().has_value());
    }
}

TEST_F(ChainValidation, AcceptsDatesOfAnyCentury)
{
    for (auto const& notBefore :
         {TimeSpec::at(startOf1950), TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "00000101000000Z")}) {
        for (auto const notAfter : {lastSecondOf2049, startOf2050, lastSecondOf9999}) {
            auto const leaf = makeLeaf(pki["ca"], "leaf", [&](CertificateSpec& spec) {
                spec.notBefore = notBefore;
                spec.notAfter = TimeSpec::at(notAfter);
            });
            expectValid(
                load(leaf).validateCertificate(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]})),
                pki["root"]);
        }
    }
    auto const longAgo = makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) {
        spec.notBefore = TimeSpec::at(startOf1950);
        spec.notAfter = TimeSpec::at(lastSecondOf1969);
    });
    expectFailure(
        load(longAgo).validateCertificate(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]})),
        Status::Expired, report(X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=leaf"));
}

TEST_F(ChainValidation, AppliesStrictChecksToVersion)
{
    for (long const version : {X509_VERSION_1, X509_VERSION_2}) {
        SCOPED_TRACE(version);
        auto const leaf = makeLeaf(pki["ca"], "leaf", [&](CertificateSpec& spec) { spec.version = version; });
        auto const ca =
            makeIntermediate(pki["root"], "ca", [&](CertificateSpec& spec) { spec.version = version; });
        auto const root = makeRoot("root", [&](CertificateSpec& spec) { spec.version = version; });
        struct
        {
            CertificateAndKey leaf, ca, root;
        } const rows[] = {
            {leaf, pki["ca"], pki["root"]},
            {makeLeaf(ca, "leaf"), ca, pki["root"]},
            {makeLeaf(root, "leaf"), pki["ca"], root},
        };
        for (auto const& row : rows) {
            ReferenceVerifier verifier;
            verifier.leaf = row.leaf.certificate;
            verifier.untrusted = {row.ca.certificate};
            verifier.trusted = {row.root.certificate};
            auto const bare = verifier.verify();
            EXPECT_NE(bare.result, 1);
            expectSame(
                load(row.leaf).validateCertificate(chainOf({row.ca}), Options(), storeOf({row.root})), bare);
        }
    }
}

TEST_F(ChainValidation, ToleratesOnlyWhatOptionsAllow)
{
    auto const leaf = makeLeaf(pki["ca"], "leaf", startInAnHour);
    for (auto const& tolerances : allTolerances()) {
        expectFailure(
            load(leaf).validateCertificate(
                chainOf({pki["ca"]}), optionsWith(tolerances), storeOf({pki["root"]})),
            Status::Failed,
            "Validation Failed. Return code=9." + report(X509_V_ERR_CERT_NOT_YET_VALID, 0, "CN=leaf"));
    }
}

TEST_F(ChainValidation, ReportsSubjectInFormatOfRfc2253)
{
    auto const leaf = makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) {
        expireAnHourAgo(spec);
        spec.subject = {{"O", "Smith, \"Jones\" & Söhne"}, {"CN", "a+b"}};
    });
    expectFailure(
        load(leaf).validateCertificate(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]})),
        Status::Expired,
        report(X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=a\\+b,O=Smith\\, \\\"Jones\\\" & S\\C3\\B6hne"));
}

TEST_F(ChainValidation, ReportsEmptySubjectAsEmptyText)
{
    auto const leaf = makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) {
        expireAnHourAgo(spec);
        spec.subject = {};
        spec.setExtension("subjectAltName", "critical,DNS:example.org");
    });
    expectFailure(
        load(leaf).validateCertificate(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]})),
        Status::Expired, report(X509_V_ERR_CERT_HAS_EXPIRED, 0, ""));
}

// The second trust store

TEST_F(Fallback, IsUsedForUntrustedCertificate)
{
    expectValid(validateWith(pki["leaf"], chainOf({pki["ca"]}), withOther, withRoot), pki["root"]);
}

TEST_F(Fallback, IsUsedForSelfSignedCertificate)
{
    auto const leaf = makeSelfSignedLeaf("lonely");
    expectValid(validateWith(leaf, X509CertificateChain(), withRoot, storeOf({leaf})), leaf);
}

TEST_F(Fallback, IsUsedForBadSignature)
{
    auto const damagedCa = makeIntermediate(pki["root"], "ca", damageSignature);
    expectValid(
        validateWith(pki["leaf"], chainOf({damagedCa}), withRoot, storeOf({pki["root"], pki["ca"]})),
        pki["root"]);
}

TEST_F(Fallback, IsUsedForOtherFailure)
{
    auto const youngCa = makeIntermediate(pki["root"], "ca", startInAnHour);
    expectValid(
        validateWith(pki["leaf"], chainOf({youngCa}), withRoot, storeOf({pki["root"], pki["ca"]})),
        pki["root"]);
}

TEST_F(Fallback, IsNotUsedForExpiredCertificate)
{
    auto const expiredCa = makeIntermediate(pki["root"], "ca", expireAnHourAgo);
    expectFailure(
        validateWith(pki["leaf"], chainOf({expiredCa}), withRoot, storeOf({pki["root"], pki["ca"]})),
        Status::Expired, report(X509_V_ERR_CERT_HAS_EXPIRED, 1, "CN=ca"));
}

TEST_F(Fallback, IsNotUsedForValidCertificate)
{
    expectValid(validateWith(pki["leaf"], chainOf({pki["ca"]}), withRoot, withOther), pki["root"]);
}

TEST_F(Fallback, ResultCountsEvenIfItIsWorse)
{
    auto const leaf = makeLeaf(pki["ca"], "leaf", startInAnHour);
    auto const expiredRoot = makeRoot("root", expireAnHourAgo);
    expectFailure(
        validateWith(leaf, chainOf({pki["ca"]}), withOther, storeOf({expiredRoot})), Status::Expired,
        report(X509_V_ERR_CERT_HAS_EXPIRED, 2, "CN=root"));
}

TEST_F(Fallback, EmptyStoreMeansSystemRoots)
{
    expectFailure(
        validateWith(pki["leaf"], chainOf({pki["ca"]}), withOther, TrustStore()), Status::Untrusted,
        report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca"));
}

// The implementation below the handle

TEST_F(ChainValidation, RunHasRootOnlyAfterSuccess)
{
    X509CertificateImpl const leaf(pki["leaf"].der());

    auto const good = leaf.verifyAgainstStore(chainOf({pki["ca"]}), Options(), storeOf({pki["root"]}));
    auto const bad = leaf.verifyAgainstStore(X509CertificateChain(), Options(), storeOf({pki["root"]}));

    ASSERT_TRUE(good.root.has_value());
    EXPECT_EQ(good.root->getSubjectName(), "CN=root");
    EXPECT_FALSE(good.results.getRootCertificate().has_value());
    EXPECT_FALSE(bad.root.has_value());
    EXPECT_EQ(bad.results.getCertificateChainStatus(), Status::Untrusted);
}

TEST_F(ChainValidation, RefusesEmptyImplementationFirst)
{
    auto chain = chainOf({pki["ca"]});
    auto const taker = std::move(chain);

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509CertificateImpl().verifyAgainstStore(chain, Options(), TrustStore()));
}
