#pragma once

#include <CLI/CLI.hpp>

#include <string>

/// Pages and scripts that are made from the description of the arguments, the source of --help.
namespace foundation::tools {

/// Returns the manual page, for section 1.
std::string manualPage(CLI::App const& program);

/// Returns the completions for bash.
std::string bashCompletions(CLI::App const& program);

/// Returns the completions for zsh.
std::string zshCompletions(CLI::App const& program);

} // namespace foundation::tools
