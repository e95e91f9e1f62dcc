#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;
using RevocationStatus = CertificateRevocationResults::RevocationStatus;

constexpr CheckCRL allChecks[] = {CheckCRL::None, CheckCRL::LeafOnly, CheckCRL::WholeChain};

// 1577836800 and 1583020800 are the beginnings of January and March 2020.
TimeSpec const januaryDate = TimeSpec::at(1577836800);
TimeSpec const marchDate = TimeSpec::at(1583020800);
constexpr char const januaryText[] = "Jan  1 00:00:00 2020 GMT";
constexpr char const marchText[] = "Mar  1 00:00:00 2020 GMT";

class RevocationValidation : public testing::Test
{
protected:
    void serve(CrlHandle const& leafCrl, CrlHandle const& caCrl) { serve(filesOf(leafCrl, caCrl)); }

    void serve(std::map<std::string, Bytes> const& files)
    {
        server.reset();
        server.emplace("127.0.0.1", files);
    }

    CertificateValidationResults
    validate(CheckCRL check, DownloadCRL download, Tolerances const& tolerances = {}) const
    {
        return validate(optionsWith(tolerances, check, download));
    }

    CertificateValidationResults validate(Options const& options) const
    {
        return load(pki.leaf).validateCertificate(chainOf({pki.ca}), options, trustStore);
    }

    Revocable const pki{
        [](CertificateSpec& spec) { spec.serialNumber = "0x00FFEEDDCCBBAA99887766"; },
        [](CertificateSpec& spec) { spec.serialNumber = "4711"; }};
    static constexpr char const leafSerial[] = "1208609760576821428516710";
    TrustStore trustStore = storeOf({pki.root});
    std::optional<HttpFileServer> server;
};

void expectValid(CertificateValidationResults const& results)
{
    EXPECT_EQ(results.getCertificateChainStatus(), Status::Valid);
    EXPECT_EQ(results.getValidationErrorString(), "");
    EXPECT_TRUE(results.getRootCertificate().has_value());
    EXPECT_EQ(results.getCertificateRevocationResults().getRevocationStatus(), RevocationStatus::NotRevoked);
}

void expectRevoked(
    CertificateValidationResults const& results, std::string const& text, std::string const& date,
    std::string const& serial)
{
    EXPECT_EQ(results.getCertificateChainStatus(), Status::Revoked);
    EXPECT_EQ(results.getValidationErrorString(), text);
    EXPECT_FALSE(results.getRootCertificate().has_value());
    auto const revocation = results.getCertificateRevocationResults();
    EXPECT_EQ(revocation.getRevocationStatus(), RevocationStatus::Revoked);
    EXPECT_EQ(revocation.getRevocationDateString(), date);
    EXPECT_EQ(revocation.getRevokedSerialNumberString(), serial);
}

/// How many CRLs a validation downloads, and which revoked certificates it finds with them.
struct Reach
{
    constexpr Reach(CheckCRL theCheck, DownloadCRL theDownload) : check(theCheck), download(theDownload) {}

    constexpr Reach& downloads(std::size_t value)
    {
        numDownloads = value;
        return *this;
    }

    constexpr Reach& findsRevokedLeaf()
    {
        findsLeaf = true;
        return *this;
    }

    constexpr Reach& findsRevokedIntermediate()
    {
        findsIntermediate = true;
        return *this;
    }

    CheckCRL check;
    DownloadCRL download;
    std::size_t numDownloads = 0;
    bool findsLeaf = false;
    bool findsIntermediate = false;
};

constexpr Reach reaches[] = {
    Reach(CheckCRL::None, DownloadCRL::None).downloads(0),
    Reach(CheckCRL::None, DownloadCRL::BestEffort).downloads(2),
    Reach(CheckCRL::None, DownloadCRL::Required).downloads(2),
    Reach(CheckCRL::LeafOnly, DownloadCRL::None).downloads(0),
    Reach(CheckCRL::LeafOnly, DownloadCRL::BestEffort).downloads(1).findsRevokedLeaf(),
    Reach(CheckCRL::LeafOnly, DownloadCRL::Required).downloads(1).findsRevokedLeaf(),
    Reach(CheckCRL::WholeChain, DownloadCRL::None).downloads(0),
    Reach(CheckCRL::WholeChain, DownloadCRL::BestEffort)
        .downloads(2)
        .findsRevokedLeaf()
        .findsRevokedIntermediate(),
    Reach(CheckCRL::WholeChain, DownloadCRL::Required)
        .downloads(2)
        .findsRevokedLeaf()
        .findsRevokedIntermediate(),
};

