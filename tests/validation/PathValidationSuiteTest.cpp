#include "support/vectors/PathValidationSuite.hpp"
#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/system/FixedClock.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <gtest/gtest.h>

#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

// NIST's path validation suite. The library and bare OpenSSL validate each path, without revocation and with
// the suite's CRLs, and must agree in verdict and text. A table gives the reason where both differ from NIST.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::test::pkits;

namespace {

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

/// CRLs in DER form, by the fingerprint of the certificate whose distribution point offers them.
using Published = std::map<std::string, Bytes>;

/// The CRLs that a download finds now.
Published const*& published()
{
    static Published const* current = nullptr;
    return current;
}

// Paths

bool isSignedBy(CrlHandle const& crl, X509Handle const& issuer)
{
    ErrorQueueMark const mark;
    return X509_CRL_verify(crl.get(), X509_get0_pubkey(issuer.get())) == 1;
}

bool hasIssuerOf(CrlHandle const& crl, X509Handle const& certificate)
{
    return X509_NAME_cmp(X509_CRL_get_issuer(crl.get()), X509_get_issuer_name(certificate.get())) == 0;
}

/// Returns the first CRL that the issuer signed and that has its name. Without one, a CRL that the issuer
/// signed; then a CRL that has its name; then none.
CrlHandle
bestCrlFor(X509Handle const& certificate, X509Handle const& issuer, std::vector<CrlHandle> const& crls)
{
    int best = 0;
    CrlHandle found;
    for (auto const& crl : crls) {
        int const fitness = (isSignedBy(crl, issuer) ? 2 : 0) + (hasIssuerOf(crl, certificate) ? 1 : 0);
        if (fitness > best) {
            best = fitness;
            found = crl;
        }
    }
    return found;
}

/// Returns the CRLs without delta CRLs, which only list changes since another CRL. They have URLs of their
/// own, which the library does not read.
std::vector<CrlHandle> completeCrlsOf(Case const& test)
{
    auto crls = crlsOf(test);
    auto const isDelta = [](CrlHandle const& crl) {
        return X509_CRL_get_ext_by_NID(crl.get(), NID_delta_crl, -1) >= 0;
    };
    crls.erase(std::remove_if(crls.begin(), crls.end(), isDelta), crls.end());
    return crls;
}

/// A test's path, once for bare OpenSSL and once for the library.
struct Path
{
    Path(Case const& test, std::vector<CrlHandle> const& crls)
    {
        verifier.leaf = endEntityOf(test);
        verifier.untrusted = intermediatesOf(test);
        verifier.trusted = {trustAnchor()};
        verifier.crls = crls;

        leaf = X509Certificate(toDer(verifier.leaf));
        for (auto const& intermediate : verifier.untrusted) {
            chain.addCertificate(X509Certificate(toDer(intermediate)));
        }
        store.addCertificate(X509Certificate(toDer(verifier.trusted.front())));
        for (auto const& crl : crls) {
            addCrl(store, crl);
        }
        verifier.untrusted.insert(verifier.untrusted.begin(), verifier.leaf);
        publishCrls();
    }

    /// From the leaf up to the trust anchor.
    std::vector<X509Handle> upToTheRoot() const
    {
        auto all = verifier.untrusted;
        all.push_back(verifier.trusted.front());
        return all;
    }

    ReferenceVerifier verifier;
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    /// The CRL for each certificate, leaf first; null for a certificate without one.
    std::vector<CrlHandle> offers;
    Published published;

private:
    void publishCrls()
    {
        auto const all = upToTheRoot();
        for (std::size_t level = 0; level + 1 < all.size(); ++level) {
            auto const crl = bestCrlFor(all[level], all[level + 1], verifier.crls);
            auto const fingerprint = X509Certificate(toDer(all[level])).getSHA256Fingerprint();
            offers.push_back(crl);
            published[fingerprint] = crl == nullptr ? Bytes() : toDer(crl);
        }
    }
};

// The reference: the expected result, by bare OpenSSL and by the rules for the download of CRLs

struct Request
{
    Request& checking(CheckCRL value)
    {
        check = value;
        return *this;
    }

    Request& downloading(DownloadCRL value)
    {
        download = value;
        return *this;
    }

    Request& tolerating(Tolerances const& value)
    {
        tolerances = value;
        return *this;
    }

