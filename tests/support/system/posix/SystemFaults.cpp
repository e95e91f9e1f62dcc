#include "support/system/posix/SystemFaults.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <stdexcept>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

namespace foundation::test {

namespace {

/// Numbers the calls of a thread and picks consecutive ones.
struct Window
{
    std::size_t first = 0;
    std::size_t size = 0;
    std::size_t numCalls = 0;

    bool hasOccurred() const { return numCalls > first; }
    bool takeCall()
    {
        auto const number = numCalls++;
        return number >= first && number - first < size;
    }
};

constexpr std::size_t toTheEnd = static_cast<std::size_t>(-1);

thread_local std::optional<Fault> fault;
thread_local Window faultyCalls;
thread_local std::optional<std::chrono::seconds> clockStep;
thread_local Window readingsAfterStep;

/// The function of the C library that this program replaces.
template <class Function>
Function* original(Function* /*type*/, char const* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isFaulty(SystemFunction function)
{
    return fault && fault->function == function && faultyCalls.takeCall();
}

/// Fails, or succeeds as the C library's function does.
template <class Call>
auto failing(SystemFunction function, Call const& call) -> decltype(call())
{
    if (!isFaulty(function)) {
        return call();
    }
    errno = fault->error;
    return static_cast<decltype(call())>(-1);
}

/// Like `failing`, for a function that returns a pointer.
template <class Call>
auto failingWithNull(SystemFunction function, Call const& call) -> decltype(call())
{
    if (!isFaulty(function)) {
        return call();
    }
    errno = fault->error;
    return nullptr;
}

/// Like `failing`, for a function that transfers so many bytes.
template <class Call>
ssize_t transferring(SystemFunction function, std::size_t size, Call const& call)
{
    if (!isFaulty(function)) {
        return call(size);
    }
    if (fault->error == Fault::isShort) {
        return call(std::min<std::size_t>(size, 1));
    }
    errno = fault->error;
    return -1;
}

/// Like `transferring`, for a function with several buffers. A faulty call gets a part of the first one that
/// is not empty.
template <class Call>
ssize_t transferring(SystemFunction function, iovec const* buffers, std::size_t numBuffers, Call const& call)
{
    if (!isFaulty(function)) {
        return call(buffers, numBuffers);
    }
    if (fault->error == Fault::isShort) {
        auto const* const end = buffers + numBuffers;
        auto const* const used = std::find_if(buffers, end, [](iovec const& one) { return one.iov_len > 0; });
        iovec part = used == end ? iovec{} : *used;
        part.iov_len = std::min<std::size_t>(part.iov_len, 1);
        return call(&part, 1);
    }
    errno = fault->error;
    return -1;
}

// A stream that reads through this file. The C library's own streams do not call the functions below.

int descriptorOf(void* cookie)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
}

ssize_t readStream(void* cookie, char* target, std::size_t size)
{
    return transferring(SystemFunction::ReadStream, size, [&](std::size_t part) {
        return original(&::read, "read")(descriptorOf(cookie), target, part);
    });
}

int closeStream(void* cookie)
{
    return ::close(descriptorOf(cookie));
}

FILE* openForReading(char const* path)
{
    int const descriptor = original(&::open, "open")(path, O_RDONLY);
    if (descriptor < 0) {
        return nullptr;
    }
    cookie_io_functions_t functions{};
    functions.read = readStream;
    functions.close = closeStream;
    return fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor)), "r", functions);
}

FILE* openStream(char const* path, char const* mode, char const* name)
{
    return failingWithNull(SystemFunction::OpenStream, [&] {
        bool const isOnlyRead = mode[0] == 'r' && std::strchr(mode, '+') == nullptr;
        return fault && isOnlyRead ? openForReading(path) : original(&::fopen, name)(path, mode);
    });
}

std::time_t secondsAhead(clockid_t clock)
{
    bool const tellsTheDate = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    bool const isAhead = tellsTheDate && clockStep && readingsAfterStep.takeCall();
    return isAhead ? static_cast<std::time_t>(clockStep->count()) : 0;
}

} // namespace

SystemFault::SystemFault(Fault newFault, std::size_t firstCall, std::size_t numCalls)
{
    fault = newFault;
    faultyCalls = {firstCall, numCalls};
}

SystemFault::~SystemFault()
{
    fault.reset();
}

bool SystemFault::hasOccurred()
{
    return faultyCalls.hasOccurred();
}

ClockStep::ClockStep(std::chrono::seconds step, std::size_t firstReading)
{
    clockStep = step;
    readingsAfterStep = {firstReading, toTheEnd};
}

ClockStep::~ClockStep()
{
    clockStep.reset();
}

bool ClockStep::hasOccurred()
{
    return readingsAfterStep.hasOccurred();
}

FullDisk::FullDisk(std::size_t largestFile)
{
    getrlimit(RLIMIT_FSIZE, &formerLimit);
    auto limit = formerLimit;
    limit.rlim_cur = static_cast<rlim_t>(largestFile);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
        throw std::runtime_error("Cannot limit the size of files");
    }
    // Otherwise a signal ends the process at the limit.
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, &formerAction);
}

FullDisk::~FullDisk()
{
    setrlimit(RLIMIT_FSIZE, &formerLimit);
    sigaction(SIGXFSZ, &formerAction, nullptr);
}

} // namespace foundation::test

using namespace foundation::test;

