#include "support/Dice.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/operations/RandomHierarchies.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/toolkit/Paths.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

// Random hierarchies with random faults. PathValidator agrees with validateCertificate where both apply, and
// with bare OpenSSL where only it takes CRLs. Another seed than the default one comes from
// FOUNDATION_TEST_SEED.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

constexpr int numHierarchies = 400;

/// Runs the function on each hierarchy.
template <class Function>
void forEachHierarchy(Function const& function)
{
    auto const seed = numberFromEnvironment("FOUNDATION_TEST_SEED", 20240229);
    std::cout << "Seed: " << seed << "\n";
    for (int number = 0; number < numHierarchies; ++number) {
        SCOPED_TRACE("Hierarchy " + std::to_string(number) + " of seed " + std::to_string(seed));
        Dice dice(seed * numHierarchies + static_cast<std::uint64_t>(number));
        function(makeHierarchy(dice));
    }
}

/// Counts the verdicts. The hierarchies are worth nothing if they are all alike.
class Verdicts
{
public:
    void add(PathResult const& result) { ++counts[result.errorCode]; }

    void expectVariety()
    {
        for (auto const& [code, count] : counts) {
            std::cout << "code " << code << ": " << count << "\n";
        }
        EXPECT_GE(counts.size(), 10U);
        EXPECT_GE(counts[X509_V_OK], numHierarchies / 10);
    }

private:
    std::map<int, int> counts;
};

PathOptions optionsOf(Hierarchy const& hierarchy)
{
    return pathOptions([&](PathOptions& options) {
        options.allowSelfSigned = hierarchy.tolerances.selfSigned;
        options.allowExpired = hierarchy.tolerances.expired;
        options.minimumSecurityLevel = 0;
    });
}

unsigned long flagsOf(Revocation revocation)
{
    constexpr unsigned long flags[] = {
        0, X509_V_FLAG_CRL_CHECK, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL};
    return flags[static_cast<int>(revocation)];
}

std::vector<X509Handle> handlesOf(std::vector<CertificateAndKey> const& members)
{
    std::vector<X509Handle> handles;
    for (auto const& member : members) {
        handles.push_back(member.certificate);
    }
    return handles;
}

/// The verdict of bare OpenSSL on the hierarchy with the CRLs that it serves.
ReferenceOutcome referenceFor(Hierarchy const& hierarchy, unsigned long crlFlags)
{
    ReferenceVerifier verifier;
    verifier.leaf = hierarchy.members.front().certificate;
    verifier.untrusted = handlesOf(hierarchy.chain);
    verifier.trusted = handlesOf(hierarchy.anchors);
    for (auto const& [path, crl] : hierarchy.served) {
        verifier.crls.push_back(crl);
    }
    verifier.flags = (verifier.flags & ~static_cast<unsigned long>(X509_V_FLAG_ALLOW_PROXY_CERTS)) | crlFlags;
    verifier.tolerances = hierarchy.tolerances;
    verifier.tolerances.revoked = false;
    return verifier.verify();
}

std::vector<Bytes> encodingsOf(std::vector<Certificate> const& chain)
{
    std::vector<Bytes> encodings;
    for (auto const& certificate : chain) {
        encodings.push_back(certificate.getAsDER());
    }
    return encodings;
}

std::vector<Bytes> encodingsOf(std::vector<X509Handle> const& chain)
{
    std::vector<Bytes> encodings;
    for (auto const& certificate : chain) {
        encodings.push_back(toDer(certificate));
    }
    return encodings;
}

/// Certificates that belong together in an unusual way.
struct OddCase
{
    std::string name;
    std::vector<CertificateAndKey> trusted;
    std::vector<CertificateAndKey> untrusted;
    CertificateAndKey leaf;
    std::vector<CrlHandle> crls = {};
};

/// Makes another issuer of the same name.
void changeKey(CertificateSpec& spec)
{
    spec.key = p256Key("other");
}

void expire(CertificateSpec& spec)
{
    spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
}

