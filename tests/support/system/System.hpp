#pragma once

#include <map>
#include <optional>
#include <string>

/// What each operating system gives in a way of its own.
namespace foundation::test {

/// Sets an environment variable, or removes it. No other thread may read the environment meanwhile.
void setVariable(std::string const& name, std::optional<std::string> const& value);

/// The environment variable that says where the system's temporary directory is.
std::string temporaryDirectoryVariable();

/// What the process has open: files, sockets and the like, and what each stands for, as far as that can be
/// told.
std::map<std::string, std::string> openDescriptors();

} // namespace foundation::test
