#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace foundation::test {

struct ProgramRun
{
    /// 128 plus the number of the signal that ended the program.
    int exitStatus = -1;
    std::string output;
    std::string errors;
};

/// Runs the program with the arguments, without a shell's interpretation and with nothing to read, and waits
/// for it.
ProgramRun runProgram(std::filesystem::path const& program, std::vector<std::string> const& arguments);

/// All bytes of the file; empty if it cannot be read.
std::string contentOfFile(std::filesystem::path const& file);

} // namespace foundation::test
