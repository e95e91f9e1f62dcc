#pragma once

#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace foundation::test {

/// Returns the objects that --json writes, one for each line.
inline std::vector<nlohmann::json> jsonLines(std::string const& output)
{
    std::vector<nlohmann::json> records;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        records.push_back(nlohmann::json::parse(line));
    }
    return records;
}

} // namespace foundation::test
