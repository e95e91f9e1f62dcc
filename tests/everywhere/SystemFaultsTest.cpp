#include "support/system/posix/SystemFaults.hpp"

#include "revocation/SocketBuffer.hpp"

#include "support/Text.hpp"
#include "support/assertions/Failures.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/AllowedOutcomes.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/Rendering.hpp"
#include "support/pki/Revocable.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/toolkit/Paths.hpp"
#include "support/toolkit/SourceOperations.hpp"
#include "support/toolkit/ToolkitOperations.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <vector>

// Runs the operations that call the operating system. Makes each call fail in turn, and compares the answers
// with those at rest. No failure makes a certificate valid, except that BestEffort goes on without a CRL.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;
using namespace std::chrono_literals;

namespace {

/// What a run has returned or thrown.
struct Outcome
{
    std::optional<std::type_index> exception;
    std::string text;

    bool isValid() const { return !exception && beginsWith(text, "0 "); }
};

bool operator==(Outcome const& left, Outcome const& right)
{
    return left.exception == right.exception && left.text == right.text;
}

std::ostream& operator<<(std::ostream& out, Outcome const& outcome)
{
    return out << (outcome.exception ? describe(*outcome.exception, outcome.text) : outcome.text);
}

struct SystemOperation
{
    std::string name;
    std::function<std::string()> answer;
    /// What it may throw or answer instead of its answer at rest.
    Failures failures;
    AnswerMatcher otherAnswers;

    Outcome run() const
    {
        try {
            return {std::nullopt, answer()};
        } catch (std::exception const& failure) {
            return {typeid(failure), failure.what()};
        }
    }

    bool allows(Outcome const& outcome, Outcome const& atRest) const
    {
        if (!outcome.exception) {
            return outcome == atRest || (otherAnswers && otherAnswers(outcome.text, atRest.text));
        }
        return std::any_of(failures.begin(), failures.end(), [&](Failure const& failure) {
            return failure.fits(*outcome.exception, outcome.text);
        });
    }
};

/// Makes each call of the operation fail in turn, alone and with those that follow. Calls the check with each
/// outcome. Returns the number of runs in which a call failed.
std::size_t
sweep(SystemOperation const& operation, Fault fault, std::function<void(Outcome const&)> const& check)
{
    std::size_t numFaultyRuns = 0;
    for (std::size_t const numCalls : {1U, 2U, 16U}) {
        for (std::size_t call = 0;; ++call) {
            auto const outcome = [&] {
                SystemFault const active(fault, call, numCalls);
                return operation.run();
            }();
            SCOPED_TRACE(std::to_string(numCalls) + " faults from call " + std::to_string(call));
            check(outcome);
            if (!SystemFault::hasOccurred()) {
                break;
            }
            ++numFaultyRuns;
        }
    }
    return numFaultyRuns;
}

struct FaultRow
{
    char const* name;
    Fault fault;
};

// An interrupted or short call is no failure.
constexpr FaultRow harmlessFaults[] = {
    {"open is interrupted", {SystemFunction::Open, EINTR}},
    {"read is interrupted", {SystemFunction::Read, EINTR}},
    {"connect is interrupted", {SystemFunction::Connect, EINTR}},
    {"poll is interrupted", {SystemFunction::Poll, EINTR}},
    {"recv is interrupted", {SystemFunction::Receive, EINTR}},
    {"send is interrupted", {SystemFunction::Send, EINTR}},
    {"read is short", {SystemFunction::Read, Fault::isShort}},
    {"fread is short", {SystemFunction::ReadStream, Fault::isShort}},
    {"recv is short", {SystemFunction::Receive, Fault::isShort}},
    {"send is short", {SystemFunction::Send, Fault::isShort}},
#ifndef _LIBCPP_VERSION // libc++ writes files through streams of the C library
    {"write is interrupted", {SystemFunction::Write, EINTR}},
    {"write is short", {SystemFunction::Write, Fault::isShort}},
#endif
};

constexpr FaultRow harmfulFaults[] = {
    {"open has no descriptor", {SystemFunction::Open, EMFILE}},
    {"fopen has no descriptor", {SystemFunction::OpenStream, EMFILE}},
    {"opendir has no descriptor", {SystemFunction::OpenFolder, EMFILE}},
    {"socket has no descriptor", {SystemFunction::MakeSocket, EMFILE}},
    {"getaddrinfo has no descriptor", {SystemFunction::Resolve, EMFILE}},
    {"open fails", {SystemFunction::Open, EIO}},
    {"readdir fails", {SystemFunction::ListFolder, EIO}},
    {"read fails", {SystemFunction::Read, EIO}},
    {"fread fails", {SystemFunction::ReadStream, EIO}},
    {"connect is refused", {SystemFunction::Connect, ECONNREFUSED}},
    {"poll fails", {SystemFunction::Poll, ENOMEM}},
    {"recv is reset", {SystemFunction::Receive, ECONNRESET}},
    {"send is reset", {SystemFunction::Send, ECONNRESET}},
#ifndef _LIBCPP_VERSION
    {"write fails", {SystemFunction::Write, EIO}},
#endif
};

Failures downloadFailed()
{
    return {failureBeginning<X509CertificateException>("CRL Download Error: ")};
}

Failures rootsUnread()
{
    return {failureBeginning<TrustStoreException>("Failed to read ")};
}

/// BestEffort goes on without a CRL.
bool isValidAnswer(std::string const& answer, std::string const& /*answerAtRest*/)
{
    return beginsWith(answer, "0 ");
}

/// A member of a folder that cannot be read is left out.
bool isPart(std::string const& answer, std::string const& answerAtRest)
{
    std::istringstream lines(answer);
    for (std::string line; std::getline(lines, line);) {
        if (!contains(answerAtRest, line)) {
            return false;
        }
    }
    return true;
}

/// The reader reports what it cannot read.
bool namesFailure(std::string const& answer, std::string const& /*answerAtRest*/)
{
    return contains(answer, " cannot be ");
}

/// The roots of the system. Lives longer than the temporary directory of a test.
class SystemRoots
{
protected:
    SystemRoots() { rootsFolder.write("other.pem", makeRoot("another").pem()); }

