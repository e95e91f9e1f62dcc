#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/system/FixedClock.hpp"
#include "support/vectors/PathValidationSuite.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

// NIST's path validation suite names its CRLs in LDAP directories, which the library does not read. A
// validation that requires CRLs fails for that reason. A best effort validates without CRLs.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::test::pkits;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

/// The only cases that name their point relative to the issuer. The library reads that attribute like a URL.
std::map<std::string, std::string> const relativeNames = {
    {"4.14.4", "CRL1 of distributionPoint1 CA"},
    {"4.14.5", "CRL1 of distributionPoint2 CA"},
    {"4.14.6", "CRL1 of distributionPoint2 CA"},
    {"4.14.29", "indirect CRL for indirectCRL CA3"},
};

constexpr char const noPointText[] =
    "CRL Download Error: Certificate Revocation List Distribution Points not available\n";
constexpr char const noUrlText[] =
    "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n";
constexpr char const noRootText[] = "CRL Download Error: Failed to retrieve Root CA certificate\n";

struct Path
{
    explicit Path(Case const& test) : leaf(toDer(endEntityOf(test)))
    {
        for (auto const& intermediate : intermediatesOf(test)) {
            chain.addCertificate(X509Certificate(toDer(intermediate)));
        }
        store.addCertificate(X509Certificate(toDer(trustAnchor())));
    }

    CertificateValidationResults validate(CheckCRL check, DownloadCRL download) const
    {
        return leaf.validateCertificate(chain, optionsWith({}, check, download), store);
    }

    bool hasRoot() const
    {
        try {
            return !leaf.getRootCACertificate(chain, store).empty();
        } catch (X509CertificateException const&) {
            return false;
        }
    }

    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
};

class DistributionPointVectors : public testing::Test
{
protected:
    template <class Check>
    static void forEachPath(Check const& check)
    {
        for (auto const& test : casesWithoutDsaKeys()) {
            SCOPED_TRACE(test.number + " " + test.name);
            check(test, Path(test));
        }
    }

    FixedClock const clock{aMomentOfValidity};
};

} // namespace

TEST_F(DistributionPointVectors, YieldNoDirectoryNames)
{
    forEachPath([](Case const& test, Path const& path) {
        auto const relativeName = relativeNames.find(test.number);
        EXPECT_EQ(
            X509CertificateImpl().getCRLDistributionPoints(path.leaf),
            relativeName == relativeNames.end() ? std::vector<std::string>()
                                                : std::vector<std::string>{relativeName->second});
    });
}

TEST_F(DistributionPointVectors, FailValidationThatRequiresCrls)
{
    forEachPath([](Case const& test, Path const& path) {
        auto const* const text = !path.hasRoot()                        ? noRootText
                                 : relativeNames.count(test.number) > 0 ? noUrlText
                                                                        : noPointText;
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, text, path.validate(CheckCRL::WholeChain, DownloadCRL::Required));
    });
}

TEST_F(DistributionPointVectors, DoNotChangeVerdictOfBestEffort)
{
    forEachPath([](Case const& /*test*/, Path const& path) {
        auto const best = path.validate(CheckCRL::WholeChain, DownloadCRL::BestEffort);
        auto const plain = path.validate(CheckCRL::None, DownloadCRL::None);

        EXPECT_EQ(best.getCertificateChainStatus(), plain.getCertificateChainStatus());
        EXPECT_EQ(best.getValidationErrorString(), plain.getValidationErrorString());
    });
}
