#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace foundation::tools {

/// A file to write. Without a path, it is not written.
struct OutputFile
{
    std::string path;
    std::string_view text;
    bool isSecret = false; ///< only the owner may read the file
};

/// Writes all files, or none if one of them cannot be written.
/// @param force replaces files that exist; otherwise they are a failure
/// @throws std::system_error with the path
void writeFiles(std::vector<OutputFile> const& files, bool force);

} // namespace foundation::tools
