#include "support/toolkit/ToolkitOperations.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/system/InParallel.hpp"
#include "support/toolkit/IssuanceOperations.hpp"
#include "support/toolkit/SourceOperations.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// What holds for every operation of the table: threads get the same answers, and the caller's entries in the
// error queue change nothing.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

constexpr int numThreads = 8;

template <class Object>
std::vector<std::string>
answersOf(std::vector<Operation<Object>> const& table, Object& object, std::size_t start)
{
    std::vector<std::string> answers(table.size());
    for (std::size_t count = 0; count < table.size(); ++count) {
        auto const index = (start + count) % table.size();
        answers[index] = table[index].answer(object, sharedObjects());
    }
    return answers;
}

/// Returns the operations that change nothing and are fast.
template <class Object>
std::vector<Operation<Object>> fastReads(std::vector<Operation<Object>> const& table)
{
    std::vector<Operation<Object>> fast;
    for (auto const& operation : table) {
        if (operation.access == Access::Reads && !operation.isCostly) {
            fast.push_back(operation);
        }
    }
    return fast;
}

/// Expects the same answers in all threads. Each begins with another operation.
template <class Object>
void expectSameInThreads(std::vector<Operation<Object>> const& operations, Object shared)
{
    auto const table = fastReads(operations);
    std::mutex mutex;
    std::set<std::vector<std::string>> different;
    inParallel(numThreads, [&](int number) {
        auto own = shared;
        auto const start = table.size() * static_cast<std::size_t>(number) / numThreads;
        auto answers = answersOf(table, number % 2 == 0 ? shared : own, start);
        std::lock_guard<std::mutex> const lock(mutex);
        different.insert(std::move(answers));
    });
    EXPECT_EQ(different, (std::set<std::vector<std::string>>{answersOf(table, shared, 0)}));
}

template <class Object>
void expectQueueKept(std::vector<Operation<Object>> const& table, Object object)
{
    for (auto const& operation : table) {
        SCOPED_TRACE(operation.name);
        CleanErrorQueue const clean;
        auto const answer = operation.answer(object, sharedObjects());
        EXPECT_TRUE(queueIsEmpty());
        std::vector<unsigned long> foreign = {queueForeignError(), queueForeignError()};
        EXPECT_EQ(operation.answer(object, sharedObjects()), answer);
        if (operation.foreignErrors == ForeignErrors::Go) {
            foreign.clear();
        }
        EXPECT_EQ(drainErrorQueue(), foreign);
    }
}

Certificate newLeaf()
{
    return Certificate::fromDER(toolkitMaterial().leaf);
}

PathValidator newValidator()
{
    return PathValidator({Certificate::fromDER(toolkitMaterial().root)});
}

/// Returns the names of the exported functions.
std::set<std::string> exportedFunctions()
{
    std::string const start = "foundation_toolkit: foundation::toolkit::";
    std::set<std::string> functions;
    std::ifstream list(EXPORTED_SYMBOLS);
    for (std::string line; std::getline(list, line);) {
        if (line.rfind(start, 0) != 0) {
            continue;
        }
        auto const whole = line.substr(start.size());
        auto const operatorName = whole.find("operator()");
        auto const end = operatorName == std::string::npos ? whole.find_first_of("([")
                                                           : operatorName + std::string("operator()").size();
        functions.insert(whole.substr(0, end));
    }
    return functions;
}

template <class Object>
void insertNames(std::vector<Operation<Object>> const& table, std::set<std::string>& names)
{
    for (auto const& operation : table) {
        names.insert(operation.name.substr(0, operation.name.find(", ")));
    }
}

} // namespace

TEST(ToolkitThreads, AnswerAlikeOnSharedCertificateAndCopies)
{
    expectSameInThreads(toolkitCertificateOperations(), newLeaf());
}

TEST(ToolkitThreads, AnswerAlikeOnSharedValidatorAndCopies)
{
    expectSameInThreads(pathValidatorOperations(), newValidator());
}

TEST(ToolkitThreads, AnswerAlikeOnSharedRequestAndCopies)
{
    expectSameInThreads(certificateRequestOperations(), newRequest());
}

TEST(ToolkitThreads, AnswerAlikeOnSharedBuilderAndCopies)
{
    expectSameInThreads(endEntityBuilderOperations(), newBuilder());
}

TEST(ToolkitThreads, AnswerAlikeOnSharedBundleAndCopies)
{
    expectSameInThreads(privateKeyOperations(), newBundle());
}

TEST(ToolkitThreads, ReadersAnswerAlike)
{
    expectSameInThreads(readerOperations(), NoObject());
}

TEST(ToolkitErrorQueue, ForeignErrorsStayAndChangeNoAnswer)
{
    expectQueueKept(toolkitCertificateOperations(), newLeaf());
    expectQueueKept(pathValidatorOperations(), newValidator());
    expectQueueKept(pathResultOperations(), PathResult());
    expectQueueKept(certificateRequestOperations(), newRequest());
    expectQueueKept(endEntityBuilderOperations(), newBuilder());
    expectQueueKept(privateKeyOperations(), newBundle());
    expectQueueKept(readerOperations(), NoObject());
    expectQueueKept(tlsPeerOperations(), newConnectedClient());
    expectQueueKept(tlsContextOperations(), ClientContext());
}

TEST(ToolkitOperationTable, HasRowForEveryExportedFunction)
{
    // Tests by name cover these: constructors, destructors and assignment, what rows call on the way, tables
    // of words, the log, a maker that reads the system's roots, and a setting that a failure leaves
    // unfinished.
    std::set<std::string> withRow = {
        "Certificate::Certificate",
        "Certificate::~Certificate",
        "Certificate::operator=",
        "CertificateReader::CertificateReader",
        "CertificateReader::~CertificateReader",
        "CertificateReader::operator=",
        "CertificateReader::withPassphrase",
        "CertificateRequest::CertificateRequest",
        "EndEntityCertificateBuilder::contentsFor",
        "PathValidator::PathValidator",
        "PathValidator::~PathValidator",
        "PathValidator::operator=",
        "PathValidator::withSystemRoots",
        "SecretString::SecretString",
        "SecretString::~SecretString",
        "SecretString::operator=",
        "SecretString::wipe",
        "expectPeer",
        "logToStandardError",
        "silenceLog",
        "toString"};
    insertNames(toolkitCertificateOperations(), withRow);
    insertNames(pathValidatorOperations(), withRow);
    insertNames(pathResultOperations(), withRow);
    insertNames(certificateRequestOperations(), withRow);
    insertNames(endEntityBuilderOperations(), withRow);
    insertNames(privateKeyOperations(), withRow);
    insertNames(readerOperations(), withRow);
    insertNames(tlsPeerOperations(), withRow);
    insertNames(tlsContextOperations(), withRow);
    auto const exported = exportedFunctions();
    EXPECT_GT(exported.size(), 60U);
    for (auto const& function : exported) {
        EXPECT_EQ(withRow.count(function), 1U) << function << ": add a row in tests/support/toolkit";
    }
}