    Tolerances tolerances;
    CheckCRL check = CheckCRL::None;
    DownloadCRL download = DownloadCRL::None;
};

std::string printed(ASN1_TIME const* time)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(ASN1_TIME_print(bio.get(), time));
    return asText(contentOf(bio));
}

std::string decimal(ASN1_INTEGER const* number)
{
    auto const value = own(ASN1_INTEGER_to_BN(number, nullptr));
    std::shared_ptr<char> const digits(BN_bn2dec(value.get()), [](char* text) { OPENSSL_free(text); });
    return digits.get();
}

X509_REVOKED const* entryFor(ASN1_INTEGER const* serial, CrlHandle const& crl)
{
    auto* const entries = X509_CRL_get_REVOKED(crl.get());
    for (int index = 0; index < sk_X509_REVOKED_num(entries); ++index) {
        auto const* const entry = sk_X509_REVOKED_value(entries, index);
        if (ASN1_INTEGER_cmp(X509_REVOKED_get0_serialNumber(entry), serial) == 0) {
            return entry;
        }
    }
    return nullptr;
}

class Reference
{
public:
    Reference(Path const& path_, Request const& request_)
        : path(path_),
          request(request_),
          verifier(path_.verifier)
    {
        verifier.tolerances = request.tolerances;
    }

    /// Returns the text that the library throws for a missing CRL; none if there is an outcome.
    std::optional<std::string> answer()
    {
        if (request.download != DownloadCRL::None) {
            auto const fault = fetch();
            if (fault && request.download == DownloadCRL::Required) {
                return fault;
            }
            if (!fault) {
                verifier.flags |= crlFlags();
            }
        }
        outcome = verifier.verify();
        return std::nullopt;
    }

    /// Returns the revocation that the caller sees: the entry of the lowest certificate that its own CRL
    /// lists.
    CertificateRevocationResults revocation() const
    {
        for (std::size_t level = 0; level < fetched.size(); ++level) {
            auto const* const serial = X509_get0_serialNumber(list[level].get());
            if (auto const* const entry = entryFor(serial, fetched[level])) {
                return {
                    CertificateRevocationResults::RevocationStatus::Revoked,
                    printed(X509_REVOKED_get0_revocationDate(entry)), decimal(serial)};
            }
        }
        return {};
    }

    ReferenceOutcome outcome;

private:
    unsigned long crlFlags() const
    {
        return request.tolerances.revoked            ? 0
               : request.check == CheckCRL::LeafOnly ? X509_V_FLAG_CRL_CHECK
                                                     : X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    }

    /// Why not all CRLs can be downloaded; empty if they can.
    std::optional<std::string> fetch()
    {
        list = verifier.untrusted;
        auto lookup = verifier;
        lookup.tolerances = everyTolerance();
        auto const found = lookup.verify();
        if (found.result == 1) {
            list.push_back(found.chain.back());
        } else if (request.download == DownloadCRL::Required || list.size() == 1) {
            return "CRL Download Error: Failed to retrieve Root CA certificate\n";
        }
        for (std::size_t level = 0; level + 1 < list.size(); ++level) {
            if (auto const fault = faultOf(path.offers[level], list[level + 1])) {
                return fault;
            }
            fetched.push_back(path.offers[level]);
            if (request.check == CheckCRL::LeafOnly) {
                break;
            }
        }
        return std::nullopt;
    }

    static std::optional<std::string> faultOf(CrlHandle const& crl, X509Handle const& issuer)
    {
        if (crl == nullptr) {
            return "CRL Download Error: Unable to get Certificate Revocation List HTTP data. CRL Download "
                   "Error: CRL HTTP data is empty\n\n";
        }
        if (!isSignedBy(crl, issuer)) {
            return "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n";
        }
        if (X509_cmp_current_time(X509_CRL_get0_nextUpdate(crl.get())) <= 0) {
            return "CRL Verification Error: Certificate Revocation List has expired\n";
        }
        return std::nullopt;
    }

    Path const& path;
    Request const request;
    ReferenceVerifier verifier;
    /// The certificates whose CRLs are required, leaf first, and the root.
    std::vector<X509Handle> list;
    std::vector<CrlHandle> fetched;
};

