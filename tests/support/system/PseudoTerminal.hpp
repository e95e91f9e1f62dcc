#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace foundation::test {

struct TerminalRun
{
    /// False if the program still ran at the time limit, as one does that waits for someone to type; it was
    /// killed.
    bool finished = false;
    /// The callable's result; 99 if it threw; 128 plus the number of the signal that ended it.
    int exitCode = -1;
    /// All bytes written to the terminal.
    std::string output;
};

/// Runs the callable in a child process whose controlling terminal, standard input, output and error are a
/// fresh pseudo-terminal on which nobody types. Code that prompts is found out by its output and by never
/// finishing.
TerminalRun runOnTerminal(
    std::function<int()> const& callable, std::chrono::milliseconds limit = std::chrono::seconds(20));

} // namespace foundation::test
