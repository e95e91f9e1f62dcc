#pragma once

#include "reader/ByteSource.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace foundation::toolkit {

/// A file that was opened, or the reason why it could not be.
struct FoundFile
{
    std::string path;
    /// Null after a failure.
    std::unique_ptr<ByteSource> bytes;
    std::string failure;
};

/// The files to read: one that was named, or those in a folder and in the folders inside, in the order of
/// their names. Keeps the names of the folders on the way to the next file, and the targets of links that
/// lead out of the folder.
class FileWalk
{
public:
    explicit FileWalk(std::filesystem::path fileOrFolder);

    /// Returns the next file; nothing at the end.
    std::optional<FoundFile> next();

private:
    struct Folder
    {
        std::filesystem::path path;
        std::vector<std::filesystem::path> names;
        std::size_t position = 0;
    };

    std::optional<FoundFile> begin();
    std::optional<FoundFile> visit(std::filesystem::path const& path);
    std::optional<FoundFile> enter(std::filesystem::path const& path);
    std::optional<FoundFile> follow(std::filesystem::path const& link);

    std::filesystem::path start;
    /// The folder that was named, without links.
    std::filesystem::path realStart;
    std::vector<Folder> folders;
    std::set<std::filesystem::path> targetsOutside;
    bool hasBegun = false;
    bool hasFile = false;
};

} // namespace foundation::toolkit
