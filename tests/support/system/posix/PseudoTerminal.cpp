#include "support/system/PseudoTerminal.hpp"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// Reads what the child writes. Returns true when the child closes the terminal, false at the deadline.
bool readUntilClosed(int terminal, Clock::time_point deadline, std::string& output)
{
    std::array<char, 4096> buffer;
    for (;;) {
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

} // namespace

TerminalRun runOnTerminal(std::function<int()> const& callable, std::chrono::milliseconds limit)
{
    std::fflush(nullptr); // otherwise the child writes the parent's buffers again
    int terminal = -1;
    auto const child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot run on a pseudo-terminal");
    }
    if (child == 0) {
        runChild(callable);
    }
    TerminalRun run;
    run.finished = readUntilClosed(terminal, Clock::now() + limit, run.output);
    if (!run.finished) {
        kill(child, SIGKILL);
    }
    run.exitCode = waitForExitCode(child);
    close(terminal);
    return run;
}

} // namespace foundation::test
