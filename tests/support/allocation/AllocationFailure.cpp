#include "support/allocation/AllocationFailure.hpp"

#include "support/allocation/MayLeak.hpp"
#include "support/openssl/OpenSSLErrors.hpp"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <typeindex>
#include <typeinfo>
#include <utility>

namespace foundation::test {

namespace {

constexpr std::array<std::size_t, 5> numbersOfRefusals{1, 2, 4, 8, 16};

struct Outcome
{
    /// Of the exception; `void` for an answer.
    std::type_index thrown = typeid(void);
    /// The answer, or the text of the exception.
    std::string text{};

    bool isAnswer() const { return thrown == typeid(void); }
    bool operator==(Outcome const& other) const { return thrown == other.thrown && text == other.text; }
};

std::ostream& operator<<(std::ostream& out, Outcome const& outcome)
{
    return out
           << (outcome.isAnswer() ? "answer \"" + outcome.text + "\""
                                  : describe(outcome.thrown, outcome.text));
}

/// The answer is rendered after `prepare`'s result is gone, which may be a shortage.
template <class Prepare>
Outcome outcomeOf(Trial const& trial, Prepare const& prepare)
{
    try {
        {
            [[maybe_unused]] auto const shortage = prepare();
            trial.operate();
        }
        return {typeid(void), trial.answer()};
    } catch (std::exception const& failure) {
        return {typeid(failure), failure.what()};
    }
}

Outcome outcomeAtRest(Trial const& trial)
{
    return outcomeOf(trial, [] { return 0; });
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

bool isPartOf(std::string const& text, std::string const& whole)
{
    auto const lines = linesOf(text);
    auto const wholeLines = linesOf(whole);
    return std::includes(wholeLines.begin(), wholeLines.end(), lines.begin(), lines.end());
}

class Sweep
{
public:
    Sweep(SweptOperation const& theOperation, Memory theMemory)
        : operation(theOperation),
          memory(theMemory),
          allowed(theMemory == Memory::OpenSSL ? theOperation.openSSL : theOperation.heap)
    {
        auto const trial = operation.begin();
        before = trial.observe();
        atRest = outcomeAtRest(trial);
        after = trial.observe();
        if (memory == Memory::Heap) {
            allowed.failures.push_back({typeid(std::bad_alloc), std::bad_alloc().what()});
        }
    }

    /// Returns the number of runs.
    std::size_t run()
    {
        std::size_t numRuns = 0;
        for (auto const numRefused : numbersOfRefusals) {
            auto const stride = strideFor(numRefused);
            for (auto first = numRefused % stride; runOnce(first, numRefused); first += stride) {
                ++numRuns;
            }
        }
        expectFailuresOccurred(numRuns);
        return numRuns;
    }

private:
    /// Several refusals at once take a wider stride, which has no factor in common with that of one refusal.
    /// So they begin at other allocations. A stride of 1 stays: short operations are swept fully.
    std::size_t strideFor(std::size_t numRefused) const
    {
        constexpr std::size_t factor = 6;
        return numRefused == 1 || allowed.stride == 1 ? allowed.stride : factor * allowed.stride + 1;
    }

    /// Returns whether the operation reached the first refused allocation.
    bool runOnce(std::size_t firstRefused, std::size_t numRefused)
    {
        SCOPED_TRACE(
            "allocation " + std::to_string(firstRefused) + " refused, " + std::to_string(numRefused) +
            " in all");
        // A leak may be a reference to what the operation works on.
        std::optional<MayLeak> mayLeak;
        if (allowed.isLeaky) {
            mayLeak.emplace();
        }
        auto const trial = operation.begin();
        CleanErrorQueue const clean;
        auto const outcome = outcomeOf(trial, [&] { return Shortage(memory, firstRefused, numRefused); });
        mayLeak.reset();
        bool const isShort = Shortage::hasOccurred();
        CleanErrorQueue const cleanAfterwards;
        expectAllowed(outcome);
        if (operation.effect == Effect::WholeOrNone) {
            expectWholeOrNone(trial, outcome);
        } else {
            expectPart(trial, outcome);
        }
        return isShort;
    }

    void expectWholeOrNone(Trial const& trial, Outcome const& outcome) const
    {
        if (!(outcome == atRest)) {
            EXPECT_EQ(trial.observe(), before);
            EXPECT_EQ(outcomeAtRest(trial), atRest);
        }
        EXPECT_EQ(trial.observe(), after);
    }

    void expectPart(Trial const& trial, Outcome const& outcome) const
    {
        if (outcome.isAnswer()) {
            EXPECT_TRUE(isPartOf(trial.observe(), after)) << trial.observe();
        }
        EXPECT_EQ(outcomeAtRest(trial), atRest);
        EXPECT_EQ(trial.observe(), after);
    }

    void expectAllowed(Outcome const& outcome)
    {
        if (outcome == atRest) {
            return;
        }
        bool isAllowed = outcome.isAnswer() && atRest.isAnswer() && allowed.otherAnswers &&
                         allowed.otherAnswers(outcome.text, atRest.text);
        for (std::size_t index = 0; !outcome.isAnswer() && index < allowed.failures.size(); ++index) {
            if (allowed.failures[index].fits(outcome.thrown, outcome.text)) {
                isAllowed = true;
                seen.insert(index);
            }
        }
        EXPECT_TRUE(isAllowed) << outcome;
    }

    /// How each of OpenSSL's allocations fails depends on its version, so one failure is enough there.
    void expectFailuresOccurred(std::size_t numRuns) const
    {
        if (numRuns == 0 || allowed.stride > 1 || allowed.failures.empty() || !atRest.isAnswer()) {
            return;
        }
        auto const numExpected = memory == Memory::Heap ? allowed.failures.size() : 1;
        EXPECT_GE(seen.size(), numExpected) << "a listed failure does not occur";
    }

    SweptOperation const& operation;
    Memory const memory;
    AllowedOutcomes allowed;
    std::string before;
    Outcome atRest;
    std::string after;
    std::set<std::size_t> seen;
};

} // namespace

std::string AllocationFailure::nameOf(testing::TestParamInfo<ParamType> const& info)
{
    std::string name = std::get<SweptOperation>(info.param).name +
                       (std::get<Memory>(info.param) == Memory::OpenSSL ? "_OpenSSL" : "_Heap");
    // What remains of an operator's name must still tell it from others.
    for (auto const& [symbol, word] : {std::pair{"==", "Equal"}, {"!=", "Unequal"}, {"<<", "Stream"}}) {
        auto const position = name.find(symbol);
        if (position != std::string::npos) {
            name.replace(position, 2, word);
        }
    }
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

TEST_P(AllocationFailure, GivesAllowedOutcomeAndKeepsObject)
{
    auto const& [operation, memory] = GetParam();
    auto const numRuns = Sweep(operation, memory).run();
    RecordProperty("runs", static_cast<int>(numRuns));
}

} // namespace foundation::test
