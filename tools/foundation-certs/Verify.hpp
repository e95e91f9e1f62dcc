#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

namespace foundation::tools {

/// Adds `verify`, which checks the signatures of PKCS#7 signed data and the chains of its signers.
void addVerify(CLI::App& program, Action& action);

} // namespace foundation::tools
