#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The sockets of the operating system, as far as a server that can be stopped at any time needs them.
/// Failures to get one are thrown as `std::system_error`.
namespace foundation::test {

#ifdef _WIN32
using SocketHandle = std::uintptr_t;
#else
using SocketHandle = int;
#endif

constexpr auto noSocket = static_cast<SocketHandle>(-1);

/// Of two connected ends, `watched` is ready to be read from for good as soon as `signal` is closed.
struct StopSignal
{
    SocketHandle watched = noSocket;
    SocketHandle signal = noSocket;
};

StopSignal makeStopSignal();

/// A socket that listens at an address and, unless it is 0, a port.
SocketHandle listenAt(std::string const& address, std::uint16_t port);
std::uint16_t portOf(SocketHandle listener);
/// The next connection, or noSocket if it is gone again.
SocketHandle acceptFrom(SocketHandle listener);

/// What has arrived, at most 4096 bytes; nothing at the end of the connection.
std::string receiveSome(SocketHandle connection);
/// How many of the bytes the system took, without waiting; nothing if the connection is broken.
std::optional<std::size_t> sendSome(SocketHandle connection, std::string_view bytes);
/// Tells the peer that nothing more will come.
void endSending(SocketHandle connection);
/// The close to come will drop what is under way, and tell the peer with RST instead of FIN.
void resetAtClose(SocketHandle connection);
void closeSocket(SocketHandle socket);

enum class Readiness
{
    ToRead,
    ToWrite
};

/// Waits for the socket to be ready. False if a stop was signalled before or meanwhile.
bool waitUntilReady(SocketHandle socket, Readiness readiness, StopSignal const& stop);
/// False if a stop was signalled before the time was over.
bool sleepUnlessStopped(std::chrono::milliseconds duration, StopSignal const& stop);

} // namespace foundation::test
