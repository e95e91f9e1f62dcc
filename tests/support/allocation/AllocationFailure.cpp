#include "support/allocation/AllocationFailure.hpp"

#include "support/openssl/OpenSSLErrors.hpp"

#include <algorithm>
#include <exception>
#include <new>
#include <optional>
#include <set>
#include <sstream>
#include <typeindex>
#include <typeinfo>

#if defined(__has_feature)
#define FOUNDATION_TEST_HAS_FEATURE(name) __has_feature(name)
#else
#define FOUNDATION_TEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || FOUNDATION_TEST_HAS_FEATURE(address_sanitizer)
#include <sanitizer/lsan_interface.h>
/// LeakSanitizer looks away meanwhile.
using MayLeak = __lsan::ScopedDisabler;
#else
struct MayLeak
{
    MayLeak() {}
};
#endif

namespace foundation::test {

namespace {

struct Outcome
{
    std::optional<std::string> answer;
    /// Where there is no answer.
    std::type_index type = typeid(void);
    std::string text{};
};

Outcome outcomeOf(Trial const& trial, Memory memory, std::size_t allocation)
{
    try {
        Shortage const shortage(memory, allocation);
        trial.operate();
    } catch (std::exception const& failure) {
        return {std::nullopt, typeid(failure), failure.what()};
    }
    return {trial.answer()};
}

std::multiset<std::string> linesOf(std::string const& text)
{
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

/// What an operation did in all its runs.
class Sweep
{
public:
    Sweep(OperationWithoutMemory const& theOperation, Memory theMemory)
        : operation(theOperation),
          memory(theMemory),
          shortcomings(theMemory == Memory::OpenSSL ? theOperation.openSSL : theOperation.heap)
    {
        auto const trial = operation.begin();
        before = trial.observe();
        trial.operate();
        answer = trial.answer();
        after = trial.observe();
        if (memory == Memory::Heap) {
            shortcomings.failures.push_back({typeid(std::bad_alloc), std::bad_alloc().what()});
        }
    }

    std::size_t run()
    {
        std::size_t count = 0;
        while (runOnce(count * shortcomings.stride)) {
            ++count;
        }
        expectThatFailuresWereSeen(count);
        return count;
    }

private:
    /// Whether the operation came to that allocation.
    bool runOnce(std::size_t allocation)
    {
        SCOPED_TRACE("without allocation " + std::to_string(allocation));
        auto const trial = operation.begin();
        CleanErrorQueue const clean;
        std::optional<MayLeak> tolerated;
        if (shortcomings.isLossy) {
            tolerated.emplace();
        }
        auto const outcome = outcomeOf(trial, memory, allocation);
        tolerated.reset();
        bool const isShort = Shortage::hasOccurred();
        CleanErrorQueue const cleanAfterwards;
        if (outcome.answer) {
            EXPECT_TRUE(isAcceptable(*outcome.answer)) << "answered: " << *outcome.answer;
        } else {
            expectListed(outcome);
        }
        if (operation.effect == Effect::WholeOrNone) {
            expectWholeOrNone(trial, outcome);
        } else {
            expectPart(trial, outcome);
        }
        return isShort;
    }

    void expectWholeOrNone(Trial const& trial, Outcome const& outcome) const
    {
        if (outcome.answer != answer) {
            EXPECT_EQ(trial.observe(), before);
            expectRightAnswer(trial);
        }
        EXPECT_EQ(trial.observe(), after);
    }

    void expectPart(Trial const& trial, Outcome const& outcome) const
    {
        if (outcome.answer) {
            EXPECT_TRUE(someLines(trial.observe(), after)) << trial.observe();
        }
        expectRightAnswer(trial);
        EXPECT_EQ(trial.observe(), after);
    }

    void expectRightAnswer(Trial const& trial) const
    {
        trial.operate();
        EXPECT_EQ(trial.answer(), answer);
    }

    bool isAcceptable(std::string const& given) const
    {
        return given == answer || (shortcomings.concession && shortcomings.concession(given, answer));
    }

    void expectListed(Outcome const& outcome)
    {
        bool isListed = false;
        for (std::size_t index = 0; index < shortcomings.failures.size(); ++index) {
            if (shortcomings.failures[index].fits(outcome.type, outcome.text)) {
                isListed = true;
                seen.insert(index);
            }
        }
        EXPECT_TRUE(isListed) << describe(outcome.type, outcome.text);
    }

    /// In which way each allocation of OpenSSL's fails is up to its version, so that one failure will do.
    void expectThatFailuresWereSeen(std::size_t count) const
    {
        if (count == 0 || shortcomings.stride > 1 || shortcomings.failures.empty()) {
            return;
        }
        auto const numExpected = memory == Memory::Heap ? shortcomings.failures.size() : 1;
        EXPECT_GE(seen.size(), numExpected) << "what the table lists does not occur";
    }

    OperationWithoutMemory const& operation;
    Memory const memory;
    Shortcomings shortcomings;
    std::string before;
    std::string answer;
    std::string after;
    std::set<std::size_t> seen;
};

} // namespace

bool beginning(std::string const& answer, std::string const& rightAnswer)
{
    return rightAnswer.rfind(answer, 0) == 0;
}

bool someLines(std::string const& answer, std::string const& rightAnswer)
{
    auto const lines = linesOf(answer);
    auto const rightLines = linesOf(rightAnswer);
    return std::includes(rightLines.begin(), rightLines.end(), lines.begin(), lines.end());
}

bool asManyLines(std::string const& answer, std::string const& rightAnswer)
{
    return linesOf(answer).size() == linesOf(rightAnswer).size();
}

bool shorter(std::string const& answer, std::string const& rightAnswer)
{
    return answer.size() < rightAnswer.size();
}

std::string WithoutMemory::nameOf(testing::TestParamInfo<ParamType> const& info)
{
    std::string name = std::get<OperationWithoutMemory>(info.param).name +
                       (std::get<Memory>(info.param) == Memory::OpenSSL ? "_OpenSSL" : "_Heap");
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

TEST_P(WithoutMemory, FailsAsDocumentedAndLeavesTheObjectAsItWas)
{
    auto const& [operation, memory] = GetParam();
    auto const count = Sweep(operation, memory).run();
    RecordProperty("runs", static_cast<int>(count));
}

} // namespace foundation::test
