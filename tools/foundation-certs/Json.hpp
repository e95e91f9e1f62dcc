#pragma once

#include <nlohmann/json.hpp>

#include <string>

/// The output of --json: one object for each line. docs/foundation-certs-json.md is its description.
namespace foundation::tools {

using Json = nlohmann::ordered_json;

/// Starts an object of the subcommand: {"schema": "foundation-certs/inspect/1"}.
Json newRecord(std::string const& subcommand);

/// Returns the object as one line. Escapes what is not UTF-8.
std::string jsonLine(Json record);

} // namespace foundation::tools
