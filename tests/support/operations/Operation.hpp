#pragma once

#include <functional>
#include <string>

namespace foundation::test {

enum class OnDefaultObject
{
    Answers,
    /// Throws, since there is nothing to work on.
    RefusesForWantOfContent
};

/// An operation of a handle class, for tests that run all of them.
template <class Handle>
struct Operation
{
    std::string name;
    std::function<void(Handle&)> run;
    OnDefaultObject onDefaultObject = OnDefaultObject::RefusesForWantOfContent;
};

} // namespace foundation::test
