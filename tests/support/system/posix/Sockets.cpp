#include "support/system/Sockets.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace foundation::test {

namespace {

// A connection that the client has closed must not end the process with a signal.
#ifdef MSG_NOSIGNAL
constexpr int withoutSignal = MSG_NOSIGNAL;
#else
constexpr int withoutSignal = 0;
#endif

void requireSystemCall(int result, std::string const& what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void bindAndListen(int listener, std::string const& address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr);
    int const yes = 1;
    requireSystemCall(
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes), "Cannot share a port");
    requireSystemCall(
        bind(listener, reinterpret_cast<sockaddr const*>(&endpoint), sizeof endpoint),
        "Cannot serve on " + address + ":" + std::to_string(port));
    requireSystemCall(listen(listener, 16), "Cannot listen");
}

} // namespace

StopSignal makeStopSignal()
{
    std::array<int, 2> ends{};
    requireSystemCall(pipe(ends.data()), "Cannot make a pipe");
    return {ends[0], ends[1]};
}

SocketHandle listenAt(std::string const& address, std::uint16_t port)
{
    int const listener = socket(AF_INET, SOCK_STREAM, 0);
    requireSystemCall(listener, "Cannot make a socket");
    try {
        bindAndListen(listener, address, port);
    } catch (std::system_error const&) {
        close(listener);
        throw;
    }
    return listener;
}

std::uint16_t portOf(SocketHandle listener)
{
    sockaddr_in endpoint{};
    socklen_t size = sizeof endpoint;
    requireSystemCall(
        getsockname(listener, reinterpret_cast<sockaddr*>(&endpoint), &size), "Cannot find the port");
    return ntohs(endpoint.sin_port);
}

SocketHandle acceptFrom(SocketHandle listener)
{
    int const connection = accept(listener, nullptr, nullptr);
#ifdef SO_NOSIGPIPE // macOS has this option instead of the flag
    int const yes = 1;
    setsockopt(connection, SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes);
#endif
    return connection;
}

std::string receiveSome(SocketHandle connection)
{
    std::array<char, 4096> buffer;
    auto const size = recv(connection, buffer.data(), buffer.size(), 0);
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

std::optional<std::size_t> sendSome(SocketHandle connection, std::string_view bytes)
{
    auto const size = send(connection, bytes.data(), bytes.size(), withoutSignal | MSG_DONTWAIT);
    if (size < 0 && errno != EAGAIN && errno != EINTR) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::max<ssize_t>(size, 0));
}

void endSending(SocketHandle connection)
{
    shutdown(connection, SHUT_WR);
}

void resetAtClose(SocketHandle connection)
{
    linger const dropEverything{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &dropEverything, sizeof dropEverything);
}

void closeSocket(SocketHandle socket)
{
    close(socket);
}

bool waitUntilReady(SocketHandle socket, Readiness readiness, StopSignal const& stop)
{
    short const events = readiness == Readiness::ToRead ? POLLIN : POLLOUT;
    for (;;) {
        std::array<pollfd, 2> waiting{{{stop.watched, POLLIN, 0}, {socket, events, 0}}};
        auto const count = poll(waiting.data(), waiting.size(), -1);
        if (count > 0) {
            return waiting[0].revents == 0;
        }
        if (errno != EINTR) {
            return false;
        }
    }
}

bool sleepUnlessStopped(std::chrono::milliseconds duration, StopSignal const& stop)
{
    pollfd stopped{stop.watched, POLLIN, 0};
    return poll(&stopped, 1, static_cast<int>(duration.count())) == 0;
}

} // namespace foundation::test
