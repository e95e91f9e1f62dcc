#include "support/allocation/AllocationFailure.hpp"
#include "support/allocation/MayLeak.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/StoreHistory.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

// A validation that runs out of memory fails or gives a stricter verdict. It never trusts a certificate that
// is not valid.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

/// A verification that runs out of memory leaks references in OpenSSL. They may be to a certificate of the
/// tables below, so the whole program may leak.
MayLeak const openSSLLeaksCertificates;

using foundation::test::rendered; // the functions of this name below would hide it

using CheckCRL = Options::CheckCRL;
using DownloadCRL = Options::DownloadCRL;

void withCheapKey(CertificateSpec& spec)
{
    spec.key = ed25519Key(spec.subject.front().value);
}

/// A certificate and the input of its validation.
struct Subject
{
    X509Certificate leaf;
    X509CertificateChain chain;
    TrustStore store;
    Options options;
    /// What the history of the store needs.
    std::shared_ptr<void> kept = nullptr;
};

/// The temporary directory of this program. A downloaded CRL is a file in it for a moment.
fs::path const& temporaryDirectory()
{
    static TemporaryFolder const folder;
    static ScopedVariable const variable("TMPDIR", folder.path().string());
    return folder.path();
}

/// Counts the temporary files, too: none may remain.
std::string rendered(Subject const& subject)
{
    auto const numFiles = std::distance(fs::directory_iterator(temporaryDirectory()), {});
    return rendered(subject.leaf) + rendered(subject.chain) + rendered(subject.store) +
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
           rendered(results.getRootCertificate());
}

/// Accepts every verdict except Valid.
bool isNotValid(std::string const& answer, std::string const& /*answerAtRest*/)
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

/// A validation with optional CRLs has many allocations and is run for two leaves.
constexpr std::size_t optionalCrlStride = 163;
constexpr std::size_t optionalCrlHeapStride = 19;

/// OpenSSL leaks its own memory here. The operation may give the other answers.
AllowedOutcomes leaky(AllowedOutcomes outcomes, AnswerMatcher const& otherAnswers = {})
{
    outcomes.otherAnswers = otherAnswers;
    outcomes.isLeaky = true;
    return outcomes;
}

/// OpenSSL 3.0 leaks a certificate of the untrusted set if an allocation fails while it builds a chain.
AllowedOutcomes unverified(std::size_t stride)
{
    return leaky(failsWith(unfinished, stride), isNotValid);
}