/// Removes what tells issuers of the same name apart.
void dropIdentifiers(CertificateSpec& spec)
{
    spec.removeExtension("authorityKeyIdentifier");
}

std::vector<OddCase> casesOfSameNames()
{
    auto const root = makeRoot("root");
    auto const otherKey = makeRoot("root", changeKey);
    auto const expired = makeRoot("root", expire);
    auto const damaged = makeRoot("root", [](CertificateSpec& spec) { spec.damagedSignature = true; });
    auto const ca = makeIntermediate(root, "ca");
    auto const caOfOther = makeIntermediate(otherKey, "ca");
    auto const caWithOtherKey = makeIntermediate(root, "ca", changeKey);
    auto const leaf = makeLeaf(ca, "leaf");
    auto const bare = makeLeaf(otherKey, "leaf", dropIdentifiers);
    auto const rollover = makeIntermediate(root, "root", changeKey);
    auto const selfIssued = makeLeaf(root, "root", changeKey);
    return {
        {"two roots of one name", {root, otherKey}, {ca}, leaf},
        {"two roots of one name, the other first", {otherKey, root}, {ca}, leaf},
        {"only the other root", {otherKey}, {ca}, leaf},
        {"nothing tells two roots apart", {root, otherKey}, {}, bare},
        {"nothing tells two roots apart, and the wrong one is alone", {root}, {otherKey}, bare},
        {"an expired and a valid root with one key", {expired, root}, {ca}, leaf},
        {"a valid and an expired root with one key", {root, expired}, {ca}, leaf},
        {"an expired root", {expired}, {ca}, leaf},
        {"an expired root is trusted and a valid one was sent", {expired}, {ca, root}, leaf},
        {"a damaged root before a sound one", {damaged, root}, {ca}, leaf},
        {"a damaged root", {damaged}, {ca}, leaf},
        {"two intermediates of one name", {root}, {caWithOtherKey, ca}, leaf},
        {"two intermediates of one name, the right one first", {root}, {ca, caWithOtherKey}, leaf},
        {"only the other intermediate", {root}, {caWithOtherKey}, leaf},
        {"cross-signed by both roots", {root, otherKey}, {ca, caOfOther}, leaf},
        {"cross-signed, and one root is trusted", {root}, {caOfOther, ca}, leaf},
        {"cross-signed, and the other root is trusted", {otherKey}, {ca, caOfOther}, leaf},
        {"a root that issued its successor", {root}, {rollover}, makeLeaf(rollover, "leaf")},
        {"a successor that is trusted", {otherKey}, {rollover}, makeLeaf(rollover, "leaf")},
        {"a leaf with the name of its issuer", {root}, {}, selfIssued},
        {"a leaf with the name of its issuer, which is unknown", {}, {root}, selfIssued},
        {"a sent root with the name of the trusted one", {root}, {otherKey}, makeLeaf(otherKey, "leaf")},
    };
}

