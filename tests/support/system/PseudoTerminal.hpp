#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

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

/// What is typed when the prompt has appeared; nothing for an empty prompt.
struct TypedAnswer
{
    std::string prompt;
    std::string text;
};

/// Runs the program, the first of the words, with the other words as arguments on a new pseudo-terminal.
TerminalRun runOnTerminal(
    std::vector<std::string> const& words, TypedAnswer const& answer = {},
    std::chrono::milliseconds limit = std::chrono::seconds(20));

} // namespace foundation::test
