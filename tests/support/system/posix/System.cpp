#include "support/system/System.hpp"

#include <cstdlib>
#include <filesystem>

namespace foundation::test {

void setVariable(std::string const& name, std::optional<std::string> const& value)
{
    if (value) {
        setenv(name.c_str(), value->c_str(), 1);
    } else {
        unsetenv(name.c_str());
    }
}

std::string temporaryDirectoryVariable()
{
    return "TMPDIR";
}

std::map<std::string, std::string> openDescriptors()
{
    std::map<std::string, std::string> targets;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        targets[entry.path().filename().string()] = std::filesystem::read_symlink(entry.path()).string();
    }
    return targets;
}

} // namespace foundation::test
