#pragma once

#include <chrono>
#include <cstddef>

#include <signal.h> // NOLINT(modernize-deprecated-headers): sigaction is not in <csignal>
#include <sys/resource.h>

namespace foundation::test {

/// The functions of the C library that can be made to fail.
enum class SystemFunction
{
    Open,       ///< open
    OpenStream, ///< fopen and mkstemp
    OpenFolder, ///< opendir
    ListFolder, ///< readdir
    Read,       ///< read
    ReadStream, ///< reading from a stream. The C library does not repeat an interrupted read.
    Write,      ///< write and writev
    Resolve,    ///< getaddrinfo
    MakeSocket, ///< socket, epoll_create1 and eventfd
    Connect,    ///< connect. With EINTR, the connection continues.
    Poll,       ///< poll
    Receive,    ///< recv and recvmsg
    Send        ///< send and sendmsg
};

struct Fault
{
    SystemFunction function;
    /// The error number (errno). With `isShort`, the function transfers one byte instead.
    int error;

    static constexpr int isShort = 0;
};

/// Within its scope, consecutive calls that the thread makes to the function fail. The first one is given by
/// its number, counted from 0. Earlier and later calls succeed, and so do those of other threads.
///
/// A test program that links this replaces these functions of the C library. Calls that the library makes to
/// itself, such as those of getaddrinfo, are not affected.
class SystemFault
{
public:
    SystemFault(Fault fault, std::size_t firstCall, std::size_t numCalls);
    ~SystemFault();
    SystemFault(SystemFault const&) = delete;
    SystemFault& operator=(SystemFault const&) = delete;

    /// Whether the thread has reached the first call since the last scope began.
    static bool hasOccurred();
};

/// Within its scope, somebody sets the wall clock: from the given reading of the thread on, counted from 0,
/// it is ahead by the step. Clocks that measure durations are not affected.
class ClockStep
{
public:
    ClockStep(std::chrono::seconds step, std::size_t firstReading);
    ~ClockStep();
    ClockStep(ClockStep const&) = delete;
    ClockStep& operator=(ClockStep const&) = delete;

    /// Whether the thread has reached that reading since the last scope began.
    static bool hasOccurred();
};

/// Within its scope no file of the process grows beyond the size, as on a full disk.
class FullDisk
{
public:
    explicit FullDisk(std::size_t largestFile);
    ~FullDisk();
    FullDisk(FullDisk const&) = delete;
    FullDisk& operator=(FullDisk const&) = delete;

private:
    rlimit formerLimit{};
    struct sigaction formerAction = {};
};

} // namespace foundation::test
