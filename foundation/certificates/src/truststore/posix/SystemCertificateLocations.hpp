#pragma once

#include <string>
#include <vector>

namespace foundation::certificates::posix {

/// The places where a system may keep its root certificates. The first file that exists is used, or else the
/// first folder that exists, and nothing more.
struct SystemCertificateLocations
{
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

/// The places where the known systems keep their roots.
SystemCertificateLocations wellKnownLocations();

} // namespace foundation::certificates::posix
