#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace foundation::test {

/// Returns the objects that --json writes, one for each line. Expects that docs/foundation-certs-json.md
/// describes their members, under the heading of the subcommand.
std::vector<nlohmann::json> jsonLines(std::string const& output, std::string const& subcommand);

} // namespace foundation::test
