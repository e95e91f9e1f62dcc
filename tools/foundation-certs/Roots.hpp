#pragma once

#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

#include <string>

namespace foundation::tools {

struct RootsOptions
{
    std::string usage = "server";
    bool json = false;
};

/// Adds `roots`, which prints the roots that this system trusts, and which ones the library drops.
void addRoots(CLI::App& program, Action& action);

} // namespace foundation::tools
