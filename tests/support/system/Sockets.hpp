#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The sockets of the operating system, for a server that can be stopped at any time. Functions that create a
/// socket throw `std::system_error` on failure.
namespace foundation::test {

#ifdef _WIN32
using SocketHandle = std::uintptr_t;
#else
using SocketHandle = int;
#endif

constexpr auto noSocket = static_cast<SocketHandle>(-1);

/// Two connected ends. After `signal` is closed, `watched` stays ready for reading.
struct StopSignal
{
    SocketHandle watched = noSocket;
    SocketHandle signal = noSocket;
};

StopSignal makeStopSignal();

/// Returns a socket that listens at the address and port. Port 0 selects a free port.
SocketHandle listenAt(std::string const& address, std::uint16_t port);
std::uint16_t portOf(SocketHandle listener);
/// Returns the next connection, or noSocket if the peer has already left.
SocketHandle acceptFrom(SocketHandle listener);

/// Returns at most 4096 bytes that have arrived, or "" at the end of the connection.
std::string receiveSome(SocketHandle connection);
/// Sends without waiting. Returns the number of bytes that the system took, or nothing if the connection is
/// broken.
std::optional<std::size_t> sendSome(SocketHandle connection, std::string_view bytes);
/// Closes the connection for writing.
void endSending(SocketHandle connection);
/// Makes the next close drop unsent bytes and send RST instead of FIN.
void resetAtClose(SocketHandle connection);
void closeSocket(SocketHandle socket);

enum class Readiness
{
    ToRead,
    ToWrite
};

/// Waits until the socket is ready. Returns false after a stop signal.
bool waitUntilReady(SocketHandle socket, Readiness readiness, StopSignal const& stop);
/// Returns false if a stop signal came before the end of the time.
bool sleepUnlessStopped(std::chrono::milliseconds duration, StopSignal const& stop);

} // namespace foundation::test
