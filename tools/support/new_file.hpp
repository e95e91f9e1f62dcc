#pragma once

// Writes a file that must not exist yet.

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

namespace example {

// Creates a file that must not exist. The destructor removes it unless keep was called.
class NewFile
{
public:
    NewFile(std::string const& file, int mode) : path(file), descriptor(create(file, mode))
    {
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

    ~NewFile()
    {
        close(descriptor);
        if (!kept) {
            static_cast<void>(std::remove(path.c_str()));
        }
    }

    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    void write(std::string_view text)
    {
        if (::write(descriptor, text.data(), static_cast<unsigned>(text.size())) !=
            static_cast<int>(text.size())) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

    void keep() { kept = true; }

private:
    static int create(std::string const& file, int mode)
    {
#ifdef _WIN32
        // The folder's access list controls who may read the file.
        return open(file.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, mode & (_S_IREAD | _S_IWRITE));
#else
        return open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
#endif
    }

    std::string path;
    int descriptor;
    bool kept = false;
};

} // namespace example
