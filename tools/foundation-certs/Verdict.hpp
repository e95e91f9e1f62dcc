#pragma once

#include "Json.hpp"

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <string>
#include <vector>

/// Verdicts on chains, as several subcommands write them.
namespace foundation::tools {

/// Returns the subjects as one line: "Chain: leaf <- intermediate <- root".
std::string chainLine(std::vector<toolkit::Certificate> const& chain);

/// Returns the verdict, the chain and the advice as lines.
std::string verdictLines(toolkit::PathResult const& result);

/// Adds the verdict's members to the object.
void addVerdict(JsonObject& record, toolkit::PathResult const& result);

} // namespace foundation::tools
