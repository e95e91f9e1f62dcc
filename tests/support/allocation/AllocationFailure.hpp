#pragma once

#include "support/allocation/Shortage.hpp"
#include "support/operations/AllowedOutcomes.hpp"
#include "support/operations/OperationTable.hpp"

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
/// Sweeps an operation: runs it again and again, each time on a new object, and refuses 1, 2, 4, 8 or 16
/// consecutive allocations, beginning with each allocation that it makes.
///
/// The outcome must be the one at rest, another answer that the operation allows, or an exception that it
/// lists. The object must be unchanged, and a repetition with enough memory must give the outcome at rest.
/// LeakSanitizer checks that nothing leaks.

namespace foundation::test {

/// An object, an operation on it, the operation's answer, and a rendering of the object's state.
struct Trial
{
    std::function<void()> operate;
    std::function<std::string()> answer;
    std::function<std::string()> observe;
};

/// An operation with the outcomes that it may have under shortage.
struct SweptOperation
{
    std::string name;
    std::function<Trial()> begin;
    AllowedOutcomes openSSL;
    AllowedOutcomes heap;
    Effect effect;
};

inline void PrintTo(SweptOperation const& operation, std::ostream* out)
{
    *out << operation.name;
}

/// Returns a trial that renders the operation's result only after the shortage.
template <class Object, class Function>
Trial trialOf(Object&& made, Function const& operation)
{
    using Answer = std::decay_t<std::invoke_result_t<Function, Object&>>;
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

/// Base of objects that no operation of a suite can change: there is nothing to observe.
struct Unchanging
{};

inline std::string rendered(Unchanging const& /*object*/)
{
    return "";
}

/// One operation on objects of one class, for operations that are no rows of the table of public operations.
template <class Object>
struct OperationOn
{
    template <class Function>
    OperationOn(
        std::string theName, Function operation, AllowedOutcomes theOpenSSL = {},
        AllowedOutcomes theHeap = {}, Effect theEffect = Effect::WholeOrNone)
        : name(std::move(theName)),
          begin([=](Object&& object) { return trialOf(std::move(object), operation); }),
          openSSL(std::move(theOpenSSL)),
          heap(std::move(theHeap)),
          effect(theEffect)
    {}

    std::string name;
    std::function<Trial(Object&&)> begin;
    AllowedOutcomes openSSL;
    AllowedOutcomes heap;
    Effect effect;
};

/// Returns the operations, each on a new object for every run.
template <class Object>
std::vector<SweptOperation> operationsOn(
    std::string const& prefix, std::function<Object()> const& make,
    std::vector<OperationOn<Object>> const& operations)
{
    std::vector<SweptOperation> swept;
    for (auto const& operation : operations) {
        swept.push_back(
            {prefix + operation.name, [make, begin = operation.begin] { return begin(make()); },
             operation.openSSL, operation.heap, operation.effect});
    }
    return swept;
}

/// Returns the fast rows of the table of public operations, each on a new object for every run.
template <class Object>
std::vector<SweptOperation> tableOn(
    std::function<Object()> const& make, std::vector<Operation<Object>> const& table,
    std::function<std::string(Object const&)> const& observe = [](Object const& object) {
        return rendered(object);
    })
{
    std::vector<SweptOperation> swept;
    for (auto const& operation : table) {
        if (operation.isCostly) {
            continue;
        }
        auto const begin = [make, observe, makeCall = operation.makeCall]() -> Trial {
            auto const object = std::make_shared<Object>(make());
            std::shared_ptr<Call<Object>> const call = makeCall();
            return {
                [=] { call->run(*object, sharedObjects()); }, [=] { return call->answer(); },
                [=] { return observe(*object); }};
        };
        swept.push_back({operation.name, begin, operation.openSSL, operation.heap, operation.effect});
    }
    return swept;
}

class AllocationFailure : public testing::TestWithParam<std::tuple<SweptOperation, Memory>>
{
public:
    static std::string nameOf(testing::TestParamInfo<ParamType> const& info);
};

} // namespace foundation::test

/// Sweeps the operations with each kind of memory.
#define FOUNDATION_TEST_ALLOCATION_FAILURE(name, operations)                                                 \
    INSTANTIATE_TEST_SUITE_P(                                                                                \
        name, AllocationFailure,                                                                             \
        testing::Combine(testing::ValuesIn(operations), testing::Values(Memory::OpenSSL, Memory::Heap)),     \
        AllocationFailure::nameOf)
