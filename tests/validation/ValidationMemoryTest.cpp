#include "support/allocation/AllocationFailure.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>

// A validation that cannot be finished for want of memory ends in a failure of some kind, and never in a
// trust that is not deserved.

namespace foundation::test {

namespace {

using namespace certificates;
using namespace std::chrono_literals;

namespace fs = std::filesystem;

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

void withCheapKey(CertificateSpec& spec)
{
    spec.key = ed25519Key(spec.subject.front().value);
}

/// A certificate, and all that its validation asks for.
struct Subject
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    Options options;
};

/// The program's own temporary directory, where CRLs that were fetched lie for a moment.
fs::path const& temporaryDirectory()
{
    static TemporaryFolder const folder;
    static ScopedVariable const variable("TMPDIR", folder.path().string());
    return folder.path();
}

/// Nothing may stay behind in the temporary directory, either.
std::string rendered(Subject const& subject)
{
    auto const numFiles = std::distance(fs::directory_iterator(temporaryDirectory()), {});
    return test::rendered(subject.leaf) + test::rendered(subject.chain) + test::rendered(subject.store) +
           std::to_string(numFiles);
}

struct Verdict
{
    CertificateValidationResults results;
};

std::string rendered(Verdict const& verdict)
{
    auto const& results = verdict.results;
    auto const revocation = results.getCertificateRevocationResults();
    return std::to_string(static_cast<int>(results.getCertificateChainStatus())) + " " +
           results.getValidationErrorString() + revocation.getRevokedSerialNumberString() +
           test::rendered(results.getRootCertificate());
}

/// Any verdict but the one that trusts.
bool isNoTrust(std::string const& answer, std::string const& /*rightAnswer*/)
{
    return answer.front() != '0';
}

Failures const unfinished =
    validationUnfinished() +
    Failures{
        failure<X509CertificateException>("Error: Root CA X509Certificate has no content."),
        failureBeginning<X509CertificateException>("CRL Download Error: "),
        failureBeginning<X509CertificateException>("CRL Verification Error: "),
        failure<X509CertificateException>("Internal error: Unable to get serial number."),
        failure<X509CertificateException>("Internal error: Unable to get serial number from BN."),
        failure<X509CertificateException>("Error: printing the ASN1 time failed."),
        failure<X509CertificateException>("Invalid time format used in the certificate."),
    };

/// OpenSSL 3.0 loses a certificate of the untrusted set if memory runs out while it builds a chain.
AllowedOutcomes unverified(std::size_t stride)
{
    return {unfinished, isNoTrust, stride, true};
}

/// A download that fails is one that brought nothing.
AllowedOutcomes notDownloaded(std::size_t stride)
{
    return {{failureBeginning<X509CertificateException>("CRL Download Error: ")}, {}, stride};
}

Verdict validated(Subject const& subject)
{
    return {subject.leaf.validateCertificate(subject.chain, subject.options, subject.store)};
}

std::vector<OperationOn<Subject>> validations(std::size_t stride, std::size_t heapStride = 1)
{
    return {
        {"validateCertificate", [](auto& s) { return validated(s); }, unverified(stride),
         withStride(heapStride)},
        {"getRootCACertificate",
         [](auto& s) { return s.leaf.getRootCACertificate(s.chain, s.store); },
         {unfinished, {}, stride, true},
         withStride(heapStride)},
    };
}

std::vector<OperationOn<Subject>> refusals(std::size_t stride)
{
    return {{"validateCertificate", [](auto& s) { return validated(s); }, unverified(stride)}};
}

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root", withCheapKey);
    return made;
}

std::function<Subject()> makerOf(
    CertificateAndKey const& leaf, std::vector<CertificateAndKey> const& chain,
    CertificateAndKey const& anchor, Options const& options = {})
{
    temporaryDirectory();
    return [certificate = load(leaf), loadedChain = chainOf(chain), store = storeOf({anchor}), options] {
        return Subject{certificate, loadedChain, store, options};
    };
}

CertificateAndKey leafWith(Mutation const& mutate)
{
    return makeLeaf(root(), "leaf", [&](CertificateSpec& spec) {
        withCheapKey(spec);
        mutate(spec);
    });
}

std::vector<SweptOperation> sound()
{
    static auto const ca = makeIntermediate(root(), "ca", withCheapKey);
    return operationsOn<Subject>(
        "", makerOf(makeLeaf(ca, "leaf", withCheapKey), {ca}, root()), validations(5));
}

