#include "support/system/posix/FailingFileAccess.hpp"

#include <cerrno>
#include <cstdarg>
#include <optional>
#include <stdexcept>
#include <utility>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace foundation::test {

namespace {

struct Failure
{
    FileAccess access;
    std::string path;
    int error;
    int entriesListed = 0;
};

std::optional<Failure> failure;

bool mustFail(FileAccess access, char const* path)
{
    if (!failure || failure->access != access || failure->path != path) {
        return false;
    }
    errno = failure->error;
    return true;
}

bool mustStopListing()
{
    if (!failure || failure->access != FileAccess::ListFolder || failure->entriesListed++ < 1) {
        return false;
    }
    errno = failure->error;
    return true;
}

/// The function of the C library that is replaced in this program.
template <class Function>
Function* original(Function* /*type*/, char const* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

FailingFileAccess::FailingFileAccess(FileAccess access, std::string path, int error)
{
    failure = Failure{access, std::move(path), error};
}

FailingFileAccess::~FailingFileAccess()
{
    failure.reset();
}

NoFreeDescriptor::NoFreeDescriptor()
{
    // The system gives out the lowest free descriptor, so that a limit there leaves none.
    int const lowestFree = dup(0);
    close(lowestFree);
    rlimit limit{};
    bool const isKnown = lowestFree >= 0 && getrlimit(RLIMIT_NOFILE, &limit) == 0;
    formerLimit = limit.rlim_cur;
    limit.rlim_cur = static_cast<rlim_t>(lowestFree);
    if (!isKnown || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        throw std::runtime_error("Cannot limit the number of open files");
    }
}

NoFreeDescriptor::~NoFreeDescriptor()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = formerLimit;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace foundation::test

extern "C" {

// NOLINTNEXTLINE(cert-dcl50-cpp): the function of the C library takes a variable number of arguments
int open(char const* path, int flags, ...)
{
    using namespace foundation::test;
    va_list arguments;
    va_start(arguments, flags);
    auto const mode = (flags & O_CREAT) == 0 ? 0U : va_arg(arguments, unsigned);
    va_end(arguments);
    return mustFail(FileAccess::OpenFile, path) ? -1 : original(&open, "open")(path, flags, mode);
}

DIR* opendir(char const* path)
{
    using namespace foundation::test;
    return mustFail(FileAccess::OpenFolder, path) ? nullptr : original(&opendir, "opendir")(path);
}

dirent* readdir(DIR* folder)
{
    using namespace foundation::test;
    return mustStopListing() ? nullptr : original(&readdir, "readdir")(folder);
}
}
