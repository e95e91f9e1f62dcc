#include "reader/FileWalk.hpp"

#include "reader/Files.hpp"

#include <algorithm>
#include <system_error>
#include <utility>

namespace foundation::toolkit {

namespace {

namespace fs = std::filesystem;

FoundFile failureOf(fs::path const& path, std::string reason)
{
    return {path.string(), nullptr, std::move(reason)};
}

/// Opens the file; returns nothing for a file that is not to be read.
std::optional<FoundFile> opened(fs::path const& path, FileChoice choice)
{
    FoundFile found{path.string(), nullptr, {}};
    try {
        found.bytes = openFile(path, choice);
        return found.bytes == nullptr ? std::nullopt : std::optional(std::move(found));
    } catch (ReadFailure const& failure) {
        found.failure = failure.what();
        return found;
    }
}

/// Whether it is a device, a socket or a FIFO. What does not exist is not, and cannot be opened.
bool isSpecial(fs::file_status const& status)
{
    return fs::exists(status) && !fs::is_regular_file(status);
}

/// Nothing is inside of an empty path, which is a folder that could not be resolved.
bool isInside(fs::path const& path, fs::path const& folder)
{
    auto const [endOfFolder, rest] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    static_cast<void>(rest);
    return !folder.empty() && endOfFolder == folder.end();
}

} // namespace

FileWalk::FileWalk(fs::path fileOrFolder) : start(std::move(fileOrFolder)) {}

std::optional<FoundFile> FileWalk::next()
{
    if (!hasBegun) {
        auto found = begin();
        hasBegun = true;
        if (found) {
            return found;
        }
    }
    while (!folders.empty()) {
        std::size_t const depth = folders.size();
        Folder const& folder = folders.back();
        if (folder.position == folder.names.size()) {
            folders.pop_back();
            continue;
        }
        auto found = visit(folder.path / folder.names[folder.position]);
        ++folders[depth - 1].position; // not of a folder that the visit has entered
        if (found) {
            hasFile = true;
            return found;
        }
    }
    if (hasFile) {
        return std::nullopt;
    }
    auto failure = failureOf(start, "The folder holds no file.");
    hasFile = true;
    return failure;
}

/// Returns the file that was named, or enters the folder.
std::optional<FoundFile> FileWalk::begin()
{
    std::error_code error;
    if (!fs::is_directory(fs::status(start, error))) {
        auto found = opened(start, FileChoice::AnyFile);
        hasFile = true;
        return found;
    }
    realStart = fs::canonical(start, error);
    auto failure = enter(start);
    hasFile = failure.has_value();
    return failure;
}

/// Returns the file at the path. Returns nothing for a folder, which it enters, and for what is to be
/// skipped.
std::optional<FoundFile> FileWalk::visit(fs::path const& path)
{
    std::error_code error;
    auto const status = fs::symlink_status(path, error);
    if (fs::is_symlink(status)) {
        return follow(path);
    }
    if (fs::is_directory(status)) {
        return enter(path);
    }
    return isSpecial(status) ? std::nullopt : opened(path, FileChoice::RegularFile);
}

/// Returns the target of a link, if it is a file that is read nowhere else.
std::optional<FoundFile> FileWalk::follow(fs::path const& link)
{
    std::error_code error;
    auto const status = fs::status(link, error);
    if (fs::is_directory(status) || isSpecial(status)) {
        return std::nullopt;
    }
    fs::path target = fs::canonical(link, error);
    if (!error && (isInside(target, realStart) || targetsOutside.count(target) != 0)) {
        return std::nullopt;
    }
    auto found = opened(link, FileChoice::RegularFile);
    targetsOutside.insert(std::move(target));
    return found;
}

/// Goes on with the content of the folder. Returns a failure if it cannot be read.
std::optional<FoundFile> FileWalk::enter(fs::path const& path)
{
    try {
        folders.push_back({path, namesIn(path), 0});
        return std::nullopt;
    } catch (ReadFailure const& failure) {
        return failureOf(path, failure.what());
    }
}

} // namespace foundation::toolkit
