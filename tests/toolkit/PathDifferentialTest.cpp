#include "support/Dice.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/operations/RandomHierarchies.hpp"
#include "support/toolkit/Paths.hpp"

#include <gtest/gtest.h>

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
        constexpr unsigned long flagsByRevocation[] = {
            0, X509_V_FLAG_CRL_CHECK, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL};

        auto const result =
            validatorOf(hierarchy.anchors)
                .validate(certificateOf(hierarchy.members.front()), certificatesOf(hierarchy.chain), options);

        expectAgreement(
            result, referenceFor(hierarchy, flagsByRevocation[static_cast<int>(hierarchy.check)]));
        verdicts.add(result);
    });
    verdicts.expectVariety();
}
