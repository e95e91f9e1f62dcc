#include "reader/Files.hpp"

#include "truststore/posix/InputFiles.hpp"

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::toolkit {

namespace {

using foundation::certificates::posix::Descriptor;
using foundation::certificates::posix::InputFolder;
using foundation::certificates::posix::uninterrupted;

constexpr char const couldNotOpen[] = "The file cannot be opened: ";

std::string reasonOf(int error)
{
    return std::generic_category().message(error);
}

class FileSource : public ByteSource
{
public:
    FileSource(std::filesystem::path const& file, int flags)
        : descriptor(uninterrupted([&] { return open(file.c_str(), flags); }))
    {
        if (!descriptor.isOpen()) {
            throw ReadFailure(couldNotOpen + reasonOf(errno));
        }
    }

    mode_t mode() const
    {
        struct stat status = {};
        if (fstat(descriptor.get(), &status) != 0) {
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
            uninterrupted([&] { return ::read(descriptor.get(), target, std::min(size, rest)); });
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

    Descriptor descriptor;
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
    InputFolder opened(folder.string());
    auto const listed = opened.error() == 0 ? opened.list() : std::vector<std::string>();
    if (opened.error() != 0) {
        throw ReadFailure("The folder cannot be read: " + reasonOf(opened.error()));
    }
    std::vector<std::filesystem::path> names;
    for (auto const& name : listed) {
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    std::sort(names.begin(), names.end(), [](auto const& left, auto const& right) {
        return left.native() < right.native();
    });
    return names;
}

} // namespace foundation::toolkit