std::vector<OddCase> casesOfOddSets()
{
    auto const root = makeRoot("root");
    auto const ca = makeIntermediate(root, "ca");
    auto const expiredCa = makeIntermediate(root, "ca", expire);
    auto const leaf = makeLeaf(ca, "leaf");
    auto const own = makeSelfSignedLeaf("own");
    // Each issued the other.
    auto const first = makeIntermediate(makeRoot("second"), "first");
    auto const second = makeIntermediate(first, "second");
    auto const firstVersion = makeRoot("root", [](CertificateSpec& spec) {
        spec.version = X509_VERSION_1;
        spec.extensions.clear();
    });
    auto const limited = makeRoot("root", [](CertificateSpec& spec) {
        spec.setExtension("basicConstraints", "critical,CA:TRUE,pathlen:0");
    });
    auto const named = makeRoot("root", [](CertificateSpec& spec) {
        spec.setExtension("nameConstraints", "critical,permitted;DNS:example.org");
    });
    auto const outside = makeLeaf(
        named, "leaf", [](CertificateSpec& spec) { spec.setExtension("subjectAltName", "DNS:example.com"); });
    std::vector<OddCase> cases{
        {"everything twice", {root, root}, {ca, ca, leaf, leaf, root}, leaf},
        {"an expired intermediate first", {root}, {expiredCa, ca}, leaf},
        {"an expired intermediate last", {root}, {ca, expiredCa}, leaf},
        {"a valid intermediate is trusted and an expired one was sent", {root, ca}, {expiredCa}, leaf},
        {"an expired intermediate is trusted and a valid one was sent", {root, expiredCa}, {ca}, leaf},
        {"only the intermediate is trusted", {ca}, {}, leaf},
        {"only the intermediate is trusted, and the root was sent", {ca}, {root}, leaf},
        {"only an expired intermediate is trusted", {expiredCa}, {}, leaf},
        {"only the leaf is trusted", {leaf}, {}, leaf},
        {"only the leaf is trusted, and its chain was sent", {leaf}, {ca, root}, leaf},
        {"a self-signed leaf is trusted", {own}, {}, own},
        {"a self-signed leaf is sent with itself", {root}, {own}, own},
        {"the root is the leaf", {root}, {}, root},
        {"an untrusted root is the leaf", {}, {ca}, root},
        {"a circle of issuers", {root}, {first, second}, makeLeaf(second, "leaf")},
        {"a root of version 1", {firstVersion}, {ca}, leaf},
        {"a root that allows no intermediate", {limited}, {ca}, leaf},
        {"a name that the root does not allow", {named}, {}, outside},
        {"a leaf that issued a leaf", {root}, {makeLeaf(root, "ca"), ca}, leaf},
        {"nothing at all", {}, {}, leaf},
    };
    constexpr std::size_t numIntermediates = 102; // OpenSSL builds up to 100
    OddCase deep{"a chain that is too long", {root}, {ca}, leaf};
    while (deep.untrusted.size() < numIntermediates) {
        deep.untrusted.push_back(
            makeIntermediate(deep.untrusted.back(), "ca " + std::to_string(deep.untrusted.size())));
    }
    deep.leaf = makeLeaf(deep.untrusted.back(), "leaf");
    cases.push_back(deep);
    return cases;
}

std::vector<OddCase> casesOfOddCrls()
{
    auto const root = makeRoot("root");
    auto const other = makeRoot("root", changeKey);
    auto const ca = makeIntermediate(root, "ca");
    auto const leaf = makeLeaf(ca, "leaf");
    auto const crlWith = [&](std::function<void(CrlSpec&)> const& mutate) { return makeCrl(ca, {}, mutate); };
    auto const ofRoot = makeCrl(root);
    auto const good = makeCrl(ca);
    auto const revoking = makeCrl(ca, {revoke(leaf)});
    auto const newer = makeCrl(ca, {revoke(leaf)}, [](CrlSpec& spec) {
        spec.thisUpdate = TimeSpec::fromNow(std::chrono::minutes(-1));
    });
    auto const underWrongName = crlWith([](CrlSpec& spec) { spec.issuerName = commonName("root"); });
    auto const forCAs = crlWith([](CrlSpec& spec) {
        spec.extensions.push_back({"issuingDistributionPoint", "critical,onlyCA:TRUE"});
    });
    auto const expired =
        crlWith([](CrlSpec& spec) { spec.nextUpdate = TimeSpec::fromNow(std::chrono::minutes(-1)); });
    auto const endless = crlWith([](CrlSpec& spec) { spec.nextUpdate.reset(); });
    auto const unknown = crlWith([](CrlSpec& spec) {
        spec.extensions.push_back({"1.2.3.4", {}, Bytes{5, 0}, true});
    });
    auto const remove = makeCrl(
        ca,
        {{revoke(leaf).serialNumber, TimeSpec::fromNow(std::chrono::hours(-2)), CRL_REASON_REMOVE_FROM_CRL}});
    std::vector<std::pair<std::string, std::vector<CrlHandle>>> const sets{
        {"of the issuer and the root", {good, ofRoot}},
        {"of the root alone", {ofRoot}},
        {"of a root with the same name and another key", {good, makeCrl(other)}},
        {"under the wrong name", {underWrongName, ofRoot}},
        {"revoking before good", {revoking, good, ofRoot}},
        {"good before revoking", {good, revoking, ofRoot}},
        {"good before a newer one that revokes", {good, newer, ofRoot}},
        {"a newer one that revokes before good", {newer, good, ofRoot}},
        {"for CAs alone", {forCAs, ofRoot}},
        {"for CAs before revoking", {forCAs, revoking, ofRoot}},
        {"expired before revoking", {expired, revoking, ofRoot}},
        {"expired", {expired, ofRoot}},
        {"without end", {endless, ofRoot}},
        {"with an unknown critical extension", {unknown, ofRoot}},
        {"with an unknown critical extension before revoking", {unknown, revoking, ofRoot}},
        {"that takes the leaf off the list", {remove, ofRoot}},
        {"twice", {good, good, ofRoot, ofRoot}},
        {"none", {}},
    };
    std::vector<OddCase> cases;
    for (auto const& [name, crls] : sets) {
        cases.push_back({"CRLs: " + name, {root}, {ca}, leaf, crls});
    }
    return cases;
}

