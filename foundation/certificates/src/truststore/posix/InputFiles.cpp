#include "truststore/posix/InputFiles.hpp"

#include <array>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::certificates::posix {

Descriptor::~Descriptor()
{
    if (isOpen()) {
        close(descriptor);
    }
}

InputFile::InputFile(std::string pathOfFile)
    : filePath(std::move(pathOfFile)),
      descriptor(
          uninterrupted([&] { return open(filePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }))
{
    struct stat status = {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0) {
        failure = errno;
        return;
    }
    mode = status.st_mode;
}

bool InputFile::isRegular() const
{
    return S_ISREG(mode);
}

bool InputFile::isCharacterDevice() const
{
    return S_ISCHR(mode);
}

std::string InputFile::read()
{
    std::string content;
    std::array<char, 16384> part{};
    ssize_t length = 0;
    while ((length = uninterrupted([&] { return ::read(descriptor.get(), part.data(), part.size()); })) > 0) {
        content.append(part.data(), static_cast<std::size_t>(length));
    }
    if (length < 0) {
        failure = errno;
    }
    return content;
}

InputFolder::InputFolder(std::string pathOfFolder)
    : folderPath(std::move(pathOfFolder)),
      folder(opendir(folderPath.c_str()), closedir),
      failure(folder == nullptr ? errno : 0)
{}

std::vector<std::string> InputFolder::list()
{
    std::vector<std::string> names;
    // A null result means the end of the folder or a failure. Only errno shows which it is.
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads from this folder
    while (dirent const* const entry = readdir(folder.get())) {
        names.emplace_back(entry->d_name);
        errno = 0;
    }
    failure = errno;
    return names;
}

} // namespace foundation::certificates::posix
