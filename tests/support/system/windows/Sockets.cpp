#include "truststore/windows/WindowsHeader.hpp"

#include <winsock2.h>
// Must come after winsock2.h.
#include <ws2tcpip.h>

#include "support/system/Sockets.hpp"

#include <algorithm>
#include <array>
#include <system_error>

namespace foundation::test {

namespace {

[[noreturn]] void throwLastError(std::string const& what)
{
    throw std::system_error(WSAGetLastError(), std::system_category(), what);
}

void requireSuccess(int result, std::string const& what)
{
    if (result != 0) {
        throwLastError(what);
    }
}

/// Initialises the system's sockets for the process.
class Winsock
{
public:
    Winsock()
    {
        WSADATA data{};
        WSAStartup(MAKEWORD(2, 2), &data);
    }
    ~Winsock() { WSACleanup(); }
    Winsock(Winsock const&) = delete;
    Winsock& operator=(Winsock const&) = delete;
};

SocketHandle makeSocket()
{
    static Winsock const winsock;
    SocketHandle const made = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (made == noSocket) {
        throwLastError("Cannot make a socket");
    }
    return made;
}

sockaddr_in endpointAt(std::string const& address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr);
    return endpoint;
}

void bindAndListen(SocketHandle listener, std::string const& address, std::uint16_t port)
{
    auto const endpoint = endpointAt(address, port);
    // Under Wine, the host keeps a port in use for a while after its last connection without this option.
    int const yes = 1;
    requireSuccess(
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<char const*>(&yes), sizeof yes),
        "Cannot share a port");
    requireSuccess(
        bind(listener, reinterpret_cast<sockaddr const*>(&endpoint), sizeof endpoint),
        "Cannot serve on " + address + ":" + std::to_string(port));
    requireSuccess(listen(listener, 16), "Cannot listen");
}

SocketHandle connectTo(std::string const& address, std::uint16_t port)
{
    SocketHandle const connection = makeSocket();
    auto const endpoint = endpointAt(address, port);
    if (connect(connection, reinterpret_cast<sockaddr const*>(&endpoint), sizeof endpoint) != 0) {
        closesocket(connection);
        throwLastError("Cannot connect");
    }
    return connection;
}

} // namespace

/// Connects two sockets, because WSAPoll waits only for sockets.
StopSignal makeStopSignal()
{
    SocketHandle const listener = listenAt("127.0.0.1", 0);
    StopSignal stop;
    stop.signal = connectTo("127.0.0.1", portOf(listener));
    stop.watched = acceptFrom(listener);
    closesocket(listener);
    return stop;
}

SocketHandle listenAt(std::string const& address, std::uint16_t port)
{
    SocketHandle const listener = makeSocket();
    try {
        bindAndListen(listener, address, port);
    } catch (std::system_error const&) {
        closesocket(listener);
        throw;
    }
    return listener;
}

std::uint16_t portOf(SocketHandle listener)
{
    sockaddr_in endpoint{};
    int size = sizeof endpoint;
    requireSuccess(
        getsockname(listener, reinterpret_cast<sockaddr*>(&endpoint), &size), "Cannot find the port");
    return ntohs(endpoint.sin_port);
}

SocketHandle acceptFrom(SocketHandle listener)
{
    SocketHandle const connection = accept(listener, nullptr, nullptr);
    u_long yes = 1;
    ioctlsocket(connection, static_cast<long>(FIONBIO), &yes);
    return connection;
}

std::string receiveSome(SocketHandle connection)
{
    std::array<char, 4096> buffer;
    int const size = recv(connection, buffer.data(), static_cast<int>(buffer.size()), 0);
    return {buffer.data(), static_cast<std::size_t>(std::max(size, 0))};
}

std::optional<std::size_t> sendSome(SocketHandle connection, std::string_view bytes)
{
    int const size = send(connection, bytes.data(), static_cast<int>(bytes.size()), 0);
    if (size < 0 && WSAGetLastError() != WSAEWOULDBLOCK) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::max(size, 0));
}

void endSending(SocketHandle connection)
{
    shutdown(connection, SD_SEND);
}

void resetAtClose(SocketHandle connection)
{
    linger const dropEverything{1, 0};
    setsockopt(
        connection, SOL_SOCKET, SO_LINGER, reinterpret_cast<char const*>(&dropEverything),
        sizeof dropEverything);
}

void closeSocket(SocketHandle socket)
{
    closesocket(socket);
}

bool waitUntilReady(SocketHandle socket, Readiness readiness, StopSignal const& stop)
{
    short const events = readiness == Readiness::ToRead ? POLLRDNORM : POLLWRNORM;
    std::array<WSAPOLLFD, 2> waiting{{{stop.watched, POLLRDNORM, 0}, {socket, events, 0}}};
    int const count = WSAPoll(waiting.data(), static_cast<ULONG>(waiting.size()), -1);
    return count > 0 && waiting[0].revents == 0;
}

bool sleepUnlessStopped(std::chrono::milliseconds duration, StopSignal const& stop)
{
    WSAPOLLFD stopped{stop.watched, POLLRDNORM, 0};
    return WSAPoll(&stopped, 1, static_cast<int>(duration.count())) == 0;
}

} // namespace foundation::test
