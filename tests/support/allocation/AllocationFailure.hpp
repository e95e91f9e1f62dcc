#pragma once

#include "support/allocation/Shortage.hpp"
#include "support/assertions/Failures.hpp"
#include "support/operations/Rendering.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/// @file
/// What becomes of each operation when memory runs out, at each of the allocations that it makes.
///
/// A test program lists its operations in a table and instantiates the suite `WithoutMemory` with it. Each
/// operation is run again and again, every time on a new object and with another allocation that fails,
/// until it makes no more. What comes out must be the right answer, one that the table allows instead, or an
/// exception that the table lists; the object is as before; and once there is memory again, the operation
/// answers as if nothing had been. Nothing may be lost, which is for LeakSanitizer to say.

namespace foundation::test {

/// Whether an answer will do in place of the right one.
using Concession = std::function<bool(std::string const& answer, std::string const& rightAnswer)>;

/// What the right answer begins with.
bool beginning(std::string const& answer, std::string const& rightAnswer);
/// Some of the right answer's lines.
bool someLines(std::string const& answer, std::string const& rightAnswer);
/// As many lines as the right answer has, whatever they say: a name that cannot be printed is missing.
bool asManyLines(std::string const& answer, std::string const& rightAnswer);
/// A shorter text: what is written to a stream that finds no memory is lost without an exception.
bool shorter(std::string const& answer, std::string const& rightAnswer);

/// What may come out of an operation beside the right answer, for want of one kind of memory. Where that is
/// C++'s, it goes without saying that `std::bad_alloc` may.
struct Shortcomings
{
    Failures failures{};
    Concession concession{};
    /// Only every allocation of that distance fails. With more than 1, not every failure need be seen.
    std::size_t stride = 1;
    /// OpenSSL loses some of its own memory here if it can get no more. A program with nothing but OpenSSL in
    /// it shows the same.
    bool isLossy = false;
};

/// What an operation may leave behind that came to no end.
enum class Effect
{
    WholeOrNone,
    /// Part of what is there after the operation as a rule; what came to an end may be a part, too. Whoever
    /// repeats it gets the whole.
    Partial
};

/// For operations that fail in these ways and give no answer but the right one.
inline Shortcomings failsWith(Failures failures, std::size_t stride = 1)
{
    return {std::move(failures), {}, stride};
}

inline Shortcomings failsWith(Failure failure)
{
    return failsWith(Failures{std::move(failure)});
}

/// For operations that are too long to have each of their allocations fail.
inline Shortcomings withStride(std::size_t stride, Shortcomings shortcomings = {})
{
    shortcomings.stride = stride;
    return shortcomings;
}

/// An object, what is to be done with it, what came of that, and what an observer sees of the object.
struct Trial
{
    std::function<void()> operate;
    std::function<std::string()> answer;
    std::function<std::string()> observe;
};

struct OperationWithoutMemory
{
    std::string name;
    std::function<Trial()> begin;
    Shortcomings openSSL;
    Shortcomings heap;
    Effect effect;
};

inline void PrintTo(OperationWithoutMemory const& operation, std::ostream* out)
{
    *out << operation.name;
}

/// A trial that keeps what the operation returns and renders it only when there is memory again.
template <class Object, class Operation>
Trial trialOf(Object&& made, Operation const& operation)
{
    using Answer = std::decay_t<std::invoke_result_t<Operation, Object&>>;
    struct State
    {
        Object object;
        std::optional<Answer> answer;
    };
    auto const state = std::make_shared<State>(State{std::move(made), std::nullopt});
    return {
        [=] { state->answer.emplace(operation(state->object)); }, [=] { return rendered(*state->answer); },
        [=] { return rendered(std::as_const(state->object)); }};
}

/// For objects that no operation of a table can change: there is nothing to observe.
struct Unchanging
{};

inline std::string rendered(Unchanging const& /*object*/)
{
    return "";
}

/// An object that the source has been assigned to.
template <class Object>
Object assigned(Object const& source)
{
    Object target;
    target = source;
    return target;
}

/// One row of a table of operations on objects of one class. An operation returns its answer, or whatever
/// shows what it did.
template <class Object>
struct OperationOn
{
    template <class Operation>
    OperationOn(
        std::string theName, Operation operation, Shortcomings theOpenSSL = {}, Shortcomings theHeap = {},
        Effect theEffect = Effect::WholeOrNone)
        : name(std::move(theName)),
          begin([=](Object&& object) { return trialOf(std::move(object), operation); }),
          openSSL(std::move(theOpenSSL)),
          heap(std::move(theHeap)),
          effect(theEffect)
    {}

    std::string name;
    std::function<Trial(Object&&)> begin;
    Shortcomings openSSL;
    Shortcomings heap;
    Effect effect;
};

/// The table as the suite takes it, with the maker of the objects, which are new for each run.
template <class Object>
std::vector<OperationWithoutMemory> operationsOn(
    std::string const& objectName, std::function<Object()> const& make,
    std::vector<OperationOn<Object>> const& table)
{
    std::vector<OperationWithoutMemory> operations;
    for (auto const& row : table) {
        operations.push_back(
            {objectName + row.name, [make, begin = row.begin] { return begin(make()); }, row.openSSL,
             row.heap, row.effect});
    }
    return operations;
}

class WithoutMemory : public testing::TestWithParam<std::tuple<OperationWithoutMemory, Memory>>
{
public:
    static std::string nameOf(testing::TestParamInfo<ParamType> const& info);
};

} // namespace foundation::test

/// Runs the suite with the operations of the table, and with either kind of memory.
#define FOUNDATION_TEST_WITHOUT_MEMORY(name, operations)                                                     \
    INSTANTIATE_TEST_SUITE_P(                                                                                \
        name, WithoutMemory,                                                                                 \
        testing::Combine(testing::ValuesIn(operations), testing::Values(Memory::OpenSSL, Memory::Heap)),     \
        WithoutMemory::nameOf)
