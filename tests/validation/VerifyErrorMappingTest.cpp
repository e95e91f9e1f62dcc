#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/ScriptedServer.hpp"

#include "certificate/X509CertificateImpl.hpp"
#include "validation/VerifyErrors.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <memory>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

/// Returns all codes of OpenSSL, and some that do not exist.
std::vector<int> codesToWalk()
{
    std::vector<int> codes = {INT_MIN, -1, 1000, INT_MAX};
    for (int code = 0; code <= 120; ++code) {
        codes.push_back(code);
    }
    return codes;
}

struct Situation
{
    CertificateAndKey leaf;
    std::vector<CertificateAndKey> chain;
    std::vector<CertificateAndKey> anchors;
    std::vector<CrlHandle> trustedCrls = {};
    /// If there are any, they are required, and all levels are checked.
    std::map<std::string, Bytes> served = {};
};

struct Row
{
    std::string name;
    int code;
    int depth;
    std::string subject;
    std::function<Situation()> make;
};

void PrintTo(Row const& row, std::ostream* out)
{
    *out << row.name;
}

Mutation expired()
{
    return [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); };
}

Mutation notYetValid()
{
    return [](CertificateSpec& spec) { spec.notBefore = TimeSpec::fromNow(1h); };
}

Mutation damaged()
{
    return [](CertificateSpec& spec) { spec.damagedSignature = true; };
}

Mutation unreadableStart()
{
    return [](CertificateSpec& spec) { spec.notBefore = TimeSpec::unreadable(); };
}

Mutation unreadableEnd()
{
    return [](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); };
}

Mutation pathLength(int length)
{
    return [length](CertificateSpec& spec) {
        spec.setExtension("basicConstraints", "critical,CA:TRUE,pathlen:" + std::to_string(length));
    };
}

Mutation noCa()
{
    return [](CertificateSpec& spec) {
        spec.setExtension("basicConstraints", "critical,CA:FALSE");
        spec.setExtension("keyUsage", "critical,digitalSignature");
    };
}

/// root -> ca -> leaf, with one of them mutated.
std::function<Situation()> threeWith(std::string const& mutated, Mutation const& mutate)
{
    return [=] {
        Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}, mutated, mutate);
        return Situation{pki["leaf"], {pki["ca"]}, {pki["root"]}};
    };
}

std::function<Situation()> fourWith(std::string const& mutated, Mutation const& mutate)
{
    return [=] {
        Topology const pki({{"root", ""}, {"ca", "root"}, {"sub", "ca"}, {"leaf", "sub"}}, mutated, mutate);
        return Situation{pki["leaf"], {pki["sub"], pki["ca"]}, {pki["root"]}};
    };
}

Situation withoutIssuer()
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    return {pki["leaf"], {}, {pki["root"]}};
}

Situation withoutRoot()
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    return {pki["leaf"], {}, {pki["ca"]}};
}

Situation selfSignedLeaf()
{
    return {makeSelfSignedLeaf("leaf"), {}, {makeRoot("other")}};
}