// The functions of the C library. Some are declared as noexcept.

extern "C" {

// NOLINTNEXTLINE(cert-dcl50-cpp): the function of the C library takes a variable number of arguments
int open(char const* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    auto const mode = (flags & O_CREAT) == 0 ? 0U : va_arg(arguments, unsigned);
    va_end(arguments);
    return failing(SystemFunction::Open, [&] { return original(&open, "open")(path, flags, mode); });
}

FILE* fopen(char const* path, char const* mode)
{
    return openStream(path, mode, "fopen");
}

FILE* fopen64(char const* path, char const* mode)
{
    return openStream(path, mode, "fopen64");
}

int mkstemp(char* pattern)
{
    return failing(SystemFunction::OpenStream, [&] { return original(&mkstemp, "mkstemp")(pattern); });
}

DIR* opendir(char const* path)
{
    return failingWithNull(SystemFunction::OpenFolder, [&] { return original(&opendir, "opendir")(path); });
}

dirent* readdir(DIR* folder)
{
    return failingWithNull(SystemFunction::ListFolder, [&] { return original(&readdir, "readdir")(folder); });
}

ssize_t read(int descriptor, void* target, std::size_t size)
{
    return transferring(SystemFunction::Read, size, [&](std::size_t part) {
        return original(&read, "read")(descriptor, target, part);
    });
}

ssize_t write(int descriptor, void const* bytes, std::size_t size)
{
    return transferring(SystemFunction::Write, size, [&](std::size_t part) {
        return original(&write, "write")(descriptor, bytes, part);
    });
}

ssize_t writev(int descriptor, iovec const* buffers, int numBuffers)
{
    return transferring(
        SystemFunction::Write, buffers, static_cast<std::size_t>(numBuffers),
        [&](iovec const* some, std::size_t number) {
            return original(&writev, "writev")(descriptor, some, static_cast<int>(number));
        });
}

int getaddrinfo(char const* host, char const* service, addrinfo const* hints, addrinfo** result)
{
    if (isFaulty(SystemFunction::Resolve)) {
        errno = fault->error;
        return EAI_SYSTEM;
    }
    return original(&getaddrinfo, "getaddrinfo")(host, service, hints, result);
}

int socket(int domain, int type, int protocol) noexcept(noexcept(socket(domain, type, protocol)))
{
    return failing(
        SystemFunction::MakeSocket, [&] { return original(&socket, "socket")(domain, type, protocol); });
}

int epoll_create1(int flags) noexcept(noexcept(epoll_create1(flags)))
{
    return failing(
        SystemFunction::MakeSocket, [&] { return original(&epoll_create1, "epoll_create1")(flags); });
}

int eventfd(unsigned value, int flags) noexcept(noexcept(eventfd(value, flags)))
{
    return failing(SystemFunction::MakeSocket, [&] { return original(&eventfd, "eventfd")(value, flags); });
}

int connect(int descriptor, sockaddr const* address, socklen_t size)
{
    auto const call = [&] { return original(&connect, "connect")(descriptor, address, size); };
    if (fault && fault->function == SystemFunction::Connect && fault->error == EINTR) {
        int const result = call();
        bool const isUnderWay = result == 0 || errno == EINPROGRESS;
        return isUnderWay ? failing(SystemFunction::Connect, [&] { return result; }) : result;
    }
    return failing(SystemFunction::Connect, call);
}

int poll(pollfd* descriptors, nfds_t numDescriptors, int timeout)
{
    return failing(
        SystemFunction::Poll, [&] { return original(&poll, "poll")(descriptors, numDescriptors, timeout); });
}

ssize_t recv(int descriptor, void* target, std::size_t size, int flags)
{
    return transferring(SystemFunction::Receive, size, [&](std::size_t part) {
        return original(&recv, "recv")(descriptor, target, part, flags);
    });
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags)
{
    return transferring(
        SystemFunction::Receive, message->msg_iov, message->msg_iovlen,
        [&](iovec const* some, std::size_t number) {
            auto limited = *message;
            limited.msg_iov = const_cast<iovec*>(some);
            limited.msg_iovlen = number;
            return original(&recvmsg, "recvmsg")(descriptor, &limited, flags);
        });
}

ssize_t send(int descriptor, void const* bytes, std::size_t size, int flags)
{
    return transferring(SystemFunction::Send, size, [&](std::size_t part) {
        return original(&send, "send")(descriptor, bytes, part, flags);
    });
}

ssize_t sendmsg(int descriptor, msghdr const* message, int flags)
{
    return transferring(
        SystemFunction::Send, message->msg_iov, message->msg_iovlen,
        [&](iovec const* some, std::size_t number) {
            auto limited = *message;
            limited.msg_iov = const_cast<iovec*>(some);
            limited.msg_iovlen = number;
            return original(&sendmsg, "sendmsg")(descriptor, &limited, flags);
        });
}

int clock_gettime(clockid_t clock, timespec* result) noexcept(noexcept(clock_gettime(clock, result)))
{
    int const status = original(&clock_gettime, "clock_gettime")(clock, result);
    result->tv_sec += secondsAhead(clock);
    return status;
}

std::time_t time(std::time_t* result) noexcept(noexcept(time(result)))
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

int gettimeofday(timeval* result, void* timeZone) noexcept(noexcept(gettimeofday(result, timeZone)))
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *result = {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
    return 0;
}
}