    Revocable const pki;
    TemporaryFolder const rootsFolder;
    std::filesystem::path const bundle =
        rootsFolder.write("bundle.pem", pki.root.pem() + makeRoot("other").pem());

private:
    ScopedVariable const fileVariable = {"SSL_CERT_FILE", bundle.string()};
    ScopedVariable const folderVariable = {"SSL_CERT_DIR", ""};
};

class SystemFaults : private SystemRoots, public LeavesNoTrace
{
public:
    // The row of the reader has a folder of its own, which stays.
    static void SetUpTestSuite() { readerOperations(); }

protected:
    SystemOperation validation(
        std::string name, CertificateAndKey const& leaf, Options::DownloadCRL download, Failures failures,
        AnswerMatcher otherAnswers = {}) const
    {
        auto const options = optionsWith({}, Options::CheckCRL::WholeChain, download);
        auto const answer = [this, options, certificate = load(leaf)] {
            return rendered(certificate.validateCertificate(chain, options, store));
        };
        return {std::move(name), answer, std::move(failures), std::move(otherAnswers)};
    }

    std::vector<SystemOperation> validations() const
    {
        using Download = Options::DownloadCRL;
        return {
            validation("valid, CRL required", goodLeaf, Download::Required, downloadFailed()),
            validation("revoked, CRL required", pki.leaf, Download::Required, downloadFailed()),
            validation("valid, best effort", goodLeaf, Download::BestEffort, {}),
            validation("revoked, best effort", pki.leaf, Download::BestEffort, {}, isValidAnswer),
        };
    }