/// One set of options, for PathValidator and for bare OpenSSL.
struct OddSetting
{
    PathOptions options;
    ReferenceVerifier reference;
};

std::vector<OddSetting> settingsOfOddCases()
{
    using Clock = std::chrono::system_clock;
    std::vector<OddSetting> settings;
    for (auto const& tolerances : allTolerances()) {
        OddSetting setting;
        setting.options.minimumSecurityLevel = 0;
        setting.options.allowSelfSigned = tolerances.selfSigned;
        setting.options.allowExpired = tolerances.expired;
        setting.options.allowTrustedIntermediate = tolerances.revoked; // which PathValidator does not have
        setting.reference.tolerances = tolerances;
        setting.reference.tolerances.revoked = false;
        setting.reference.flags &= ~static_cast<unsigned long>(X509_V_FLAG_ALLOW_PROXY_CERTS);
        setting.reference.flags |= tolerances.revoked ? X509_V_FLAG_PARTIAL_CHAIN : 0;
        settings.push_back(setting);
    }
    auto const plain = settings.front();
    auto const latest = Clock::to_time_t(Clock::time_point::max()) - 1;
    for (std::time_t const time : {-latest, std::time_t(-1), std::time_t(0), latest}) {
        auto setting = plain;
        setting.options.time = Clock::from_time_t(time);
        setting.reference.time = time;
        settings.push_back(setting);
    }
    return settings;
}

void expectAgreement(PathResult const& result, ReferenceOutcome const& reference)
{
    bool const isValid = reference.result == 1;
    EXPECT_EQ(result.errorCode, isValid ? X509_V_OK : reference.code);
    EXPECT_EQ(result.status, isValid ? Status::Valid : expectedStatus(reference.code));
    EXPECT_EQ(result.text, isValid ? "" : expectedText(reference.code, reference.depth, reference.subject));
    EXPECT_EQ(result.errorDepth, isValid ? 0 : reference.depth);
    if (isValid) {
        EXPECT_EQ(encodingsOf(result.chain), encodingsOf(reference.chain));
    }
}

/// Expects the verdict of bare OpenSSL under every setting, and that of validateCertificate where it applies.
void expectAgreement(OddCase const& odd, Verdicts& verdicts)
{
    auto const leaf = certificateOf(odd.leaf);
    auto const untrusted = certificatesOf(odd.untrusted);
    auto const validator = validatorOf(odd.trusted);
    for (auto& setting : settingsOfOddCases()) {
        setting.reference.leaf = odd.leaf.certificate;
        setting.reference.untrusted = handlesOf(odd.untrusted);
        setting.reference.trusted = handlesOf(odd.trusted);
        setting.reference.crls = odd.crls;
        for (auto const& crl : odd.crls) {
            setting.options.crls.push_back(toDer(crl));
        }
        auto const withoutCrls = setting.reference.flags;
        for (auto const revocation : {Revocation::NotChecked, Revocation::Leaf, Revocation::WholeChain}) {
            setting.options.revocation = revocation;
            setting.reference.flags = withoutCrls | flagsOf(revocation);
            auto const result = validator.validate(leaf, untrusted, setting.options);
            expectAgreement(result, setting.reference.verify());
            verdicts.add(result);
        }
    }
}

} // namespace