/// The files that a server offers, and the text of the exception that follows.
struct FailedDownload
{
    FailedDownload& offered(std::map<std::string, Bytes> const& value)
    {
        files = value;
        return *this;
    }

    FailedDownload& throws(std::string const& value)
    {
        text = value;
        return *this;
    }

    std::map<std::string, Bytes> files;
    std::string text;
};

} // namespace

// Which CRLs are downloaded and applied

TEST_F(RevocationValidation, FindsRevokedLeafIfCrlsAreApplied)
{
    for (auto const& reach : reaches) {
        SCOPED_TRACE(&reach - reaches);
        serve(pki.leafCrl({revoke(pki.leaf, januaryDate)}), pki.caCrl());

        auto const results = validate(reach.check, reach.download);

        if (reach.findsLeaf) {
            expectRevoked(results, report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf"), januaryText, leafSerial);
        } else {
            expectValid(results);
        }
        EXPECT_EQ(server->numConnections(), reach.numDownloads);
    }
}

TEST_F(RevocationValidation, FindsRevokedIntermediateIfWholeChainIsChecked)
{
    for (auto const& reach : reaches) {
        SCOPED_TRACE(&reach - reaches);
        serve(
            pki.leafCrl({{"1", marchDate, {}}, {"2", marchDate, {}}}),
            pki.caCrl({revoke(pki.ca, marchDate)}));

        auto const results = validate(reach.check, reach.download);

        if (reach.findsIntermediate) {
            expectRevoked(results, report(X509_V_ERR_CERT_REVOKED, 1, "CN=ca"), marchText, "4711");
        } else {
            expectValid(results);
        }
        EXPECT_EQ(server->numConnections(), reach.numDownloads);
    }
}

TEST_F(RevocationValidation, NamesLeafIfLeafAndIssuerAreRevoked)
{
    serve(pki.leafCrl({revoke(pki.leaf, januaryDate)}), pki.caCrl({revoke(pki.ca, marchDate)}));
    expectRevoked(
        validate(CheckCRL::WholeChain, DownloadCRL::Required), report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf"),
        januaryText, leafSerial);
}

TEST_F(RevocationValidation, AcceptsChainThatNoCrlLists)
{
    serve(pki.leafCrl(), pki.caCrl());
    for (auto const check : allChecks) {
        expectValid(validate(check, DownloadCRL::Required));
    }
}

TEST_F(RevocationValidation, DownloadsCrlsForEachValidation)
{
    serve(pki.leafCrl(), pki.caCrl());
    auto const leaf = load(pki.leaf);
    auto const options = optionsWith({}, CheckCRL::WholeChain, DownloadCRL::Required);

    leaf.validateCertificate(chainOf({pki.ca}), options, trustStore);
    leaf.validateCertificate(chainOf({pki.ca}), options, trustStore);

    EXPECT_EQ(server->numConnections(), 4U);
    EXPECT_EQ(trustStore.size(), 1U);
}

TEST_F(RevocationValidation, DownloadsNothingForSingleSelfSignedCertificate)
{
    auto const lonely = makeSelfSignedLeaf(
        "lonely", [](CertificateSpec& spec) { spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"}); });
    serve(pki.leafCrl(), pki.caCrl());
    Tolerances tolerances;
    tolerances.selfSigned = true;

    auto const results = load(lonely).validateCertificate(
        X509CertificateChain(), optionsWith(tolerances, CheckCRL::WholeChain, DownloadCRL::Required),
        trustStore);

    expectValid(results);
    EXPECT_EQ(server->numConnections(), 0U);
}

TEST_F(RevocationValidation, UsesRootOfChainForHighestCrl)
{
    serve(pki.leafCrl(), pki.caCrl({revoke(pki.ca, marchDate)}));
    auto const results = load(pki.leaf).validateCertificate(
        chainOf({pki.leaf, pki.ca, pki.root}), optionsWith({}, CheckCRL::WholeChain, DownloadCRL::Required),
        trustStore);
    expectRevoked(results, report(X509_V_ERR_CERT_REVOKED, 1, "CN=ca"), marchText, "4711");
}

TEST_F(RevocationValidation, TreatsSecondLeafOfChainAsIssuer)
{
    // The list then reads leaf, ca, leaf, root; the leaf's key has not signed the CRL for the ca.
    serve(pki.leafCrl(), pki.caCrl());
    auto const options = optionsWith({}, CheckCRL::WholeChain, DownloadCRL::Required);
    auto const leaf = load(pki.leaf);

    expectValid(leaf.validateCertificate(chainOf({pki.leaf, pki.ca}), options, trustStore));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n",
        leaf.validateCertificate(chainOf({pki.ca, pki.leaf}), options, trustStore));
}

// CRLs of the trust store

TEST_F(RevocationValidation, StoredCrlRevokesWithoutDetails)
{
    serve(pki.leafCrl(), pki.caCrl());
    addCrl(trustStore, pki.leafCrl({revoke(pki.leaf, januaryDate)}, [](CrlSpec& spec) {
        spec.thisUpdate = TimeSpec::fromNow(-1min);
    }));

    auto const results = validate(CheckCRL::WholeChain, DownloadCRL::Required);

    EXPECT_EQ(results.getCertificateChainStatus(), Status::Revoked);
    EXPECT_EQ(results.getValidationErrorString(), report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf"));
    auto const revocation = results.getCertificateRevocationResults();
    EXPECT_EQ(revocation.getRevocationStatus(), RevocationStatus::NotRevoked);
    EXPECT_EQ(revocation.getRevocationDateString(), "");
    EXPECT_EQ(revocation.getRevokedSerialNumberString(), "");
}

TEST_F(RevocationValidation, StoredCrlRevokesInCopyOfStore)
{
    serve(pki.leafCrl(), pki.caCrl());
    addCrl(trustStore, pki.leafCrl({revoke(pki.leaf)}, [](CrlSpec& spec) {
        spec.thisUpdate = TimeSpec::fromNow(-1min);
    }));
    TrustStore const copy(trustStore);
    trustStore = copy;

    auto const results = validate(CheckCRL::WholeChain, DownloadCRL::Required);

    EXPECT_EQ(results.getCertificateChainStatus(), Status::Revoked);
}

TEST_F(RevocationValidation, CrlErrorHasNoDetailsOfRevokedLeaf)
{
    auto const notYetValid = [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::fromNow(1h); };
    serve(pki.leafCrl({revoke(pki.leaf, januaryDate)}, notYetValid), pki.caCrl());

    auto const results = validate(CheckCRL::LeafOnly, DownloadCRL::BestEffort);

    EXPECT_EQ(results.getCertificateChainStatus(), Status::CRLError);
    EXPECT_EQ(results.getValidationErrorString(), report(X509_V_ERR_CRL_NOT_YET_VALID, 0, "CN=leaf"));
    auto const revocation = results.getCertificateRevocationResults();
    EXPECT_EQ(revocation.getRevocationStatus(), RevocationStatus::NotRevoked);
    EXPECT_EQ(revocation.getRevocationDateString(), "");
    EXPECT_EQ(revocation.getRevokedSerialNumberString(), "");
}

TEST_F(RevocationValidation, StoredCrlIsIgnoredAfterFailedDownload)
{
    addCrl(trustStore, pki.leafCrl({revoke(pki.leaf)}));
    serve({});
    expectValid(validate(CheckCRL::WholeChain, DownloadCRL::BestEffort));
}

// Downloads that fail

TEST_F(RevocationValidation, FailedBestEffortDownloadAppliesNoCrl)
{
    serve({{"/leaf.crl", toDer(pki.leafCrl({revoke(pki.leaf)}))}});
    expectValid(validate(CheckCRL::WholeChain, DownloadCRL::BestEffort));
    EXPECT_EQ(server->numConnections(), 2U);
}

TEST_F(RevocationValidation, FailedBestEffortDownloadIsTheLast)
{
    serve({{"/ca.crl", toDer(pki.caCrl({revoke(pki.ca)}))}});
    expectValid(validate(CheckCRL::WholeChain, DownloadCRL::BestEffort));
    EXPECT_EQ(server->numConnections(), 1U);
}

TEST_F(RevocationValidation, LeafOnlyNeedsOnlyLeafCrl)
{
    serve({{"/leaf.crl", toDer(pki.leafCrl())}});
    expectValid(validate(CheckCRL::LeafOnly, DownloadCRL::Required));
}

TEST_F(RevocationValidation, RequiredCrlThrowsItsFault)
{
    auto const goodLeafCrl = toDer(pki.leafCrl());
    auto const goodCaCrl = toDer(pki.caCrl());
    auto const withLeafCrl = [&](std::function<void(CrlSpec&)> const& mutate) {
        return filesOf(pki.leafCrl({}, mutate), pki.caCrl());
    };
    std::string const noData = "CRL Download Error: Unable to get Certificate Revocation List HTTP data. CRL "
                               "Download Error: CRL HTTP data is empty\n\n";
    std::string const badSignature =
        "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n";
    std::vector<FailedDownload> const rows = {
        FailedDownload().offered({}).throws(noData),
        FailedDownload().offered({{"/leaf.crl", goodLeafCrl}}).throws(noData),
        FailedDownload()
            .offered({{"/leaf.crl", {'n', 'o'}}})
            .throws("CRL Download Error: Invalid Certificate Revocation List\n"),
        FailedDownload()
            .offered(withLeafCrl([](CrlSpec& spec) { spec.damagedSignature = true; }))
            .throws(badSignature),
        FailedDownload().offered({{"/leaf.crl", goodCaCrl}}).throws(badSignature),
        FailedDownload().offered({{"/leaf.crl", goodLeafCrl}, {"/ca.crl", goodLeafCrl}}).throws(badSignature),
        FailedDownload()
            .offered(withLeafCrl([](CrlSpec& spec) { spec.nextUpdate.reset(); }))
            .throws("CRL Verification Error: Failed to retrieve the next update date from the Certificate "
                    "Revocation List\n"),
        FailedDownload()
            .offered(withLeafCrl([](CrlSpec& spec) { spec.nextUpdate = TimeSpec::fromNow(-1s); }))
            .throws("CRL Verification Error: Certificate Revocation List has expired\n"),
    };

    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows.data());
        serve(row.files);
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, row.text, validate(CheckCRL::WholeChain, DownloadCRL::Required));
        expectValid(validate(CheckCRL::WholeChain, DownloadCRL::BestEffort));
    }
}

