#pragma once

#include <optional>
#include <string>
#include <vector>

namespace foundation::certificates::posix {

/// The locations where a system may keep its root certificates. The first file that exists is used, or else
/// the first folder that exists, and nothing more.
struct SystemCertificateLocations
{
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

/// The locations that the user names instead. All of them are used.
struct NamedCertificateLocations
{
    /// Empty if no file is named.
    std::string file;
    /// Separated by colons; empty if no folder is named.
    std::string folders;
};

/// Returns the locations where the known systems keep their roots.
SystemCertificateLocations wellKnownLocations();

/// Returns the values of the environment variables SSL_CERT_FILE and SSL_CERT_DIR. Returns nothing if both
/// are unset or empty, or if the process has more privileges than the user who started it: that user must not
/// choose the roots.
std::optional<NamedCertificateLocations> locationsFromEnvironment();

/// Returns the folders of a list separated by colons. Leaves out empty names.
std::vector<std::string> splitFolders(std::string const& list);

} // namespace foundation::certificates::posix