/// The first store knows no way to the root, the second one does.
std::vector<SweptOperation> soundByFallback()
{
    auto const fallback = std::make_shared<TrustStore const>(storeOf({root()}));
    auto const options = optionsWith({}, CheckCRL::None, DownloadCRL::None, fallback);
    auto const leaf = makeLeaf(root(), "leaf", withCheapKey);
    return operationsOn<Subject>(
        "", makerOf(leaf, {}, makeRoot("other", withCheapKey), options), refusals(11));
}

std::vector<SweptOperation> undeserving(std::string const& name, CertificateAndKey const& leaf)
{
    return operationsOn<Subject>(name, makerOf(leaf, {}, root()), refusals(13));
}

Revocable const& pki()
{
    static Revocable const made;
    return made;
}

CertificateAndKey const& revokedLeaf()
{
    static auto const made = makeLeaf(pki().ca, "revoked", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
    });
    return made;
}

/// With CRLs at /leaf.crl, which revokes that one leaf, and /ca.crl for as long as the program runs.
std::function<Subject()> makerWithCrls(CertificateAndKey const& leaf, DownloadCRL mode)
{
    auto const options = optionsWith({}, CheckCRL::WholeChain, mode);
    return [make = makerOf(leaf, {pki().ca}, pki().root, options)] {
        static HttpFileServer const server(
            "127.0.0.1", filesOf(pki().leafCrl({revoke(revokedLeaf())}), pki().caCrl()));
        return make();
    };
}

std::vector<SweptOperation>
withRequiredCrls(CertificateAndKey const& leaf, std::size_t stride, std::size_t heapStride)
{
    return operationsOn<Subject>(
        "", makerWithCrls(leaf, DownloadCRL::Required),
        {{"validateCertificate", [](auto& s) { return validated(s); }, unverified(stride),
          notDownloaded(heapStride)}});
}

/// Where a CRL need not be had, one that there is no memory for is not missed: the verdict may be the one
/// without it.
std::vector<SweptOperation> withOptionalCrls(CertificateAndKey const& leaf)
{
    auto const withoutCrls = rendered(validated(makerOf(leaf, {pki().ca}, pki().root)()));
    AnswerMatcher const isVerdictWithoutCrls = [=](std::string const& answer,
                                                   std::string const& rightAnswer) {
        return isNoTrust(answer, rightAnswer) || answer == withoutCrls;
    };
    return operationsOn<Subject>(
        "", makerWithCrls(leaf, DownloadCRL::BestEffort),
        {{"validateCertificate",
          [](auto& s) { return validated(s); },
          {unfinished, isVerdictWithoutCrls, 163, true},
          {{}, isVerdictWithoutCrls, 19}}});
}

FOUNDATION_TEST_ALLOCATION_FAILURE(Sound, sound());
FOUNDATION_TEST_ALLOCATION_FAILURE(SoundByFallback, soundByFallback());
FOUNDATION_TEST_ALLOCATION_FAILURE(Damaged, undeserving("", leafWith([](CertificateSpec& spec) {
                                                            spec.damagedSignature = true;
                                                        })));
FOUNDATION_TEST_ALLOCATION_FAILURE(Expired, undeserving("", leafWith([](CertificateSpec& spec) {
                                                            spec.notAfter = TimeSpec::fromNow(-1h);
                                                        })));
FOUNDATION_TEST_ALLOCATION_FAILURE(NotYetValid, undeserving("", leafWith([](CertificateSpec& spec) {
                                                                spec.notBefore = TimeSpec::fromNow(1h);
                                                            })));
FOUNDATION_TEST_ALLOCATION_FAILURE(Stranger, undeserving("", makeLeaf(makeRoot("other"), "leaf")));
FOUNDATION_TEST_ALLOCATION_FAILURE(SelfSigned, undeserving("", makeSelfSignedLeaf("leaf")));
FOUNDATION_TEST_ALLOCATION_FAILURE(RequiredCrls, withRequiredCrls(pki().leaf, 41, 5));
FOUNDATION_TEST_ALLOCATION_FAILURE(RequiredCrlsAndRevoked, withRequiredCrls(revokedLeaf(), 163, 19));
FOUNDATION_TEST_ALLOCATION_FAILURE(OptionalCrls, withOptionalCrls(pki().leaf));
FOUNDATION_TEST_ALLOCATION_FAILURE(OptionalCrlsAndRevoked, withOptionalCrls(revokedLeaf()));

} // namespace

} // namespace foundation::test
