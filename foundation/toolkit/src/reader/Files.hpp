#pragma once

/// @file
/// Files and folders, as the operating system provides them.

#include "reader/ByteSource.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <vector>

namespace foundation::toolkit {

/// The most bytes that are read from a character device, which may never end.
constexpr std::size_t mostBytesOfDevice = std::size_t(64) * 1024 * 1024;

/// Which files to open.
enum class FileChoice
{
    AnyFile,
    /// Leaves out devices, sockets and FIFOs, and does not wait for them.
    RegularFile
};

/// Opens the file; returns null for a file of another kind.
/// @throws ReadFailure "The file cannot be opened: " and the system's reason
std::unique_ptr<ByteSource> openFile(std::filesystem::path const& file, FileChoice choice);

/// Returns the names in the folder, without `.` and `..`, in ascending order of their characters.
/// @throws ReadFailure "The folder cannot be read: " and the system's reason
std::vector<std::filesystem::path> namesIn(std::filesystem::path const& folder);

} // namespace foundation::toolkit