void expectSameRevocation(
    CertificateRevocationResults const& results, CertificateRevocationResults const& expected)
{
    EXPECT_EQ(results.getRevocationStatus(), expected.getRevocationStatus());
    EXPECT_EQ(results.getRevocationDateString(), expected.getRevocationDateString());
    EXPECT_EQ(results.getRevokedSerialNumberString(), expected.getRevokedSerialNumberString());
}

/// The library's verdict, after a comparison with the reference.
Verdict judge(Path const& path, Request const& request)
{
    published() = &path.published;
    auto const options = optionsWith(request.tolerances, request.check, request.download);
    Reference reference(path, request);
    if (auto const thrown = reference.answer()) {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, *thrown,
            path.leaf.validateCertificate(path.chain, options, path.store));
        return Verdict::Invalid;
    }
    auto const results = path.leaf.validateCertificate(path.chain, options, path.store);
    expectSame(results, reference.outcome);
    if (results.getCertificateChainStatus() == Status::Revoked) {
        expectSameRevocation(results.getCertificateRevocationResults(), reference.revocation());
    }
    return results.getCertificateChainStatus() == Status::Valid ? Verdict::Valid : Verdict::Invalid;
}

// Differences from NIST's verdict

using Names = std::set<std::string>;

/// The library requires no policy, and ignores those that a certificate requires.
Names const policies = {
    "DifferentPoliciesTest4",
    "DifferentPoliciesTest5",
    "DifferentPoliciesTest7",
    "DifferentPoliciesTest8",
    "DifferentPoliciesTest9",
    "DifferentPoliciesTest12",
    "InvalidRequireExplicitPolicyTest3",
    "InvalidRequireExplicitPolicyTest5",
    "InvalidPolicyMappingTest2",
    "InvalidPolicyMappingTest4",
    "InvalidMappingFromanyPolicyTest7",
    "InvalidMappingToanyPolicyTest8",
    "InvalidPolicyMappingTest10",
    "InvalidinhibitPolicyMappingTest1",
    "InvalidinhibitPolicyMappingTest3",
    "InvalidinhibitPolicyMappingTest5",
    "InvalidinhibitPolicyMappingTest6",
    "InvalidinhibitAnyPolicyTest1",
    "InvalidinhibitAnyPolicyTest4",
    "InvalidinhibitAnyPolicyTest5",
    "InvalidinhibitAnyPolicyTest6"};

/// The same on paths that the check of CRLs stops, since `anotherKeySignedTheCrl`.
Names const policiesBesideCrls = {
    "InvalidSelfIssuedrequireExplicitPolicyTest7", "InvalidSelfIssuedrequireExplicitPolicyTest8",
    "InvalidSelfIssuedinhibitPolicyMappingTest8",  "InvalidSelfIssuedinhibitPolicyMappingTest9",
    "InvalidSelfIssuedinhibitPolicyMappingTest10", "InvalidSelfIssuedinhibitPolicyMappingTest11",
    "InvalidSelfIssuedinhibitAnyPolicyTest8",      "InvalidSelfIssuedinhibitAnyPolicyTest10"};

/// Only a CRL shows the fault, and no CRL is applied.
Names const revocation = {
    "MissingCRLTest1",
    "InvalidRevokedCATest2",
    "InvalidRevokedEETest3",
    "InvalidBadCRLSignatureTest4",
    "InvalidBadCRLIssuerNameTest5",
    "InvalidWrongCRLTest6",
    "InvalidUnknownCRLEntryExtensionTest8",
    "InvalidUnknownCRLExtensionTest9",
    "InvalidUnknownCRLExtensionTest10",
    "InvalidOldCRLnextUpdateTest11",
    "Invalidpre2000CRLnextUpdateTest12",
    "InvalidNegativeSerialNumberTest15",
    "InvalidLongSerialNumberTest18",
    "InvalidSeparateCertificateandCRLKeysTest20",
    "InvalidSeparateCertificateandCRLKeysTest21",
    "InvalidBasicSelfIssuedOldWithNewTest2",
    "InvalidBasicSelfIssuedNewWithOldTest5",
    "InvalidBasicSelfIssuedCRLSigningKeyTest7",
    "InvalidkeyUsageCriticalcRLSignFalseTest4",
    "InvalidkeyUsageNotCriticalcRLSignFalseTest5",
    "InvaliddistributionPointTest2",
    "InvaliddistributionPointTest3",
    "InvaliddistributionPointTest6",
    "InvaliddistributionPointTest8",
    "InvaliddistributionPointTest9",
    "InvalidonlyContainsUserCertsCRLTest11",
    "InvalidonlyContainsCACertsCRLTest12",
    "InvalidonlyContainsAttributeCertsTest14",
    "InvalidonlySomeReasonsTest15",
    "InvalidonlySomeReasonsTest16",
    "InvalidonlySomeReasonsTest17",
    "InvalidonlySomeReasonsTest20",
    "InvalidonlySomeReasonsTest21",
    "InvalidIDPwithindirectCRLTest23",
    "InvalidIDPwithindirectCRLTest26",
    "InvalidcRLIssuerTest27",
    "InvalidcRLIssuerTest31",
    "InvalidcRLIssuerTest32",
    "InvalidcRLIssuerTest34",
    "InvalidcRLIssuerTest35",
    "InvaliddeltaCRLIndicatorNoBaseTest1",
    "InvaliddeltaCRLTest3",
    "InvaliddeltaCRLTest4",
    "InvaliddeltaCRLTest6",
    "InvaliddeltaCRLTest9",
    "InvaliddeltaCRLTest10"};

