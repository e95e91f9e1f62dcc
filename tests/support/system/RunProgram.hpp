#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace foundation::test {

struct ProgramRun
{
    /// 127 if there is no such program; 128 and the number of the signal that ended it.
    int exitStatus = -1;
    std::string output;
    std::string errors;
};

/// Runs the program, with each argument taken literally and nothing to read, and waits for it. A name without
/// a folder is looked up in the PATH. The program's language is English and its time zone UTC.
ProgramRun runProgram(std::filesystem::path const& program, std::vector<std::string> const& arguments);

} // namespace foundation::test