TEST_F(RevocationValidation, UnreadableNextUpdateThrowsInEveryMode)
{
    serve(pki.leafCrl({}, [](CrlSpec& spec) { spec.nextUpdate = TimeSpec::unreadable(); }), pki.caCrl());
    for (auto const download : {DownloadCRL::BestEffort, DownloadCRL::Required}) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, "Invalid time format used in the certificate.",
            validate(CheckCRL::LeafOnly, download));
    }
}

TEST_F(RevocationValidation, UnreadableRevocationDateThrowsInEveryMode)
{
    serve(pki.leafCrl({revoke(pki.leaf, TimeSpec::unreadable())}), pki.caCrl());
    for (auto const download : {DownloadCRL::BestEffort, DownloadCRL::Required}) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, "Error: printing the ASN1 time failed.",
            validate(CheckCRL::LeafOnly, download));
        expectValid(validate(CheckCRL::None, download));
    }
}

TEST_F(RevocationValidation, MissingTemporaryDirectoryThrowsInEveryMode)
{
    serve(pki.leafCrl(), pki.caCrl());
    ScopedVariable const nowhere(temporaryDirectoryVariable(), "/nonexistent/directory");
    for (auto const download : {DownloadCRL::BestEffort, DownloadCRL::Required}) {
        EXPECT_THROW(validate(CheckCRL::LeafOnly, download), std::filesystem::filesystem_error);
    }
}

