#include "Terminal.hpp"

#include <cstdlib>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace foundation::tools {

namespace {

bool hasColour()
{
    static bool const result = [] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
        char const* const refusal = std::getenv("NO_COLOR");
        return isTerminal(stdout) && (refusal == nullptr || *refusal == '\0');
    }();
    return result;
}

std::string marked(char const* code, std::string const& text)
{
    return hasColour() ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
}

} // namespace

bool isTerminal(std::FILE* stream)
{
#ifdef _WIN32
    return _isatty(_fileno(stream)) != 0;
#else
    return isatty(fileno(stream)) != 0;
#endif
}

std::string inBold(std::string const& text)
{
    return marked("1", text);
}

std::string inGreen(std::string const& text)
{
    return marked("32", text);
}

std::string inRed(std::string const& text)
{
    return marked("31", text);
}

} // namespace foundation::tools