Situation selfSignedInChain()
{
    Topology const pki({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    return {pki["leaf"], {pki["ca"], pki["root"]}, {makeRoot("other")}};
}

/// OpenSSL builds no more than a hundred certificates between the leaf and the root.
Situation tooLong()
{
    Situation situation;
    auto issuer = makeRoot("root");
    situation.anchors = {issuer};
    for (int number = 0; number < 103; ++number) {
        issuer = makeIntermediate(issuer, "ca" + std::to_string(number), [](CertificateSpec& spec) {
            spec.key = p256Key("one for all");
        });
        situation.chain.insert(situation.chain.begin(), issuer);
    }
    situation.leaf = makeLeaf(issuer, "leaf");
    return situation;
}

Situation serving(
    Revocable const& pki, CrlHandle const& leafCrl, CrlHandle const& caCrl,
    std::vector<CrlHandle> trusted = {})
{
    return {pki.leaf, {pki.ca}, {pki.root}, std::move(trusted), filesOf(leafCrl, caCrl)};
}

/// A CRL that the right key has signed under a wrong name: it can be downloaded, but OpenSSL does not take it
/// for one of the issuer's.
CrlHandle misnamedCrl(Revocable const& pki)
{
    return pki.leafCrl({}, [](CrlSpec& spec) { spec.issuerName = commonName("somebody else"); });
}

Situation revokedLeaf()
{
    Revocable const pki;
    return serving(pki, pki.leafCrl({revoke(pki.leaf)}), pki.caCrl());
}

Situation revokedIntermediate()
{
    Revocable const pki;
    return serving(pki, pki.leafCrl(), pki.caCrl({revoke(pki.ca)}));
}

Situation noCrl()
{
    Revocable const pki;
    return serving(pki, misnamedCrl(pki), pki.caCrl());
}

Situation futureCrl()
{
    Revocable const pki;
    auto const crl = pki.leafCrl({}, [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::fromNow(1h); });
    return serving(pki, crl, pki.caCrl());
}

Situation staleCrl()
{
    Revocable const pki;
    auto const stale = pki.leafCrl({}, [](CrlSpec& spec) { spec.nextUpdate = TimeSpec::fromNow(-1min); });
    return serving(pki, misnamedCrl(pki), pki.caCrl(), {stale});
}

Situation damagedCrl()
{
    Revocable const pki;
    auto const newerAndDamaged = pki.leafCrl({}, [](CrlSpec& spec) {
        spec.thisUpdate = TimeSpec::fromNow(-1min);
        spec.damagedSignature = true;
    });
    return serving(pki, pki.leafCrl(), pki.caCrl(), {newerAndDamaged});
}

Situation crlWithUnreadableStart()
{
    Revocable const pki;
    auto const crl = pki.leafCrl({}, [](CrlSpec& spec) { spec.thisUpdate = TimeSpec::unreadable(); });
    return serving(pki, crl, pki.caCrl());
}

Situation crlWithUnreadableEnd()
{
    Revocable const pki;
    auto const crl = pki.leafCrl({}, [](CrlSpec& spec) { spec.nextUpdate = TimeSpec::unreadable(); });
    return serving(pki, misnamedCrl(pki), pki.caCrl(), {crl});
}

std::vector<Row> rows()
{
    return {
        {"ExpiredLeaf", 10, 0, "CN=leaf", threeWith("leaf", expired())},
        {"ExpiredIntermediate", 10, 1, "CN=ca", threeWith("ca", expired())},
        {"ExpiredRoot", 10, 2, "CN=root", threeWith("root", expired())},
        {"LeafNotYetValid", 9, 0, "CN=leaf", threeWith("leaf", notYetValid())},
        {"IntermediateNotYetValid", 9, 1, "CN=ca", threeWith("ca", notYetValid())},
        {"LeafWithUnreadableStart", 13, 0, "CN=leaf", threeWith("leaf", unreadableStart())},
        {"LeafWithUnreadableEnd", 14, 0, "CN=leaf", threeWith("leaf", unreadableEnd())},
        {"BadSignatureOfLeaf", 7, 0, "CN=leaf", threeWith("leaf", damaged())},
        {"BadSignatureOfIntermediate", 7, 1, "CN=ca", threeWith("ca", damaged())},
        {"BadSignatureOfRoot", 7, 2, "CN=root", threeWith("root", damaged())},
        {"PathLengthExceeded", 25, 2, "CN=ca", fourWith("ca", pathLength(0))},
        {"IssuerThatIsNoCa", 79, 1, "CN=ca", threeWith("ca", noCa())},
        {"UnknownIssuer", 20, 0, "CN=leaf", withoutIssuer},
        {"UnknownRoot", 2, 1, "CN=ca", withoutRoot},
        {"SelfSignedLeaf", 18, 0, "CN=leaf", selfSignedLeaf},
        {"SelfSignedInChain", 19, 2, "CN=root", selfSignedInChain},
        {"ChainTooLong", 22, 101, "CN=ca2", tooLong},
        {"RevokedLeaf", 23, 0, "CN=leaf", revokedLeaf},
        {"RevokedIntermediate", 23, 1, "CN=ca", revokedIntermediate},
        {"NoCrl", 3, 0, "CN=leaf", noCrl},
        {"CrlNotYetValid", 11, 0, "CN=leaf", futureCrl},
        {"StaleCrl", 12, 0, "CN=leaf", staleCrl},
        {"BadSignatureOfCrl", 8, 0, "CN=leaf", damagedCrl},
        {"CrlWithUnreadableStart", 15, 0, "CN=leaf", crlWithUnreadableStart},
        {"CrlWithUnreadableEnd", 16, 0, "CN=leaf", crlWithUnreadableEnd},
    };
}

class VerifyErrorOf : public testing::TestWithParam<Row>
{};

/// Tolerance of revoked certificates switches all use of CRLs off.
bool isTolerated(int code, Tolerances const& tolerances)
{
    auto const isAboutCrls = expectedStatus(code) == Status::CRLError || code == 23;
    return X509CertificateImpl::isForgiven(optionsWith(tolerances), code) ||
           (isAboutCrls && tolerances.revoked);
}

} // namespace

// The mapping by itself

TEST(VerifyErrorMapping, CoversEveryCode)
{
    auto const certificate = makeRoot("subject");
    auto const context = own(X509_STORE_CTX_new());
    X509_STORE_CTX_set_current_cert(context.get(), certificate.certificate.get());
    X509_STORE_CTX_set_error_depth(context.get(), 3);

    for (auto const code : codesToWalk()) {
        X509_STORE_CTX_set_error(context.get(), code);
        auto const results = resultForFailedVerification(context.get());

        EXPECT_EQ(statusForVerifyError(code), expectedStatus(code)) << code;
        EXPECT_EQ(results.getCertificateChainStatus(), expectedStatus(code)) << code;
        EXPECT_EQ(results.getValidationErrorString(), expectedText(code, 3, "CN=subject")) << code;
        EXPECT_FALSE(results.getRootCertificate().has_value()) << code;
    }
}

TEST(VerifyErrorMapping, ReportsErrorWithoutCertificate)
{
    auto const context = own(X509_STORE_CTX_new());
    X509_STORE_CTX_set_error(context.get(), X509_V_ERR_CERT_HAS_EXPIRED);
    X509_STORE_CTX_set_error_depth(context.get(), -1);

    EXPECT_EQ(describeVerifyError(context.get()), report(10, -1, ""));
}

TEST(VerifyErrorMapping, ForgivesExactlyWhatOptionsAllow)
{
    for (auto const& tolerances : allTolerances()) {
        auto const options = optionsWith(tolerances);
        for (auto const code : codesToWalk()) {
            auto const expected = (code == 10 && tolerances.expired) ||
                                  ((code == 18 || code == 19) && tolerances.selfSigned) ||
                                  (code == 23 && tolerances.revoked);
            EXPECT_EQ(X509CertificateImpl::isForgiven(options, code), expected) << code << ", " << tolerances;
        }
    }
}

TEST(VerifyErrorMapping, ForgivesOnlyForValueOne)
{
    Options const options(
        static_cast<Options::AllowSelfSignedCertificate>(2), static_cast<Options::AllowExpiredCertificate>(2),
        static_cast<Options::AllowRevokedCertificate>(2));
    for (auto const code : codesToWalk()) {
        EXPECT_FALSE(X509CertificateImpl::isForgiven(options, code)) << code;
    }
}

// The same with certificates

TEST_P(VerifyErrorOf, RealCertificatesMatchesReferenceUnderEveryTolerance)
{
    auto const& row = GetParam();
    auto const situation = row.make();
    auto const usesCrls = !situation.served.empty();
    auto const server = usesCrls ? std::make_unique<HttpFileServer>("127.0.0.1", situation.served) : nullptr;
    TrustStore trustStore;
    for (auto const& anchor : situation.anchors) {
        addUnchecked(trustStore, anchor.certificate);
    }
    for (auto const& crl : situation.trustedCrls) {
        addCrl(trustStore, crl);
    }

    for (auto const& tolerances : allTolerances()) {
        auto const options = optionsWith(
            tolerances, usesCrls ? Options::CheckCRL::WholeChain : Options::CheckCRL::None,
            usesCrls ? Options::DownloadCRL::Required : Options::DownloadCRL::None);
        auto const results =
            load(situation.leaf).validateCertificate(chainOf(situation.chain), options, trustStore);

        auto const valid = isTolerated(row.code, tolerances);
        EXPECT_EQ(results.getCertificateChainStatus(), valid ? Status::Valid : expectedStatus(row.code))
            << tolerances;
        EXPECT_EQ(
            results.getValidationErrorString(), valid ? "" : expectedText(row.code, row.depth, row.subject))
            << tolerances;
        EXPECT_EQ(results.getRootCertificate().has_value(), valid) << tolerances;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Row, VerifyErrorOf, testing::ValuesIn(rows()),
    [](testing::TestParamInfo<Row> const& row) { return row.param.name; });