    /// Reads the system's roots from a file or folder.
    SystemOperation roots(
        std::string name, std::filesystem::path const& source, bool rethrowOnFailure,
        AnswerMatcher otherAnswers = {}) const
    {
        auto const answer = [=] {
            bool const isFolder = std::filesystem::is_directory(source);
            ScopedVariable const file("SSL_CERT_FILE", isFolder ? "" : source.string());
            ScopedVariable const directory("SSL_CERT_DIR", isFolder ? source.string() : "");
            TrustStore roots;
            roots.addSystemCertificates(TrustStore::Usage::Signing, rethrowOnFailure);
            return rendered(roots);
        };
        return {std::move(name), answer, rootsUnread(), std::move(otherAnswers)};
    }

    SystemOperation verification() const
    {
        auto const signer = makeLeaf(pki.root, "signer", [](CertificateSpec& spec) {
            spec.setExtension("keyUsage", "digitalSignature");
            spec.setExtension("extendedKeyUsage", "emailProtection,codeSigning");
        });
        PKCS7Certificate const data(toDer(makeSignedData("content", signer)));
        auto const answer = [data] {
            return rendered(data.verifySignature(X509CertificateChain(), TrustStore(), ByteArray()));
        };
        return {"verification against the system's roots", answer, {}, isStricterVerification};
    }

    static SystemOperation reader()
    {
        auto const& rows = readerOperations();
        auto const row = std::find_if(rows.begin(), rows.end(), [](auto const& operation) {
            return operation.name == "CertificateReader::next, folder";
        });
        auto const answer = [operation = *row] {
            NoObject none;
            return operation.answer(none, sharedObjects());
        };
        return {"reader of a folder", answer, {}, namesFailure};
    }

    std::vector<SystemOperation> operations() const
    {
        auto all = validations();
        all.push_back(roots("roots of a file", bundle, false));
        all.push_back(roots("roots of a folder", rootsFolder.path(), true));
        all.push_back(roots("roots of a folder, best effort", rootsFolder.path(), false, isPart));
        all.push_back(verification());
        all.push_back(reader());
        return all;
    }

    using SystemRoots::pki;
    CertificateAndKey const goodLeaf = makeLeaf(pki.ca, "good leaf", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
    });
    CrlHandle const leafCrl = pki.leafCrl({revoke(pki.leaf)});
    X509CertificateChain const chain = chainOf({pki.ca});
    TrustStore const store = storeOf({pki.root});

private:
    LogCapture const log; // keeps the records of failures from the output
};

} // namespace

TEST_F(SystemFaults, InterruptedAndShortCallsChangeNoAnswer)
{
    HttpFileServer const server("127.0.0.1", filesOf(leafCrl, pki.caCrl()));
    auto const all = operations();
    for (auto const& row : harmlessFaults) {
        SCOPED_TRACE(row.name);
        std::size_t numFaultyRuns = 0;
        for (auto const& operation : all) {
            SCOPED_TRACE(operation.name);
            auto const atRest = operation.run();
            numFaultyRuns +=
                sweep(operation, row.fault, [&](Outcome const& outcome) { EXPECT_EQ(outcome, atRest); });
        }
        EXPECT_GT(numFaultyRuns, 0U);
    }
}

TEST_F(SystemFaults, FailedCallsGiveNoWrongAnswer)
{
    HttpFileServer const server("127.0.0.1", filesOf(leafCrl, pki.caCrl()));
    auto const all = operations();
    for (auto const& row : harmfulFaults) {
        SCOPED_TRACE(row.name);
        std::size_t numFaultyRuns = 0;
        for (auto const& operation : all) {
            SCOPED_TRACE(operation.name);
            auto const atRest = operation.run();
            ASSERT_FALSE(atRest.exception) << atRest;
            numFaultyRuns += sweep(operation, row.fault, [&](Outcome const& outcome) {
                EXPECT_TRUE(operation.allows(outcome, atRest)) << outcome << "\nat rest: " << atRest;
            });
        }
        EXPECT_GT(numFaultyRuns, 0U);
    }
}

