#pragma once

#include "ExitStatus.hpp"
#include "ManyInputs.hpp"

#include <CLI/CLI.hpp>

#include <string>

namespace foundation::tools {

struct ExpiryOptions
{
    InputOptions inputs;
    std::string within = "0d";
    bool json = false;
};

/// Adds `expiry`, which prints how long certificates are still valid, the shortest first.
void addExpiry(CLI::App& program, Action& action);

} // namespace foundation::tools
