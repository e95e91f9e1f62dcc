#pragma once

// Writes a file completely or not at all. By default the file must not exist yet.

#include <fcntl.h>
#include <sys/stat.h>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace foundation::tools {

enum class IfFileExists
{
    Fail,
    Replace
};

// Creates a file. The destructor removes it unless keep was called.
class NewFile
{
public:
    // With Replace, the content goes to a file beside the old one. keep then replaces the old file at once.
    NewFile(std::string const& file, int mode, IfFileExists ifExists = IfFileExists::Fail)
        : path(file),
          written(ifExists == IfFileExists::Replace ? file + ".new" : file),
          descriptor(create(written, mode))
    {
        if (descriptor < 0) {
            fail(written);
        }
    }

    ~NewFile()
    {
        close(descriptor);
        if (!kept) {
            static_cast<void>(std::remove(written.c_str()));
        }
    }

    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    void write(std::string_view text)
    {
        while (!text.empty()) {
            auto const size = ::write(descriptor, text.data(), static_cast<unsigned>(text.size()));
            if (size < 1) {
                fail(written);
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
    }

    void keep()
    {
        if (written != path) {
#ifdef _WIN32
            close(descriptor); // the system does not rename an open file
            descriptor = -1;
#endif
            std::filesystem::rename(written, path);
        }
        kept = true;
    }

private:
    [[noreturn]] static void fail(std::string const& file)
    {
        throw std::system_error(errno, std::generic_category(), file);
    }

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
    std::string written;
    int descriptor;
    bool kept = false;
};

} // namespace foundation::tools
