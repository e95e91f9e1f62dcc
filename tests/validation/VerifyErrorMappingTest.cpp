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
    constexpr int aboveAllCodes = 120;
    std::vector<int> codes = {INT_MIN, -1, 1000, INT_MAX};
    for (int code = 0; code <= aboveAllCodes; ++code) {
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

/// Certificates whose validation fails, and how it fails.
struct Row
{
    Row(std::string theName, std::function<Situation()> theMake)
        : name(std::move(theName)),
          make(std::move(theMake))
    {}

    Row& failsWith(int value)
    {
        code = value;
        return *this;
    }

    Row& atDepth(int value)
    {
        depth = value;
        return *this;
    }

    Row& of(std::string value)
    {
        subject = std::move(value);
        return *this;
    }

    std::string name;
    std::function<Situation()> make;
    int code = X509_V_OK;
    int depth = 0;
    std::string subject;
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
    Situation situation{pki.leaf, {pki.ca}, {pki.root}};
    situation.trustedCrls = std::move(trusted);
    situation.served = filesOf(leafCrl, caCrl);
    return situation;
}

/// Returns a CRL that the right key signed under a wrong name. It can be downloaded, but OpenSSL does not use
/// it for the issuer.
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
        Row("ExpiredLeaf", threeWith("leaf", expired()))
            .failsWith(X509_V_ERR_CERT_HAS_EXPIRED)
            .atDepth(0)
            .of("CN=leaf"),
        Row("ExpiredIntermediate", threeWith("ca", expired()))
            .failsWith(X509_V_ERR_CERT_HAS_EXPIRED)
            .atDepth(1)
            .of("CN=ca"),
        Row("ExpiredRoot", threeWith("root", expired()))
            .failsWith(X509_V_ERR_CERT_HAS_EXPIRED)
            .atDepth(2)
            .of("CN=root"),
        Row("LeafNotYetValid", threeWith("leaf", notYetValid()))
            .failsWith(X509_V_ERR_CERT_NOT_YET_VALID)
            .atDepth(0)
            .of("CN=leaf"),
        Row("IntermediateNotYetValid", threeWith("ca", notYetValid()))
            .failsWith(X509_V_ERR_CERT_NOT_YET_VALID)
            .atDepth(1)
            .of("CN=ca"),
        Row("LeafWithUnreadableStart", threeWith("leaf", unreadableStart()))
            .failsWith(X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD)
            .atDepth(0)
            .of("CN=leaf"),
        Row("LeafWithUnreadableEnd", threeWith("leaf", unreadableEnd()))
            .failsWith(X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD)
            .atDepth(0)
            .of("CN=leaf"),
        Row("BadSignatureOfLeaf", threeWith("leaf", damaged()))
            .failsWith(X509_V_ERR_CERT_SIGNATURE_FAILURE)
            .atDepth(0)
            .of("CN=leaf"),
        Row("BadSignatureOfIntermediate", threeWith("ca", damaged()))
            .failsWith(X509_V_ERR_CERT_SIGNATURE_FAILURE)
            .atDepth(1)
            .of("CN=ca"),
        Row("BadSignatureOfRoot", threeWith("root", damaged()))
            .failsWith(X509_V_ERR_CERT_SIGNATURE_FAILURE)
            .atDepth(2)
            .of("CN=root"),
        Row("PathLengthExceeded", fourWith("ca", pathLength(0)))
            .failsWith(X509_V_ERR_PATH_LENGTH_EXCEEDED)
            .atDepth(2)
            .of("CN=ca"),
        Row("IssuerThatIsNoCa", threeWith("ca", noCa()))
            .failsWith(X509_V_ERR_INVALID_CA)
            .atDepth(1)
            .of("CN=ca"),
        Row("UnknownIssuer", withoutIssuer)
            .failsWith(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY)
            .atDepth(0)
            .of("CN=leaf"),
        Row("UnknownRoot", withoutRoot)
            .failsWith(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT)
            .atDepth(1)
            .of("CN=ca"),
        Row("SelfSignedLeaf", selfSignedLeaf)
            .failsWith(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT)
            .atDepth(0)
            .of("CN=leaf"),
        Row("SelfSignedInChain", selfSignedInChain)
            .failsWith(X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN)
            .atDepth(2)
            .of("CN=root"),
        Row("ChainTooLong", tooLong).failsWith(X509_V_ERR_CERT_CHAIN_TOO_LONG).atDepth(101).of("CN=ca2"),
        Row("RevokedLeaf", revokedLeaf).failsWith(X509_V_ERR_CERT_REVOKED).atDepth(0).of("CN=leaf"),
        Row("RevokedIntermediate", revokedIntermediate)
            .failsWith(X509_V_ERR_CERT_REVOKED)
            .atDepth(1)
            .of("CN=ca"),
        Row("NoCrl", noCrl).failsWith(X509_V_ERR_UNABLE_TO_GET_CRL).atDepth(0).of("CN=leaf"),
        Row("CrlNotYetValid", futureCrl).failsWith(X509_V_ERR_CRL_NOT_YET_VALID).atDepth(0).of("CN=leaf"),
        Row("StaleCrl", staleCrl).failsWith(X509_V_ERR_CRL_HAS_EXPIRED).atDepth(0).of("CN=leaf"),
        Row("BadSignatureOfCrl", damagedCrl)
            .failsWith(X509_V_ERR_CRL_SIGNATURE_FAILURE)
            .atDepth(0)
            .of("CN=leaf"),
        Row("CrlWithUnreadableStart", crlWithUnreadableStart)
            .failsWith(X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD)
            .atDepth(0)
            .of("CN=leaf"),
        Row("CrlWithUnreadableEnd", crlWithUnreadableEnd)
            .failsWith(X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD)
            .atDepth(0)
            .of("CN=leaf"),
    };
}

class ErrorOfRealCertificates : public testing::TestWithParam<Row>
{};

/// Tolerance of revoked certificates switches all use of CRLs off.
bool isTolerated(int code, Tolerances const& tolerances)
{
    auto const isAboutCrls = expectedStatus(code) == Status::CRLError || code == X509_V_ERR_CERT_REVOKED;
    return X509CertificateImpl::isForgiven(optionsWith(tolerances), code) ||
           (isAboutCrls && tolerances.revoked);
}

} // namespace

// The mapping without certificates

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

    EXPECT_EQ(describeVerifyError(context.get()), report(X509_V_ERR_CERT_HAS_EXPIRED, -1, ""));
}

TEST(VerifyErrorMapping, ForgivesExactlyWhatOptionsAllow)
{
    for (auto const& tolerances : allTolerances()) {
        auto const options = optionsWith(tolerances);
        for (auto const code : codesToWalk()) {
            auto const expected = (code == X509_V_ERR_CERT_HAS_EXPIRED && tolerances.expired) ||
                                  ((code == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT ||
                                    code == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN) &&
                                   tolerances.selfSigned) ||
                                  (code == X509_V_ERR_CERT_REVOKED && tolerances.revoked);
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

TEST_P(ErrorOfRealCertificates, IsAsExpectedUnderEveryTolerance)
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
    Row, ErrorOfRealCertificates, testing::ValuesIn(rows()),
    [](testing::TestParamInfo<Row> const& row) { return row.param.name; });
