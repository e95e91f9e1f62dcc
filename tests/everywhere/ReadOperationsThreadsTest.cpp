#include "support/operations/OperationTable.hpp"
#include "support/operations/StoreHistory.hpp"
#include "support/pki/SelfSigned.hpp"
#include "support/system/InParallel.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Eight threads run all read operations at once. Each gets the answers that a single thread gets.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr int numThreads = 8;

/// Runs all operations, beginning with another one on each thread. Returns the answers in the order of the
/// table.
std::vector<std::string> answersOf(Objects& objects, int number)
{
    auto const& operations = readOperations();
    std::vector<std::string> answers(operations.size());
    auto const start = operations.size() * static_cast<std::size_t>(number) / numThreads;
    for (std::size_t count = 0; count < operations.size(); ++count) {
        auto const index = (start + count) % operations.size();
        answers[index] = operations[index].answer(objects);
    }
    return answers;
}

/// The different sets of answers that the threads got.
class Answers
{
public:
    void add(std::vector<std::string> answers)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        different.insert(std::move(answers));
    }

    void expectAllLike(std::vector<std::string> const& expected) const
    {
        EXPECT_EQ(different, std::set<std::vector<std::string>>{expected});
    }

private:
    std::mutex mutex;
    std::set<std::vector<std::string>> different;
};

/// Whether the operation may answer nothing. The system's roots are in a file or in a folder, and on Windows
/// in neither.
bool mayBeEmpty(std::string const& operation)
{
    return operation == "getSystemCertificatesFile" || operation == "getSystemCertificatesFolder";
}

} // namespace

TEST(ReadOperationsThreads, AnswerAlikeOnSharedObjects)
{
    // OpenSSL computes some values on first use. Here the threads are the first users.
    auto shared = makeObjects();
    Answers answers;
    inParallel(numThreads, [&](int number) {
        answers.add(answersOf(shared, number));
        answers.add(answersOf(shared, numThreads - 1 - number));
    });
    answers.expectAllLike(answersOf(shared, 0));
}

TEST(ReadOperationsThreads, AnswerAlikeWithEveryHistoryOfTheStore)
{
    // Except that of a store with a CRL, which does not list its certificates.
    for (auto const history :
         {StoreHistory::Copied, StoreHistory::HandedOut, StoreHistory::ChangedOutside,
          StoreHistory::CopyOfHandedOut}) {
        SCOPED_TRACE(history);
        auto shared = makeObjects();
        auto const kept = undergo(shared.store, history);
        Answers answers;
        inParallel(numThreads, [&](int number) { answers.add(answersOf(shared, number)); });
        answers.expectAllLike(answersOf(shared, 0));
    }
}

TEST(ReadOperationsThreads, AnswerAlikeOnCopies)
{
    auto original = makeObjects();
    std::vector<Objects> own(numThreads, original);
    Answers answers;
    inParallel(numThreads, [&](int number) {
        answers.add(answersOf(own[static_cast<std::size_t>(number)], number));
    });
    answers.expectAllLike(answersOf(original, 0));
}

TEST(ReadOperationsThreads, AnswerAlikeWhileOthersCopyAndMove)
{
    auto shared = makeObjects();
    std::atomic<int> numReading{numThreads / 2};
    Answers answers;
    inParallel(numThreads, [&](int number) {
        if (number % 2 == 0) {
            answers.add(answersOf(shared, number));
            --numReading;
            return;
        }
        // The other threads continue as long as one reads.
        do {
            Objects copy(shared);
            Objects moved(std::move(copy));
            copy = shared;
            std::swap(copy, moved);
            answers.add(answersOf(moved, number));
        } while (numReading > 0);
    });
    answers.expectAllLike(answersOf(shared, 0));
}

TEST(ReadOperationsThreads, AnswerWhileOthersAddToContainers)
{
    auto shared = makeObjects();
    std::atomic<int> numReading{numThreads / 2};
    std::atomic<int> wrong{0};
    inParallel(numThreads, [&](int number) {
        if (number % 2 == 0) {
            for (auto const& operation : readOperations()) {
                bool const hasAnswer = !operation.answer(shared).empty();
                wrong += hasAnswer || mayBeEmpty(operation.name) ? 0 : 1;
            }
            --numReading;
            return;
        }
        // The others validate the same certificate. If the container locked it under its own lock, the
        // threads would deadlock.
        while (numReading > 0) {
            shared.store.addCertificate(shared.certificate);
            shared.store.addCertificates(shared.chain);
            shared.chain.addCertificate(shared.certificate);
            shared.chain.popLeafCertificate();
            shared.signedData.addCertificate(shared.certificate);
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(shared.chain.getNumCertificates(), 2U);
}

TEST(ReadOperationsThreads, OneBuilderBuildsDifferentCertificates)
{
    auto const builder = fastBuilder();
    std::mutex mutex;
    std::set<std::string> fingerprints;
    inParallel(numThreads, [&](int) {
        auto const fingerprint = builder.build().first.getSHA256Fingerprint();
        std::lock_guard<std::mutex> const lock(mutex);
        fingerprints.insert(fingerprint);
    });
    EXPECT_EQ(fingerprints.size(), std::size_t{numThreads});
}

TEST(ReadOperationsThreads, EncodingsRoundTrip)
{
    ByteArray bytes(1000);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<unsigned char>(index);
    }
    std::atomic<int> wrong{0};
    inParallel(numThreads, [&](int) {
        for (int round = 0; round < 20; ++round) {
            wrong += base64Decode(base64Encode(bytes)) == bytes ? 0 : 1;
            wrong += hexDecode(hexEncode(bytes)) == bytes ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}
