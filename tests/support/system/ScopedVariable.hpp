#pragma once

#include "support/system/System.hpp"

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace foundation::test {

/// Sets an environment variable for a scope. No other thread may read the environment when the scope begins
/// or ends.
class ScopedVariable
{
public:
    ScopedVariable(std::string name, std::string const& value) : variable(std::move(name))
    {
        if (char const* former = std::getenv(variable.c_str())) {
            formerValue = former;
        }
        setVariable(variable, value);
    }

    ~ScopedVariable() { setVariable(variable, formerValue); }

    ScopedVariable(ScopedVariable const&) = delete;
    ScopedVariable& operator=(ScopedVariable const&) = delete;

private:
    std::string variable;
    std::optional<std::string> formerValue;
};

} // namespace foundation::test
