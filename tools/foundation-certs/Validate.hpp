#pragma once

#include "CommonOptions.hpp"
#include "ExitStatus.hpp"

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace foundation::tools {

struct ValidateOptions
{
    std::string certificate;
    TrustOptions trust;
    std::optional<std::string> host;
    std::optional<std::string> address;
    std::string purpose;
    std::vector<std::string> crls;
    bool crlAll = false;
    std::optional<std::string> time;
    bool json = false;
};

/// Adds `validate`, which prints the verdict on a certificate, its chain and advice.
void addValidate(CLI::App& program, Action& action);

} // namespace foundation::tools
