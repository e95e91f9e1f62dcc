#pragma once

/// @file
/// Files and folders that stay open from the decision to use them to the end of reading. Nothing can come
/// between the two, and every failure keeps its error number.
///
/// The standard library is not suitable here. The streams of libc++ report a failure to read as the end of
/// the file, and a directory iterator that runs out of memory can end the process.

#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <sys/types.h>

namespace foundation::certificates::posix {

/// Repeats a call that a signal has interrupted.
template <class Call>
auto uninterrupted(Call const& call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// An open file descriptor, or none.
class Descriptor
{
public:
    explicit Descriptor(int openDescriptor = none) : descriptor(openDescriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, none)) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor();

    bool isOpen() const { return descriptor != none; }
    int get() const { return descriptor; }

private:
    static constexpr int none = -1;

    int descriptor;
};

/// A file that is open for reading.
class InputFile
{
public:
    /// Opens the file. Does not wait for the writer of a pipe.
    explicit InputFile(std::string pathOfFile);

    std::string const& path() const { return filePath; }
    /// Returns the error number (errno) of the operation that failed; 0 if none has failed.
    int error() const { return failure; }
    bool isRegular() const;
    /// Whether the file is a device such as /dev/null.
    bool isCharacterDevice() const;
    /// Returns the rest of the file. After a failure, error() is set and the result is incomplete.
    std::string read();

private:
    std::string filePath;
    Descriptor descriptor;
    int failure = 0;
    mode_t mode = 0;
};

/// A folder that is open for listing.
class InputFolder
{
public:
    explicit InputFolder(std::string pathOfFolder);

    std::string const& path() const { return folderPath; }
    /// Returns the error number (errno) of the operation that failed; 0 if none has failed.
    int error() const { return failure; }
    /// Returns the names in the folder, in no order, `.` and `..` included. After a failure, error() is set
    /// and the result is incomplete.
    std::vector<std::string> list();

private:
    std::string folderPath;
    std::unique_ptr<DIR, int (*)(DIR*)> folder;
    int failure;
};

} // namespace foundation::certificates::posix
