#pragma once

#include <string>

#include <sys/resource.h>

namespace foundation::test {

/// The functions of the system that can be made to fail.
enum class FileAccess
{
    OpenFile,
    OpenFolder,
    ListFolder ///< after the first entry, in every folder
};

/// Within its scope the function fails with the given error number (errno): for one path, or when a folder is
/// listed. A test program that names this class gets such functions of its own.
class FailingFileAccess
{
public:
    FailingFileAccess(FileAccess access, std::string path, int error);
    ~FailingFileAccess();
    FailingFileAccess(FailingFileAccess const&) = delete;
    FailingFileAccess& operator=(FailingFileAccess const&) = delete;
};

/// Within its scope the process can open no further file.
class NoFreeDescriptor
{
public:
    NoFreeDescriptor();
    ~NoFreeDescriptor();
    NoFreeDescriptor(NoFreeDescriptor const&) = delete;
    NoFreeDescriptor& operator=(NoFreeDescriptor const&) = delete;

private:
    rlim_t formerLimit;
};

} // namespace foundation::test
