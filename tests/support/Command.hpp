#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace foundation::test {

struct CommandResult
{
    /// 127 if there is no such command; 128 and the number of the signal that ended it.
    int exitCode = -1;
    /// Standard output and standard error, in the order of writing.
    std::string output;
};

/// Runs a program with the given arguments, each taken literally, and nothing on its standard input. Its
/// language is English and its time zone UTC.
inline CommandResult runCommand(std::vector<std::string> const& arguments)
{
    std::string line = "LC_ALL=C TZ=UTC";
    for (auto const& argument : arguments) {
        line += " '";
        for (char const character : argument) {
            line += character == '\'' ? std::string("'\\''") : std::string(1, character);
        }
        line += "'";
    }
    FILE* const pipe = popen((line + " </dev/null 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot start " + arguments.front());
    }
    CommandResult result;
    std::array<char, 4096> buffer{};
    while (std::size_t const count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        result.output.append(buffer.data(), count);
    }
    int const status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

} // namespace foundation::test
