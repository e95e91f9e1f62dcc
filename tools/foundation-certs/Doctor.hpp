#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

namespace foundation::tools {

/// Adds `doctor`, which prints why TLS clients refuse a chain or a server, and how to mend that.
void addDoctor(CLI::App& program, Action& action);

} // namespace foundation::tools