TEST(RevocationValidationWithoutServer, ThrowsForRequiredCrlWithoutDistributionPoint)
{
    auto const root = makeRoot("root");
    auto const trustStore = storeOf({root});
    auto const leaf = load(makeLeaf(root, "leaf"));
    auto const required = optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required);
    auto const bestEffort = optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::BestEffort);

    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Certificate Revocation List Distribution Points not available\n",
        leaf.validateCertificate(X509CertificateChain(), required, trustStore));
    expectValid(leaf.validateCertificate(X509CertificateChain(), bestEffort, trustStore));
}

TEST(RevocationValidationWithoutServer, ThrowsForRequiredCrlWithoutPlainHttpUrl)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"https://127.0.0.1/leaf.crl", "ldap://127.0.0.1/leaf"});
    });

    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n",
        load(leaf).validateCertificate(
            X509CertificateChain(), optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required),
            storeOf({root})));
}

// The root that the highest CRL needs

TEST_F(RevocationValidation, RequiredCrlThrowsWithoutRoot)
{
    serve(pki.leafCrl(), pki.caCrl());
    trustStore = storeOf({makeRoot("other")});
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "CRL Download Error: Failed to retrieve Root CA certificate\n",
        validate(CheckCRL::LeafOnly, DownloadCRL::Required));
    EXPECT_EQ(server->numConnections(), 0U);
}

