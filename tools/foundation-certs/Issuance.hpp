#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

namespace foundation::tools {

/// Adds `request`, which makes a key and a certificate request.
void addRequest(CLI::App& program, Action& action);

/// Adds `make`, which makes a key and a certificate that signs itself or that a CA signs.
void addMake(CLI::App& program, Action& action);

} // namespace foundation::tools
