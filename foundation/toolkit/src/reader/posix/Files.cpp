#include "reader/Files.hpp"

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// A directory iterator of the standard library can end the process if it runs out of memory, and the streams
// of libc++ report a failure to read as the end of the file.

namespace foundation::toolkit {

namespace {

constexpr char const couldNotOpen[] = "The file cannot be opened: ";

std::string reasonOf(int error)
{
    return std::generic_category().message(error);
}

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

class FileSource : public ByteSource
{
public:
    FileSource(std::filesystem::path const& file, int flags)
        : descriptor(uninterrupted([&] { return open(file.c_str(), flags); }))
    {
        if (descriptor < 0) {
            throw ReadFailure(couldNotOpen + reasonOf(errno));
        }
    }
    FileSource(FileSource const&) = delete;
    FileSource& operator=(FileSource const&) = delete;
    ~FileSource() override { close(descriptor); }

    mode_t mode() const
    {
        struct stat status = {};
        if (fstat(descriptor, &status) != 0) {
            throw ReadFailure(couldNotOpen + reasonOf(errno));
        }
        return status.st_mode;
    }

    void limitTo(std::size_t mostBytes) { rest = mostBytes; }

    std::size_t read(char* target, std::size_t size) override
    {
        if (rest == 0) {
            throw ReadFailure("The device has more than 64 MiB.");
        }
        ssize_t const length =
            uninterrupted([&] { return ::read(descriptor, target, std::min(size, rest)); });
        if (length < 0) {
            throw ReadFailure("The file cannot be read: " + reasonOf(errno));
        }
        if (rest != unlimited) {
            rest -= static_cast<std::size_t>(length);
        }
        return static_cast<std::size_t>(length);
    }

private:
    static constexpr std::size_t unlimited = static_cast<std::size_t>(-1);

    int descriptor;
    std::size_t rest = unlimited;
};

} // namespace

std::unique_ptr<ByteSource> openFile(std::filesystem::path const& file, FileChoice choice)
{
    bool const isRegularWanted = choice == FileChoice::RegularFile;
    // Without O_NONBLOCK, opening a FIFO waits for its writer.
    int const flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (isRegularWanted ? O_NONBLOCK : 0);
    auto source = std::make_unique<FileSource>(file, flags);
    mode_t const mode = source->mode();
    if (isRegularWanted && !S_ISREG(mode)) {
        return nullptr;
    }
    if (S_ISCHR(mode)) {
        source->limitTo(mostBytesOfDevice);
    }
    return source;
}

std::vector<std::filesystem::path> namesIn(std::filesystem::path const& folder)
{
    std::unique_ptr<DIR, int (*)(DIR*)> const open(opendir(folder.c_str()), closedir);
    if (open == nullptr) {
        throw ReadFailure("The folder cannot be read: " + reasonOf(errno));
    }
    std::vector<std::filesystem::path> names;
    // A null result means the end of the folder or a failure. Only errno shows which it is.
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads from this folder
    while (dirent const* const entry = readdir(open.get())) {
        std::string const name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        throw ReadFailure("The folder cannot be read: " + reasonOf(errno));
    }
    std::sort(names.begin(), names.end(), [](auto const& left, auto const& right) {
        return left.native() < right.native();
    });
    return names;
}

} // namespace foundation::toolkit
