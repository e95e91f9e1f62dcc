#include "support/system/RunProgram.hpp"

#include "support/Text.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <sys/wait.h>

#include <cstdlib>

namespace foundation::test {

namespace {

/// Quotes the text as one word of the shell.
std::string quoted(std::string const& text)
{
    std::string result = "'";
    for (char const character : text) {
        result += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return result + "'";
}

} // namespace

ProgramRun runProgram(
    std::filesystem::path const& program, std::vector<std::string> const& arguments, std::string const& input)
{
    TemporaryFolder const folder;
    auto const inputFile = folder.write("input", input);
    auto const output = folder.path() / "output";
    auto const errors = folder.path() / "errors";
    std::string command = "LC_ALL=C TZ=UTC " + quoted(program.string());
    for (auto const& argument : arguments) {
        command += " " + quoted(argument);
    }
    command +=
        " <" + quoted(inputFile.string()) + " >" + quoted(output.string()) + " 2>" + quoted(errors.string());
    int const status = std::system(command.c_str()); // NOLINT(cert-env33-c): the shell redirects
    ProgramRun run;
    run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.output = contentOfFile(output);
    run.errors = contentOfFile(errors);
    return run;
}

} // namespace foundation::test
