#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

namespace foundation::tools {

/// Adds `unpack`, which writes the contents of a PKCS#12 bundle to PEM files.
void addUnpack(CLI::App& program, Action& action);

} // namespace foundation::tools
