#pragma once

#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <fstream>
#include <string>
#include <vector>

namespace foundation::test {

struct MeasuredRun
{
    ProgramRun run;
    double seconds = 0; ///< of processor time
    long peak = 0;      ///< of memory, in bytes
};

/// Runs the program foundation-certs as runProgram does.
inline MeasuredRun measuredRun(std::vector<std::string> arguments, std::string const& input = {})
{
    TemporaryFolder const folder;
    auto const resources = folder.path() / "resources";
    arguments.insert(arguments.begin(), {resources.string(), FOUNDATION_CERTS_PROGRAM});
    MeasuredRun result;
    result.run = runProgram(MEASURE_PROGRAM, arguments, input);
    double microseconds = 0;
    std::ifstream(resources) >> microseconds >> result.peak;
    result.seconds = microseconds / 1e6;
    return result;
}

} // namespace foundation::test
