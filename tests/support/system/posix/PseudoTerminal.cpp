#include "support/system/PseudoTerminal.hpp"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

// forkpty
#if __has_include(<pty.h>)
#include <pty.h> // Linux
#elif __has_include(<util.h>)
#include <util.h> // macOS, NetBSD, OpenBSD
#else
#include <libutil.h> // FreeBSD, after <sys/types.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

namespace foundation::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int exitCodeAfterThrow = 99;

[[noreturn]] void runChild(std::function<int()> const& callable)
{
    int code = exitCodeAfterThrow;
    try {
        code = callable();
    } catch (std::exception const& thrown) {
        std::fputs(thrown.what(), stdout);
    }
    std::fflush(nullptr);
    _exit(code); // runs no exit handlers of the parent's test program
}

int pollTimeout(Clock::time_point deadline)
{
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

/// Reads what the child writes, and answers its prompt. Returns true when the child closes the terminal,
/// false at the deadline.
bool readUntilClosed(int terminal, Clock::time_point deadline, TypedAnswer const& answer, std::string& output)
{
    std::array<char, 4096> buffer;
    for (bool isAnswered = answer.prompt.empty();;) {
        if (!isAnswered && output.find(answer.prompt) != std::string::npos) {
            auto const size = static_cast<ssize_t>(answer.text.size());
            isAnswered = write(terminal, answer.text.data(), answer.text.size()) == size;
        }
        pollfd ready{terminal, POLLIN, 0};
        auto const count = poll(&ready, 1, pollTimeout(deadline));
        if (count == 0) {
            return false;
        }
        auto const size = count < 0 ? -1 : read(terminal, buffer.data(), buffer.size());
        if (size > 0) {
            output.append(buffer.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return true; // Linux reports a closed terminal as EIO
        }
    }
}

int waitForExitCode(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

[[noreturn]] void replaceWith(std::vector<std::string> const& words)
{
    std::vector<char*> pointers;
    for (auto const& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    execvp(pointers.front(), pointers.data());
    _exit(127);
}

/// Runs a function that does not return on a new pseudo-terminal.
template <class Function>
TerminalRun run(Function const& runsInChild, TypedAnswer const& answer, std::chrono::milliseconds limit)
{
    std::fflush(nullptr); // otherwise the child writes the parent's buffers again
    int terminal = -1;
    auto const child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot run on a pseudo-terminal");
    }
    if (child == 0) {
        runsInChild();
    }
    TerminalRun result;
    result.finished = readUntilClosed(terminal, Clock::now() + limit, answer, result.output);
    if (!result.finished) {
        kill(child, SIGKILL);
    }
    result.exitCode = waitForExitCode(child);
    close(terminal);
    return result;
}

} // namespace

TerminalRun runOnTerminal(std::function<int()> const& callable, std::chrono::milliseconds limit)
{
    return run([&] { runChild(callable); }, {}, limit);
}

TerminalRun runOnTerminal(
    std::vector<std::string> const& words, TypedAnswer const& answer, std::chrono::milliseconds limit)
{
    return run([&] { replaceWith(words); }, answer, limit);
}

} // namespace foundation::test