TEST_F(SystemFaults, FailedWaitEndsWriteBeforeItsDeadline)
{
    std::string const bytes(
        1U << 23, 'x'); // more than the system's buffers take while the peer does not read
    ScriptedServer const server("127.0.0.1", 80, {{wait(1h)}});
    SocketBuffer socket;
    ASSERT_FALSE(socket.connectTo("127.0.0.1", "http"));
    socket.expires_after(30s);
    auto const begin = std::chrono::steady_clock::now();
    SystemFault const active({SystemFunction::Poll, ENOMEM}, 0, bytes.size());

    auto const size = static_cast<std::streamsize>(bytes.size());
    EXPECT_LT(socket.sputn(bytes.data(), size), size);

    EXPECT_TRUE(SystemFault::hasOccurred());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(SystemFaults, FullDiskGivesNoWrongAnswer)
{
    HttpFileServer const server("127.0.0.1", filesOf(leafCrl, pki.caCrl()));
    auto const largest = std::max(toDer(leafCrl).size(), toDer(pki.caCrl()).size());
    for (auto const& operation : validations()) {
        SCOPED_TRACE(operation.name);
        auto const atRest = operation.run();
        std::size_t numChanged = 0;
        for (std::size_t size = 0; size <= largest; size += size < 3 ? 1 : 7) {
            auto const outcome = [&] {
                FullDisk const disk(size);
                return operation.run();
            }();
            EXPECT_TRUE(operation.allows(outcome, atRest)) << outcome << "\nfiles of " << size << " bytes";
            numChanged += outcome == atRest ? 0U : 1U;
        }
        EXPECT_EQ(numChanged > 0, operation.otherAnswers || !operation.failures.empty());
    }
}

TEST_F(SystemFaults, ClockStepDoesNotDisturbDownload)
{
    HttpFileServer const server("127.0.0.1", filesOf(leafCrl, pki.caCrl()));
    for (auto const& operation : validations()) {
        SCOPED_TRACE(operation.name);
        auto const atRest = operation.run();
        for (auto const step : {-30min, 30min}) { // all certificates and CRLs stay valid
            std::size_t reading = 0;
            do {
                ClockStep const active(step, reading++);
                EXPECT_EQ(operation.run(), atRest) << "from reading " << reading;
            } while (ClockStep::hasOccurred());
            EXPECT_GT(reading, 2U);
        }
    }
}

TEST_F(SystemFaults, ClockStepValidatesOnlyWhatOneOfTheTimesDoes)
{
    HttpFileServer const server("127.0.0.1", filesOf(leafCrl, pki.caCrl()));
    auto const expired = makeLeaf(pki.ca, "expired", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
        spec.notAfter = TimeSpec::fromNow(-12h);
    });
    auto const future = makeLeaf(pki.ca, "future", [](CertificateSpec& spec) {
        spec.setDistributionPoints({"http://127.0.0.1/leaf.crl"});
        spec.notBefore = TimeSpec::fromNow(12h);
    });
    auto all = validations();
    all.push_back(validation("expired", expired, Options::DownloadCRL::BestEffort, {}));
    all.push_back(validation("future", future, Options::DownloadCRL::BestEffort, {}));
    auto const options = pathOptions([&](PathOptions& changed) {
        changed.revocation = Revocation::Leaf;
        changed.crls = {toDer(leafCrl)};
    });
    auto const validatePath = [&, validator = validatorOf({pki.root})] {
        return rendered(validator.validate(certificateOf(expired), certificatesOf({pki.ca}), options));
    };
    all.push_back({"expired, path", validatePath, {}, {}});
    for (auto const& operation : all) {
        SCOPED_TRACE(operation.name);
        for (std::chrono::hours const step : {-24h * 400, -18h, 18h, 24h * 400}) {
            auto const runFrom = [&](std::size_t reading) {
                ClockStep const active(step, reading);
                return operation.run();
            };
            if (operation.run().isValid() || runFrom(0).isValid()) {
                continue;
            }
            std::size_t reading = 0;
            do {
                EXPECT_FALSE(runFrom(reading).isValid()) << step.count() << " hours from reading " << reading;
                ++reading;
            } while (ClockStep::hasOccurred());
            EXPECT_GT(reading, 1U);
        }
    }
}
