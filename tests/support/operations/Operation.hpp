#pragma once

#include "support/operations/AllowedOutcomes.hpp"
#include "support/operations/Objects.hpp"
#include "support/operations/Rendering.hpp"

#include <openssl/opensslv.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

/// @file
/// One row of the table of operations, and the functions that make rows.

namespace foundation::test {

enum class Access
{
    Reads,
    Changes
};

/// What becomes of the entries in OpenSSL's queue that an operation finds when it starts, if it succeeds.
enum class ForeignErrors
{
    /// They stay, and nothing is added.
    Stay,
    /// The queue is empty afterwards.
    Go
};

/// One run of an operation. Keeps the answer and renders it later: a test that refuses allocations renders it
/// when memory is back.
template <class Object>
class Call
{
public:
    virtual ~Call() = default;
    virtual void run(Object& object, Objects const& others) = 0;
    virtual std::string answer() const = 0;
};

/// One public operation on objects of one class.
template <class Object>
struct Operation
{
    /// As in the list of exported symbols, for example `X509Certificate::getKeySize`. A comma and a remark
    /// follow where a second row calls the same function in another way.
    std::string name;
    std::function<std::unique_ptr<Call<Object>>()> makeCall;
    Access access = Access::Reads;
    /// Uses other objects, too.
    bool usesOthers = false;
    /// Takes too long to run thousands of times.
    bool isCostly = false;
    /// The exception on a default object; without one the operation answers there.
    std::optional<Failure> onDefaultObject{};
    /// Throws that the object is uninitialized after its content was moved away.
    bool refusesMovedFrom = true;
    ForeignErrors foreignErrors = ForeignErrors::Stay;
    AllowedOutcomes openSSL{};
    AllowedOutcomes heap{};
    Effect effect = Effect::WholeOrNone;

    /// Runs the operation and returns its answer as a text.
    std::string answer(Object& object, Objects const& others) const
    {
        auto const call = makeCall();
        call->run(object, others);
        return call->answer();
    }

    // Each returns the row with one field changed.

    Operation throwsOnDefaultObject(Failure failure) const
    {
        return with([&](Operation& row) { row.onDefaultObject = std::move(failure); });
    }
    Operation acceptsMovedFrom() const
    {
        return with([](Operation& row) { row.refusesMovedFrom = false; });
    }
    Operation dropsForeignErrors() const
    {
        return with([](Operation& row) { row.foreignErrors = ForeignErrors::Go; });
    }
    /// For an operation with a passphrase: the code for PBES2 of OpenSSL 4.0 removes one mark too many.
    Operation usesPassphrase() const { return OPENSSL_VERSION_MAJOR >= 4 ? dropsForeignErrors() : *this; }
    Operation costly() const
    {
        return with([](Operation& row) { row.isCostly = true; });
    }
    Operation mayLeavePart() const
    {
        return with([](Operation& row) { row.effect = Effect::Partial; });
    }
    Operation withoutOpenSSLMemory(AllowedOutcomes outcomes) const
    {
        return with([&](Operation& row) { row.openSSL = std::move(outcomes); });
    }
    Operation withoutHeap(AllowedOutcomes outcomes) const
    {
        return with([&](Operation& row) { row.heap = std::move(outcomes); });
    }

    template <class Change>
    Operation with(Change const& change) const
    {
        auto changed = *this;
        change(changed);
        return changed;
    }
};

namespace detail {

template <class Object, class Function>
class CallOf : public Call<Object>
{
public:
    explicit CallOf(Function theFunction) : function(std::move(theFunction)) {}

    void run(Object& object, Objects const& others) override
    {
        if constexpr (std::is_void_v<Result>) {
            function(object, others);
            result.emplace(true);
        } else {
            result.emplace(function(object, others));
        }
    }

    std::string answer() const override { return rendered(*result); }

private:
    using Result = std::invoke_result_t<Function const&, Object&, Objects const&>;

    Function function;
    std::optional<std::conditional_t<std::is_void_v<Result>, bool, std::decay_t<Result>>> result;
};

template <class Object, class Function>
Operation<Object> makeOperation(std::string name, Function const& function)
{
    Operation<Object> operation;
    operation.name = std::move(name);
    operation.makeCall = [function] { return std::make_unique<CallOf<Object, Function>>(function); };
    return operation;
}

} // namespace detail

/// Reads the object alone.
template <class Object, class Function>
Operation<Object> query(std::string name, Function const& function)
{
    return detail::makeOperation<Object>(std::move(name), [function](Object& object, Objects const&) {
        return function(std::as_const(object));
    });
}

/// Reads the object and others.
template <class Object, class Function>
Operation<Object> queryWithOthers(std::string name, Function const& function)
{
    auto operation =
        detail::makeOperation<Object>(std::move(name), [function](Object& object, Objects const& others) {
            return function(std::as_const(object), others);
        });
    operation.usesOthers = true;
    return operation;
}

/// Changes the object.
template <class Object, class Function>
Operation<Object> change(std::string name, Function const& function)
{
    auto operation = detail::makeOperation<Object>(std::move(name), function);
    operation.access = Access::Changes;
    operation.usesOthers = true;
    return operation;
}

} // namespace foundation::test

/// A row for a query without arguments.
#define FOUNDATION_TEST_QUERY(Class, name)                                                                   \
    query<Class>(#Class "::" #name, [](Class const& object) { return object.name(); })
