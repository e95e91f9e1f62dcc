#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace foundation::test {

struct TerminalRun
{
    /// False if the child was killed at the time limit, for example while it waited for input.
    bool finished = false;
    /// The callable's result, 99 if it threw, or 128 plus the number of the signal that ended the child.
    int exitCode = -1;
    /// All bytes that were written to the terminal.
    std::string output;
};

/// Runs the callable in a child process on a new pseudo-terminal that never gets input. Its controlling
/// terminal and its standard streams are that terminal. Code that prompts shows in the output or does not
/// finish.
TerminalRun runOnTerminal(
    std::function<int()> const& callable, std::chrono::milliseconds limit = std::chrono::seconds(20));

} // namespace foundation::test
