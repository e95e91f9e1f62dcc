#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"

#include <gtest/gtest.h>

#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

constexpr char const noRootText[] = "Error: Root CA X509Certificate has no content.";

class RootLookup : public testing::Test
{
protected:
    Topology const pki{{{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}};
};

} // namespace

TEST_F(RootLookup, ReturnsAnchorOfPath)
{
    auto const root = load(pki["leaf"]).getRootCACertificate(chainOf({pki["ca"]}), storeOf({pki["root"]}));
    EXPECT_EQ(root, load(pki["root"]));
}

TEST_F(RootLookup, ReturnsRootOfChainWithoutTrust)
{
    auto const root =
        load(pki["leaf"])
            .getRootCACertificate(chainOf({pki["ca"], pki["root"]}), storeOf({makeRoot("other")}));
    EXPECT_EQ(root, load(pki["root"]));
}

TEST_F(RootLookup, ReturnsSelfSignedCertificateItself)
{
    auto const lonely = makeSelfSignedLeaf("lonely");
    EXPECT_EQ(load(lonely).getRootCACertificate(X509CertificateChain(), TrustStore()), load(lonely));
    EXPECT_EQ(
        load(lonely).getRootCACertificate(X509CertificateChain(), storeOf({pki["root"]})), load(lonely));
}

TEST_F(RootLookup, ReturnsRootOfExpiredPath)
{
    auto const expired = [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); };
    for (auto const* const mutated : {"leaf", "ca", "root"}) {
        Topology const aged({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, mutated, expired);
        auto const root =
            load(aged["leaf"]).getRootCACertificate(chainOf({aged["ca"]}), storeOf({aged["root"]}));
        EXPECT_EQ(root, load(aged["root"])) << mutated;
    }
}

TEST_F(RootLookup, IgnoresRevocation)
{
    auto trustStore = storeOf({pki["root"]});
    addCrl(trustStore, makeCrl(pki["ca"], {revoke(pki["leaf"])}));
    EXPECT_EQ(load(pki["leaf"]).getRootCACertificate(chainOf({pki["ca"]}), trustStore), load(pki["root"]));
}

TEST_F(RootLookup, ReturnsIndependentCertificate)
{
    auto leaf = load(pki["leaf"]);
    auto const root = leaf.getRootCACertificate(chainOf({pki["ca"]}), storeOf({pki["root"]}));
    leaf = X509Certificate();
    EXPECT_EQ(root.getSubjectName(), "CN=root");
}

TEST_F(RootLookup, FailsWithoutIssuer)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noRootText,
        load(pki["leaf"]).getRootCACertificate(X509CertificateChain(), TrustStore()));
}

TEST_F(RootLookup, FailsWithoutIntermediate)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noRootText,
        load(pki["leaf"]).getRootCACertificate(X509CertificateChain(), storeOf({pki["root"]})));
}

TEST_F(RootLookup, FailsWithoutRoot)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noRootText,
        load(pki["leaf"]).getRootCACertificate(chainOf({pki["ca"]}), storeOf({makeRoot("other")})));
}

TEST_F(RootLookup, FailsForCertificateThatIsNotYetValid)
{
    auto const leaf =
        makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); });
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noRootText,
        load(leaf).getRootCACertificate(chainOf({pki["ca"]}), storeOf({pki["root"]})));
}

TEST_F(RootLookup, FailsForBadSignature)
{
    auto const leaf =
        makeLeaf(pki["ca"], "leaf", [](CertificateSpec& spec) { spec.damagedSignature = true; });
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, noRootText,
        load(leaf).getRootCACertificate(chainOf({pki["ca"]}), storeOf({pki["root"]})));
}

TEST_F(RootLookup, RefusesCertificateWithoutContent)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        X509Certificate().getRootCACertificate(X509CertificateChain(), storeOf({pki["root"]})));
}

TEST_F(RootLookup, RefusesMovedFromCertificate)
{
    auto certificate = load(pki["leaf"]);
    auto const taker = std::move(certificate);
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        certificate.getRootCACertificate(X509CertificateChain(), storeOf({pki["root"]})));
}

TEST_F(RootLookup, RefusesMovedFromChain)
{
    auto chain = chainOf({pki["ca"]});
    auto const taker = std::move(chain);
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        load(pki["leaf"]).getRootCACertificate(chain, storeOf({pki["root"]})));
}

TEST_F(RootLookup, RefusesRootWithUnsupportedKey)
{
    auto const root = makeRoot("ed448 root", [](CertificateSpec& spec) { spec.key = ed448Key(); });
    auto const leaf = makeLeaf(root, "leaf");
    TrustStore trustStore;
    addUnchecked(trustStore, root.certificate);
    EXPECT_THROWS_EXACTLY(
        UnsupportedEllipticCurve, "Key uses Ed448, which is not currently supported",
        load(leaf).getRootCACertificate(X509CertificateChain(), trustStore));
}