TEST_F(RevocationValidation, BestEffortIsUntrustedWithoutRoot)
{
    serve(pki.leafCrl(), pki.caCrl());
    trustStore = storeOf({makeRoot("other")});
    auto const results = validate(CheckCRL::WholeChain, DownloadCRL::BestEffort);
    EXPECT_EQ(results.getCertificateChainStatus(), Status::Untrusted);
    EXPECT_EQ(
        results.getValidationErrorString(), report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca"));
}

TEST(RevocationValidationWithoutServer, RequiredCrlThrowsForLeafThatIsNotYetValid)
{
    Revocable const pki([](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); });
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "CRL Download Error: Failed to retrieve Root CA certificate\n",
        load(pki.leaf).validateCertificate(
            chainOf({pki.ca}), optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required),
            storeOf({pki.root})));
}

// Tolerance of revoked certificates

TEST_F(RevocationValidation, AcceptsRevokedCertificateIfAllowed)
{
    serve(pki.leafCrl({revoke(pki.leaf)}), pki.caCrl({revoke(pki.ca)}));
    Tolerances tolerances;
    tolerances.revoked = true;

    expectValid(validate(CheckCRL::WholeChain, DownloadCRL::Required, tolerances));
    EXPECT_EQ(server->numConnections(), 2U);
}

TEST_F(RevocationValidation, RequiresDownloadEvenIfRevokedIsAllowed)
{
    serve({});
    Tolerances tolerances;
    tolerances.revoked = true;

    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Unable to get Certificate Revocation List HTTP data. CRL Download Error: CRL "
        "HTTP data is empty\n\n",
        validate(CheckCRL::LeafOnly, DownloadCRL::Required, tolerances));
}

// The second trust store

TEST_F(RevocationValidation, RevokedCertificateDoesNotUseFallback)
{
    serve(pki.leafCrl({revoke(pki.leaf, januaryDate)}), pki.caCrl());
    auto const fallback = std::make_shared<TrustStore>(storeOf({makeRoot("other")}));
    expectRevoked(
        validate(optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::BestEffort, fallback)),
        report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf"), januaryText, leafSerial);
    EXPECT_EQ(server->numConnections(), 1U);
}

TEST_F(RevocationValidation, CrlErrorDoesNotUseFallback)
{
    serve(pki.leafCrl({}, [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::fromNow(1h); }), pki.caCrl());
    auto const fallback = std::make_shared<TrustStore>(storeOf({makeRoot("other")}));
    auto const results = validate(optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::BestEffort, fallback));
    EXPECT_EQ(results.getCertificateChainStatus(), Status::CRLError);
    EXPECT_EQ(results.getValidationErrorString(), report(X509_V_ERR_CRL_NOT_YET_VALID, 0, "CN=leaf"));
    EXPECT_EQ(server->numConnections(), 1U);
}

TEST_F(RevocationValidation, FallbackDownloadsAllCrlsAgain)
{
    serve(pki.leafCrl({revoke(pki.leaf, januaryDate)}), pki.caCrl());
    auto const fallback = std::make_shared<TrustStore>(storeOf({pki.root}));
    trustStore = storeOf({makeRoot("other")});

    expectRevoked(
        validate(optionsWith({}, CheckCRL::WholeChain, DownloadCRL::BestEffort, fallback)),
        report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf"), januaryText, leafSerial);

    // Without a root the first run stops below it: one CRL there, two in the second run.
    EXPECT_EQ(server->numConnections(), 3U);
}

TEST_F(RevocationValidation, BadSignatureWithCrlsUsesFallback)
{
    Revocable const damaged([](CertificateSpec& spec) { spec.damagedSignature = true; });
    serve(damaged.leafCrl(), damaged.caCrl());
    auto const fallback = std::make_shared<TrustStore>(storeOf({damaged.root}));
    auto const options = optionsWith({}, CheckCRL::LeafOnly, DownloadCRL::Required, fallback);

    auto const results =
        load(damaged.leaf)
            .validateCertificate(chainOf({damaged.ca, damaged.root}), options, storeOf({damaged.root}));

    EXPECT_EQ(results.getCertificateChainStatus(), Status::BadSignature);
    EXPECT_EQ(results.getValidationErrorString(), report(X509_V_ERR_CERT_SIGNATURE_FAILURE, 0, "CN=leaf"));
    EXPECT_EQ(server->numConnections(), 2U);
}