/// A download that runs out of memory fails like any other.
AllowedOutcomes notDownloaded(std::size_t stride)
{
    return failsWith(Failures{failureBeginning<X509CertificateException>("CRL Download Error: ")}, stride);
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
        {"getRootCACertificate", [](auto& s) { return s.leaf.getRootCACertificate(s.chain, s.store); },
         leaky(failsWith(unfinished, stride)), withStride(heapStride)},
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

/// As makerOf, with a store that has the history.
std::function<Subject()> makerAfter(
    StoreHistory history, CertificateAndKey const& leaf, std::vector<CertificateAndKey> const& chain,
    CertificateAndKey const& anchor)
{
    return [make = makerOf(leaf, chain, anchor), anchor = load(anchor), history] {
        auto subject = make();
        TrustStore store;
        store.addCertificate(anchor);
        subject.store = std::move(store);
        subject.kept = undergo(subject.store, history);
        return subject;
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

std::vector<SweptOperation> soundAfter(StoreHistory history)
{
    static auto const ca = makeIntermediate(root(), "ca", withCheapKey);
    static auto const leaf = makeLeaf(ca, "leaf", withCheapKey);
    return operationsOn<Subject>("", makerAfter(history, leaf, {ca}, root()), validations(149, 11));
}

/// The root in the trust store has the issuer's name and another key.
std::vector<SweptOperation> untrustedAfter(StoreHistory history)
{
    static auto const leaf = makeLeaf(root(), "leaf", withCheapKey);
    static auto const namesake =
        makeRoot("root", [](CertificateSpec& spec) { spec.key = ed25519Key("other"); });
    return operationsOn<Subject>("untrusted ", makerAfter(history, leaf, {}, namesake), refusals(149));
}

std::vector<SweptOperation> both(StoreHistory history)
{
    auto swept = soundAfter(history);
    auto const untrusted = untrustedAfter(history);
    swept.insert(swept.end(), untrusted.begin(), untrusted.end());
    return swept;
}

/// Only the second store leads to the root.
std::vector<SweptOperation> soundByFallback()
{
    auto const fallback = std::make_shared<TrustStore const>(storeOf({root()}));
    auto const options = optionsWith({}, CheckCRL::None, DownloadCRL::None, fallback);
    auto const leaf = makeLeaf(root(), "leaf", withCheapKey);
    return operationsOn<Subject>(
        "", makerOf(leaf, {}, makeRoot("other", withCheapKey), options), refusals(11));
}

std::vector<SweptOperation> invalid(std::string const& name, CertificateAndKey const& leaf)
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

/// A server offers /leaf.crl, which revokes one leaf, and /ca.crl until the program ends.
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

/// With BestEffort a shortage may lose a CRL: then the verdict may be the one without CRLs.
std::vector<SweptOperation> withOptionalCrls(CertificateAndKey const& leaf)
{
    auto const withoutCrls = rendered(validated(makerOf(leaf, {pki().ca}, pki().root)()));
    AnswerMatcher const isVerdictWithoutCrls = [=](std::string const& answer,
                                                   std::string const& answerAtRest) {
        return isNotValid(answer, answerAtRest) || answer == withoutCrls;
    };
    auto lostOnHeap = withStride(optionalCrlHeapStride);
    lostOnHeap.otherAnswers = isVerdictWithoutCrls;
    return operationsOn<Subject>(
        "", makerWithCrls(leaf, DownloadCRL::BestEffort),
        {{"validateCertificate", [](auto& s) { return validated(s); },
          leaky(failsWith(unfinished, optionalCrlStride), isVerdictWithoutCrls), lostOnHeap}});
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(Sound, sound());
FOUNDATION_TEST_ALLOCATION_FAILURE(Private, both(StoreHistory::Private));
FOUNDATION_TEST_ALLOCATION_FAILURE(Copied, both(StoreHistory::Copied));
FOUNDATION_TEST_ALLOCATION_FAILURE(HandedOut, both(StoreHistory::HandedOut));
FOUNDATION_TEST_ALLOCATION_FAILURE(ChangedOutside, both(StoreHistory::ChangedOutside));
FOUNDATION_TEST_ALLOCATION_FAILURE(HoldsCRL, both(StoreHistory::HoldsCRL));
FOUNDATION_TEST_ALLOCATION_FAILURE(CopyOfHandedOut, both(StoreHistory::CopyOfHandedOut));
FOUNDATION_TEST_ALLOCATION_FAILURE(SoundByFallback, soundByFallback());
FOUNDATION_TEST_ALLOCATION_FAILURE(Damaged, invalid("", leafWith([](CertificateSpec& spec) {
                                                        spec.damagedSignature = true;
                                                    })));
FOUNDATION_TEST_ALLOCATION_FAILURE(Expired, invalid("", leafWith([](CertificateSpec& spec) {
                                                        spec.notAfter = TimeSpec::fromNow(-1h);
                                                    })));
FOUNDATION_TEST_ALLOCATION_FAILURE(NotYetValid, invalid("", leafWith([](CertificateSpec& spec) {
                                                            spec.notBefore = TimeSpec::fromNow(1h);
                                                        })));
FOUNDATION_TEST_ALLOCATION_FAILURE(UnknownRoot, invalid("", makeLeaf(makeRoot("other"), "leaf")));
FOUNDATION_TEST_ALLOCATION_FAILURE(SelfSigned, invalid("", makeSelfSignedLeaf("leaf")));
FOUNDATION_TEST_ALLOCATION_FAILURE(RequiredCrls, withRequiredCrls(pki().leaf, 41, 5));
FOUNDATION_TEST_ALLOCATION_FAILURE(RequiredCrlsAndRevoked, withRequiredCrls(revokedLeaf(), 163, 19));
FOUNDATION_TEST_ALLOCATION_FAILURE(OptionalCrls, withOptionalCrls(pki().leaf));
FOUNDATION_TEST_ALLOCATION_FAILURE(OptionalCrlsAndRevoked, withOptionalCrls(revokedLeaf()));