/// The key of the next certificate of the path must sign the CRL. Some CAs have a separate key for CRLs, or a
/// new key and a self-issued certificate. The path does not have the key that signs.
Names const anotherKeySignedTheCrl = {
    "ValidSeparateCertificateandCRLKeysTest19",  "ValidBasicSelfIssuedOldWithNewTest1",
    "ValidBasicSelfIssuedNewWithOldTest4",       "ValidBasicSelfIssuedCRLSigningKeyTest6",
    "ValidSelfIssuedpathLenConstraintTest15",    "ValidSelfIssuedpathLenConstraintTest17",
    "ValidSelfIssuedrequireExplicitPolicyTest6", "ValidSelfIssuedinhibitPolicyMappingTest7",
    "ValidSelfIssuedinhibitAnyPolicyTest7",      "ValidSelfIssuedinhibitAnyPolicyTest9",
    "ValidSelfIssuedDNnameConstraintsTest19"};

/// CRLs for some reasons only, and CRLs of another issuer, need OpenSSL's extended CRL support, which the
/// library does not enable.
Names const partialOrIndirectCrl = {
    "ValidonlySomeReasonsTest18",    "ValidonlySomeReasonsTest19",    "ValidIDPwithindirectCRLTest22",
    "ValidIDPwithindirectCRLTest24", "ValidIDPwithindirectCRLTest25", "ValidcRLIssuerTest28",
    "ValidcRLIssuerTest29",          "ValidcRLIssuerTest30",          "ValidcRLIssuerTest33"};

/// A delta CRL revokes the first and withdraws the revocation of the second.
Names const deltaCrl = {"InvaliddeltaCRLTest4", "ValiddeltaCRLTest5"};

Names unite(std::vector<Names> const& some)
{
    Names all;
    for (auto const& names : some) {
        all.insert(names.begin(), names.end());
    }
    return all;
}

Names without(Names all, Names const& some)
{
    for (auto const& name : some) {
        all.erase(name);
    }
    return all;
}

/// A difference without a reason fails, and so does a reason without a difference.
void expectDifferences(Names const& differences, std::vector<Names> const& reasons)
{
    EXPECT_EQ(without(differences, unite(reasons)), Names()) << "no reason is known for these";
    EXPECT_EQ(without(unite(reasons), differences), Names()) << "the verdict on these is NIST's";
}

constexpr std::time_t in2009 = 1245240000; // before most certificates are valid
constexpr std::time_t in2031 = 1939550400; // when most certificates and CRLs have expired

class PathValidationSuite : public testing::Test
{
protected:
    /// All paths that the library can load. Made once, since the tests differ only in time and options.
    static std::map<std::string, Path> const& paths()
    {
        static auto const made = [] {
            std::map<std::string, Path> all;
            for (auto const& test : casesWithoutDsaKeys()) {
                all.emplace(test.number, Path(test, completeCrlsOf(test)));
            }
            return all;
        }();
        return made;
    }

    /// Validates all paths, and returns the names of those with another verdict of NIST.
    static Names differencesFromNist(Request const& request)
    {
        Names differences;
        for (auto const& test : casesWithoutDsaKeys()) {
            SCOPED_TRACE(test.number + " " + test.name);
            if (judge(paths().at(test.number), request) != test.verdict) {
                differences.insert(test.name);
            }
        }
        return differences;
    }

