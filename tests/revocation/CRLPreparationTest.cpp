#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/ScriptedServer.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <gtest/gtest.h>

#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

/// What a verification hands to the preparation of its CRLs, and what it finds there afterwards.
class CRLPreparation : public testing::Test
{
protected:
    bool prepare(DownloadCRL mode, CheckCRL check)
    {
        return X509CertificateImpl(pki.leaf.der())
            .prepareCRLs(mode, check, crls, certificates, store, chainOf({pki.ca}), trustStore);
    }

    int objectsInStore() const { return sk_X509_OBJECT_num(X509_STORE_get0_objects(store.get())); }

    Revocable const pki;
    HttpFileServer server{"127.0.0.1", filesOf(pki.leafCrl(), pki.caCrl())};
    TrustStore trustStore = storeOf({pki.root});
    X509CertificateImpl::CRLs crls;
    std::vector<X509Certificate> certificates{load(pki.leaf), load(pki.ca)};
    X509_STOREUPtr store = makeX509_STORE(X509_STORE_new());
};

} // namespace

TEST_F(CRLPreparation, DoesNothingWithoutDownload)
{
    EXPECT_FALSE(prepare(DownloadCRL::None, CheckCRL::WholeChain));

    EXPECT_EQ(certificates.size(), 2U);
    EXPECT_TRUE(crls.empty());
    EXPECT_EQ(objectsInStore(), 0);
    EXPECT_EQ(server.numConnections(), 0U);
}

TEST_F(CRLPreparation, AppendsRootAndDownloadsCrlOfEachLevel)
{
    for (auto const check : {CheckCRL::WholeChain, CheckCRL::None}) {
        certificates = {load(pki.leaf), load(pki.ca)};
        crls.clear();
        store = makeX509_STORE(X509_STORE_new());

        EXPECT_TRUE(prepare(DownloadCRL::Required, check));

        ASSERT_EQ(certificates.size(), 3U);
        EXPECT_EQ(certificates.back(), load(pki.root));
        ASSERT_EQ(crls.size(), 2U);
        EXPECT_EQ(
            X509_NAME_cmp(
                X509_CRL_get_issuer(crls[0].get()), X509_get_subject_name(pki.ca.certificate.get())),
            0);
        EXPECT_EQ(
            X509_NAME_cmp(
                X509_CRL_get_issuer(crls[1].get()), X509_get_subject_name(pki.root.certificate.get())),
            0);
        EXPECT_EQ(objectsInStore(), 2);
    }
}

TEST_F(CRLPreparation, DownloadsOneCrlForLeafOnly)
{
    EXPECT_TRUE(prepare(DownloadCRL::BestEffort, CheckCRL::LeafOnly));

    EXPECT_EQ(certificates.size(), 3U);
    EXPECT_EQ(crls.size(), 1U);
    EXPECT_EQ(objectsInStore(), 1);
    EXPECT_EQ(server.numConnections(), 1U);
}

TEST_F(CRLPreparation, UsesRootOfList)
{
    certificates = {load(pki.leaf), load(pki.ca), load(pki.root)};
    trustStore = storeOf({makeRoot("other")});

    EXPECT_TRUE(prepare(DownloadCRL::Required, CheckCRL::WholeChain));

    EXPECT_EQ(certificates.size(), 3U);
    EXPECT_EQ(crls.size(), 2U);
}

TEST_F(CRLPreparation, DoesNothingForSingleSelfSignedCertificate)
{
    certificates = {load(makeSelfSignedLeaf("lonely"))};

    EXPECT_FALSE(prepare(DownloadCRL::Required, CheckCRL::WholeChain));

    EXPECT_EQ(certificates.size(), 1U);
    EXPECT_TRUE(crls.empty());
}

TEST_F(CRLPreparation, RequiresRootForLeafOnly)
{
    trustStore = storeOf({makeRoot("other")});
    for (auto const check : {CheckCRL::None, CheckCRL::LeafOnly, CheckCRL::WholeChain}) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, "CRL Download Error: Failed to retrieve Root CA certificate\n",
            prepare(DownloadCRL::Required, check));
    }
    EXPECT_EQ(server.numConnections(), 0U);
}

TEST_F(CRLPreparation, MissingRootEndsListForBestEffort)
{
    trustStore = storeOf({makeRoot("other")});

    EXPECT_TRUE(prepare(DownloadCRL::BestEffort, CheckCRL::WholeChain));

    EXPECT_EQ(certificates.size(), 2U);
    EXPECT_EQ(crls.size(), 1U);
}

TEST_F(CRLPreparation, DoesNothingForSingleLeafWithoutRoot)
{
    certificates = {load(pki.leaf)};
    trustStore = storeOf({makeRoot("other")});

    EXPECT_FALSE(prepare(DownloadCRL::BestEffort, CheckCRL::LeafOnly));

    EXPECT_EQ(server.numConnections(), 0U);
}

TEST_F(CRLPreparation, StopsAtFirstLevelThatFails)
{
    // The ca in the middle of the list has signed nothing for the root above it: level 0 succeeds, level 1
    // fails.
    auto const unrelated = makeRoot("unrelated");
    certificates = {load(pki.leaf), load(pki.ca), load(unrelated), load(pki.root)};

    EXPECT_FALSE(prepare(DownloadCRL::BestEffort, CheckCRL::WholeChain));

    EXPECT_EQ(crls.size(), 1U);
    EXPECT_EQ(objectsInStore(), 1);
    EXPECT_EQ(server.numConnections(), 2U);
}

TEST_F(CRLPreparation, NamesLevelOfCrlThatStoreRefuses)
{
    store = makeX509_STORE(nullptr);

    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Certificate Revocation List (CRL) download failed at level: 0\n",
        prepare(DownloadCRL::Required, CheckCRL::WholeChain));
    EXPECT_EQ(crls.size(), 1U);
}

TEST_F(CRLPreparation, DropsRefusalOfStoreForBestEffort)
{
    store = makeX509_STORE(nullptr);
    EXPECT_FALSE(prepare(DownloadCRL::BestEffort, CheckCRL::WholeChain));
}

TEST_F(CRLPreparation, RefusesIssuerWithoutContentInEveryMode)
{
    for (auto const mode : {DownloadCRL::BestEffort, DownloadCRL::Required}) {
        certificates = {load(pki.leaf), X509Certificate(), load(pki.root)};
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, "Error: X509Certificate has no content.",
            prepare(mode, CheckCRL::LeafOnly));
    }
}
