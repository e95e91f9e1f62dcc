#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace foundation::test {

struct ProgramRun
{
    /// 127 if there is no such program. 128 plus the signal's number if a signal ended it.
    int exitStatus = -1;
    std::string output;
    std::string errors;
};

/// Runs the program with the literal arguments and the input, and waits for it. Looks up a name without a
/// folder in the PATH. The program's language is English, and its time zone is UTC.
ProgramRun runProgram(
    std::filesystem::path const& program, std::vector<std::string> const& arguments,
    std::string const& input = {});

} // namespace foundation::test
