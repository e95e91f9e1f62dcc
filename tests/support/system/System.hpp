#pragma once

#include <map>
#include <optional>
#include <string>

/// Functions that each operating system implements differently.
namespace foundation::test {

/// Sets an environment variable, or removes it. No other thread may read the environment at the same time.
void setVariable(std::string const& name, std::optional<std::string> const& value);

/// Returns the name of the environment variable for the system's temporary directory.
std::string temporaryDirectoryVariable();

/// Returns the open descriptors of the process, such as files and sockets. The value names what a descriptor
/// refers to, if the system tells it.
std::map<std::string, std::string> openDescriptors();

} // namespace foundation::test
