#pragma once

#include "ExitStatus.hpp"
#include "ManyInputs.hpp"

#include <CLI/CLI.hpp>

namespace foundation::tools {

struct InspectOptions
{
    InputOptions inputs;
    bool json = false;
};

/// Adds `inspect`, which prints what certificates contain, and why the library refuses one.
void addInspect(CLI::App& program, Action& action);

} // namespace foundation::tools