    /// The strict check of OpenSSL 3 requires critical basic constraints of a CA, as RFC 5280 does. OpenSSL 4
    /// agrees with NIST.
    static Names basicConstraintsNotCritical()
    {
        auto const code = paths().at("4.6.4").verifier.verify().code;
        return code == X509_V_ERR_CA_BCONS_NOT_CRITICAL ? Names{"ValidbasicConstraintsNotCriticalTest4"}
                                                        : Names{};
    }

    CleanErrorQueue const queue;
    FixedClock const clock{aMomentOfValidity};
};

std::set<Bytes> certificatesOf(Message const& message)
{
    std::set<Bytes> encodings;
    auto const* const certificates = message.signedData->d.sign->cert;
    for (int index = 0; index < sk_X509_num(certificates); ++index) {
        encodings.insert(toDer(share(sk_X509_value(certificates, index))));
    }
    return encodings;
}

std::set<Bytes> crlsOf(Message const& message)
{
    std::set<Bytes> encodings;
    auto const* const crls = message.signedData->d.sign->crl;
    for (int index = 0; index < sk_X509_CRL_num(crls); ++index) {
        auto* const crl = sk_X509_CRL_value(crls, index);
        require(X509_CRL_up_ref(crl));
        encodings.insert(toDer(own(crl)));
    }
    return encodings;
}

} // namespace

// The suite publishes its CRLs in directories, which the library does not read. So these functions replace
// the library's download. Every certificate has a URL of its own, and the test decides which CRL is there.
namespace foundation::certificates {

std::vector<std::string>
X509CertificateImpl::getCRLDistributionPoints(X509Certificate const& certificate) const
{
    return {"http://crls/" + certificate.getSHA256Fingerprint()};
}

std::string X509CertificateImpl::fetchHttpResponse(
    std::string const& /*host*/, std::string const& path, DownloadCRL /*mode*/) const
{
    return asText(published()->at(path.substr(1)));
}

void X509CertificateImpl::throwIfRequired(DownloadCRL mode, std::string message) const
{
    if (mode == DownloadCRL::Required) {
        throw X509CertificateException(message);
    }
}

} // namespace foundation::certificates

TEST_F(PathValidationSuite, TableHasAllCases)
{
    std::map<std::string, int> sections;
    std::set<std::string> numbers;
    Names names;
    for (auto const& test : cases()) {
        ++sections[test.number.substr(0, test.number.rfind('.'))];
        numbers.insert(test.number);
        names.insert(test.name);
        if (beginsWith(test.name, "Valid") || beginsWith(test.name, "Invalid")) {
            EXPECT_EQ(test.verdict == Verdict::Valid, beginsWith(test.name, "Valid")) << test.name;
        }
        EXPECT_TRUE(endsWith(test.name, "Test" + test.number.substr(test.number.rfind('.') + 1)));
    }

    EXPECT_EQ(numbers.size(), 224U);
    EXPECT_EQ(names.size(), 224U);
    EXPECT_EQ(
        sections, (std::map<std::string, int>{
                      {"4.1", 6},   // signature verification
                      {"4.2", 8},   // validity periods
                      {"4.3", 11},  // name chaining
                      {"4.4", 21},  // basic certificate revocation
                      {"4.5", 8},   // self-issued certificates
                      {"4.6", 17},  // basic constraints
                      {"4.7", 5},   // key usage
                      {"4.8", 20},  // certificate policies
                      {"4.9", 8},   // require explicit policy
                      {"4.10", 14}, // policy mappings
                      {"4.11", 11}, // inhibit policy mapping
                      {"4.12", 10}, // inhibit any policy
                      {"4.13", 38}, // name constraints
                      {"4.14", 35}, // distribution points
                      {"4.15", 10}, // delta CRLs
                      {"4.16", 2},  // private extensions
                  }));
}

