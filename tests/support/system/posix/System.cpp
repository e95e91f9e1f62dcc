#include "support/system/System.hpp"

#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

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
#ifdef __linux__
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        targets[entry.path().filename().string()] = std::filesystem::read_symlink(entry.path()).string();
    }
#else
    // Not every system lists all descriptors in /dev/fd, and none names their targets.
    for (int descriptor = 0; descriptor < getdtablesize(); ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            targets[std::to_string(descriptor)] = "";
        }
    }
#endif
    return targets;
}

} // namespace foundation::test
