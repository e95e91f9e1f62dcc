#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

#include <memory>

namespace foundation::tools {

/// Returns the parser of the whole program. Parsing the arguments stores in `action` what the chosen
/// subcommand does. Both must live until then. --help, the manual page and the completions come from this
/// description.
std::unique_ptr<CLI::App> makeParser(Action& action);

} // namespace foundation::tools