TEST_F(PathValidationSuite, MessagesCarryTheirPaths)
{
    for (auto const& test : cases()) {
        SCOPED_TRACE(test.number + " " + test.name);
        if (test.number == "4.14.18") {
            continue; // by mistake, its message is that of 4.14.19
        }
        std::set<Bytes> expected;
        for (auto const& name : test.path) {
            expected.insert(toDer(certificate(name)));
        }
        if (!test.crlIssuer.empty()) {
            expected.insert(toDer(certificate(test.crlIssuer)));
        }
        std::set<Bytes> expectedCrls;
        for (auto const& crl : pkits::crlsOf(test)) {
            expectedCrls.insert(toDer(crl));
        }
        auto const message = messageOf(test);

        EXPECT_EQ(certificatesOf(message), expected);
        EXPECT_EQ(crlsOf(message), expectedCrls);
    }
}

TEST_F(PathValidationSuite, RunsAtFixedTime)
{
    timeval day{};
    gettimeofday(&day, nullptr);
    auto const now = own(ASN1_TIME_set(nullptr, aMomentOfValidity));
    auto const aSecondLater = own(ASN1_TIME_set(nullptr, aMomentOfValidity + 1));

    EXPECT_EQ(std::time(nullptr), aMomentOfValidity);
    EXPECT_EQ(day.tv_sec, aMomentOfValidity);
    EXPECT_EQ(std::chrono::system_clock::now(), std::chrono::system_clock::from_time_t(aMomentOfValidity));
    EXPECT_LT(X509_cmp_current_time(now.get()), 0);
    EXPECT_GT(X509_cmp_current_time(aSecondLater.get()), 0);

    auto const started = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() == started) {
    }
}

TEST_F(PathValidationSuite, AgreesWithOpenSslWithoutRevocation)
{
    expectDifferences(
        differencesFromNist(Request()),
        {policies, policiesBesideCrls, basicConstraintsNotCritical(), revocation});
}

TEST_F(PathValidationSuite, AgreesWithOpenSslWithCrls)
{
    expectDifferences(
        differencesFromNist(Request().checking(CheckCRL::WholeChain).downloading(DownloadCRL::Required)),
        {policies, basicConstraintsNotCritical(), anotherKeySignedTheCrl, partialOrIndirectCrl, deltaCrl});
}

TEST_F(PathValidationSuite, AgreesWithOpenSslWithAvailableCrls)
{
    differencesFromNist(Request().checking(CheckCRL::WholeChain).downloading(DownloadCRL::BestEffort));
    differencesFromNist(Request().checking(CheckCRL::LeafOnly).downloading(DownloadCRL::BestEffort));
}

// OpenSSL treats a delta CRL as a complete one unless delta CRLs are enabled. Its choice between the two is
// not fixed, so there is no comparison with NIST.
TEST_F(PathValidationSuite, AgreesWithOpenSslWithDeltaCrlsInTrustStore)
{
    for (auto const& test : cases()) {
        if (beginsWith(test.number, "4.15.")) {
            SCOPED_TRACE(test.number + " " + test.name);
            judge(
                Path(test, crlsOf(test)),
                Request().checking(CheckCRL::WholeChain).downloading(DownloadCRL::Required));
        }
    }
}

TEST_F(PathValidationSuite, AgreesWithOpenSslAtOtherTimes)
{
    for (auto const moment : {in2009, in2031}) {
        FixedClock const other(moment);
        differencesFromNist(Request());
        differencesFromNist(Request().checking(CheckCRL::LeafOnly).downloading(DownloadCRL::Required));
    }
}

TEST_F(PathValidationSuite, AgreesWithOpenSslWithAllTolerances)
{
    FixedClock const other(in2031);
    differencesFromNist(
        Request().tolerating(everyTolerance()).checking(CheckCRL::None).downloading(DownloadCRL::None));
    differencesFromNist(Request()
                            .tolerating(everyTolerance())
                            .checking(CheckCRL::WholeChain)
                            .downloading(DownloadCRL::BestEffort));
}

TEST_F(PathValidationSuite, RefusesDsaKeys)
{
    Names refused;
    for (auto const& test : cases()) {
        if (!hasDsaKeys(test)) {
            continue;
        }
        SCOPED_TRACE(test.number + " " + test.name);
        refused.insert(test.name);
        EXPECT_THROWS_EXACTLY(
            UnsupportedKeyType, "Key is not currently supported. OpenSSL type id: 116",
            X509Certificate(toDer(certificate(test.path.front()))));
    }
    EXPECT_EQ(
        refused,
        (Names{"ValidDSASignaturesTest4", "ValidDSAParameterInheritanceTest5", "InvalidDSASignatureTest6"}));
}
