#include "truststore/windows/WindowsHeader.hpp"

#include "support/system/System.hpp"

#include <cstdlib>

namespace foundation::test {

void setVariable(std::string const& name, std::optional<std::string> const& value)
{
    _putenv_s(name.c_str(), value.value_or("").c_str()); // an empty value removes it
}

std::string temporaryDirectoryVariable()
{
    return "TMP";
}

std::map<std::string, std::string> openDescriptors()
{
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return {{"handles", std::to_string(count)}};
}

} // namespace foundation::test
