#pragma once

#include <algorithm>
#include <functional>

namespace foundation::tools {

/// The exit status of the program.
enum class ExitStatus : int
{
    Good = 0,
    Finding = 1, ///< not valid, expiring or refused
    BadInput = 2 ///< wrong use, or an input or output that fails
};

inline ExitStatus worse(ExitStatus left, ExitStatus right)
{
    return std::max(left, right);
}

/// What a subcommand does once its arguments are parsed. An exception becomes one line on standard error and
/// the status BadInput.
using Action = std::function<ExitStatus()>;

} // namespace foundation::tools