TEST(PathDifferential, AgreesWithValidateCertificate)
{
    Verdicts verdicts;
    forEachHierarchy([&](Hierarchy const& hierarchy) {
        auto const leaf = load(hierarchy.members.front());
        auto const store = storeOf(hierarchy.anchors);
        auto const expected =
            leaf.validateCertificate(chainOf(hierarchy.chain), optionsWith(hierarchy.tolerances), store);

        auto const result = PathValidator(store).validate(
            Certificate(leaf), certificatesOf(hierarchy.chain), optionsOf(hierarchy));

        EXPECT_EQ(result.status, expected.getCertificateChainStatus());
        EXPECT_EQ(result.text, expected.getValidationErrorString());
        EXPECT_EQ(result.isValid(), expected.getRootCertificate().has_value());
        if (result.isValid()) {
            EXPECT_EQ(result.chain.back().getAsDER(), expected.getRootCertificate()->getAsBytes());
        }
        verdicts.add(result);
    });
    verdicts.expectVariety();
}

TEST(PathDifferential, AgreesWithOpenSSLOnGivenCrls)
{
    Verdicts verdicts;
    forEachHierarchy([&](Hierarchy const& hierarchy) {
        auto options = optionsOf(hierarchy);
        options.revocation = static_cast<Revocation>(hierarchy.check);
        for (auto const& [path, crl] : hierarchy.served) {
            options.crls.push_back(toDer(crl));
        }
        auto const result =
            validatorOf(hierarchy.anchors)
                .validate(certificateOf(hierarchy.members.front()), certificatesOf(hierarchy.chain), options);

        expectAgreement(result, referenceFor(hierarchy, flagsOf(options.revocation)));
        verdicts.add(result);
    });
    verdicts.expectVariety();
}

TEST(PathDifferential, AgreesWithOpenSSLOnOddSets)
{
    Verdicts verdicts;
    for (auto const& cases : {casesOfSameNames(), casesOfOddSets(), casesOfOddCrls()}) {
        for (auto const& odd : cases) {
            SCOPED_TRACE(odd.name);
            expectAgreement(odd, verdicts);
        }
    }
    verdicts.expectVariety();
}

TEST(PathDifferential, AgreesWithValidateCertificateOnOddSets)
{
    for (auto const& cases : {casesOfSameNames(), casesOfOddSets()}) {
        for (auto const& odd : cases) {
            SCOPED_TRACE(odd.name);
            if (odd.trusted.empty()) {
                continue; // the system's roots would take the place of an empty store
            }
            auto const store = storeOf(odd.trusted);
            for (auto const& tolerances : allTolerances()) {
                if (tolerances.revoked) {
                    continue; // no CRL is checked
                }
                SCOPED_TRACE(tolerances);
                auto const expected = load(odd.leaf).validateCertificate(
                    chainOf(odd.untrusted), optionsWith(tolerances), store);
                auto const result = PathValidator(store).validate(
                    certificateOf(odd.leaf), certificatesOf(odd.untrusted),
                    pathOptions([&](PathOptions& options) {
                        options.allowSelfSigned = tolerances.selfSigned;
                        options.allowExpired = tolerances.expired;
                        options.minimumSecurityLevel = 0;
                    }));
                EXPECT_EQ(result.status, expected.getCertificateChainStatus());
                EXPECT_EQ(result.text, expected.getValidationErrorString());
            }
        }
    }
}
