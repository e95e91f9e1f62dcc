#include "truststore/windows/WindowsHeader.hpp"

#include "support/system/RunProgram.hpp"

#include "support/Text.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <memory>

namespace foundation::test {

namespace {

struct CloseHandleOf
{
    void operator()(void* handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseHandleOf>;

/// Quotes the text as one argument of a command line. Escapes quotation marks and the backslashes before
/// them.
std::string quoted(std::string const& text)
{
    std::string result = "\"";
    std::size_t numBackslashes = 0;
    for (char const character : text) {
        if (character == '"') {
            result.append(numBackslashes + 1, '\\');
        }
        numBackslashes = character == '\\' ? numBackslashes + 1 : 0;
        result += character;
    }
    return result.append(numBackslashes, '\\') + "\"";
}

/// Opens a file that the program inherits.
Handle openForChild(std::string const& file, DWORD access, DWORD disposition)
{
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    return Handle(CreateFileA(
        file.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, disposition,
        FILE_ATTRIBUTE_NORMAL, nullptr));
}

int exitStatusOf(std::string command, HANDLE input, HANDLE output, HANDLE errors)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output;
    startup.hStdError = errors;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(
            nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        return 127;
    }
    Handle const started(process.hProcess);
    Handle const thread(process.hThread);
    DWORD status = 0;
    WaitForSingleObject(started.get(), INFINITE);
    GetExitCodeProcess(started.get(), &status);
    return static_cast<int>(status);
}

/// Returns the program's output without the carriage return that Windows writes before each line feed.
std::string textOfFile(std::filesystem::path const& file)
{
    std::string text = contentOfFile(file);
    for (auto end = text.find("\r\n"); end != std::string::npos; end = text.find("\r\n", end)) {
        text.erase(end, 1);
    }
    return text;
}

} // namespace

ProgramRun runProgram(
    std::filesystem::path const& program, std::vector<std::string> const& arguments, std::string const& input)
{
    TemporaryFolder const folder;
    auto const inputFile = folder.write("input", input);
    auto const output = folder.path() / "output";
    auto const errors = folder.path() / "errors";
    std::string command = quoted(program.string());
    for (auto const& argument : arguments) {
        command += " " + quoted(argument);
    }
    ProgramRun run;
    {
        ScopedVariable const language("LC_ALL", "C");
        ScopedVariable const timeZone("TZ", "UTC");
        auto const in = openForChild(inputFile.string(), GENERIC_READ, OPEN_EXISTING);
        auto const out = openForChild(output.string(), GENERIC_WRITE, CREATE_ALWAYS);
        auto const err = openForChild(errors.string(), GENERIC_WRITE, CREATE_ALWAYS);
        run.exitStatus = exitStatusOf(command, in.get(), out.get(), err.get());
    }
    run.output = textOfFile(output);
    run.errors = textOfFile(errors);
    return run;
}

} // namespace foundation::test
