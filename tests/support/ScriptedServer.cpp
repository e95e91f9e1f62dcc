#include "support/ScriptedServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sstream>
#include <system_error>
#include <utility>

namespace foundation::test {

namespace {

Action actionOf(Action::Kind kind)
{
    Action action;
    action.kind = kind;
    return action;
}

void requireSystemCall(int result, std::string const& what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

bool holdsBlankLine(std::string const& text)
{
    return text.find("\r\n\r\n") != std::string::npos || text.find("\n\n") != std::string::npos;
}

/// The second word of the request line.
std::string pathOf(std::string const& request)
{
    std::istringstream line(request);
    std::string method;
    std::string path;
    line >> method >> path;
    return path;
}

std::string serveFile(std::map<std::string, Bytes> const& files, std::string const& request)
{
    auto const file = files.find(pathOf(request));
    return file == files.end() ? httpResponse("HTTP/1.0 404 Not Found", "") : httpOk(file->second);
}

} // namespace

Action readRequest()
{
    return actionOf(Action::Kind::ReadRequest);
}

Action send(std::string bytes)
{
    auto action = actionOf(Action::Kind::Send);
    action.bytes = std::move(bytes);
    return action;
}

Action send(Bytes const& bytes)
{
    return send(std::string(bytes.begin(), bytes.end()));
}

Action sendByteByByte(std::string bytes, std::chrono::milliseconds pause)
{
    auto action = actionOf(Action::Kind::SendByteByByte);
    action.bytes = std::move(bytes);
    action.delay = pause;
    return action;
}

Action respondWith(std::function<std::string(std::string const& request)> respond)
{
    auto action = actionOf(Action::Kind::Respond);
    action.respond = std::move(respond);
    return action;
}

Action wait(std::chrono::milliseconds duration)
{
    auto action = actionOf(Action::Kind::Wait);
    action.delay = duration;
    return action;
}

Action waitForPeer()
{
    return actionOf(Action::Kind::WaitForPeer);
}

Action reset()
{
    return actionOf(Action::Kind::Reset);
}

std::string httpOk(Bytes const& body)
{
    return httpResponse("HTTP/1.0 200 OK", std::string(body.begin(), body.end()));
}

std::string httpResponse(std::string const& statusLine, std::string const& body)
{
    return statusLine + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

ScriptedServer::ScriptedServer(
    std::string const& address, std::uint16_t port, std::vector<Script> connectionScripts)
    : scripts(std::move(connectionScripts))
{
    std::array<int, 2> ends{};
    requireSystemCall(pipe(ends.data()), "Cannot make a pipe");
    stopReader = ends[0];
    stopWriter = ends[1];
    try {
        listenOn(address, port);
        acceptor = std::thread([this] { acceptUntilStopped(); });
    } catch (...) {
        stop();
        throw;
    }
}

ScriptedServer::~ScriptedServer()
{
    stop();
}

void ScriptedServer::listenOn(std::string const& address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr);
    auto* const generic = reinterpret_cast<sockaddr*>(&endpoint);
    socklen_t size = sizeof endpoint;
    int const yes = 1;

    listener = socket(AF_INET, SOCK_STREAM, 0);
    requireSystemCall(listener, "Cannot make a socket");
    requireSystemCall(
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes), "Cannot share a port");
    requireSystemCall(
        bind(listener, generic, size), "Cannot serve on " + address + ":" + std::to_string(port));
    requireSystemCall(listen(listener, 16), "Cannot listen");
    requireSystemCall(getsockname(listener, generic, &size), "Cannot find the port");
    boundPort = ntohs(endpoint.sin_port);
}

/// Closing its writing end makes the pipe readable for good, which wakes every thread of the server.
void ScriptedServer::stop()
{
    if (stopWriter < 0) {
        return;
    }
    close(std::exchange(stopWriter, -1));
    if (acceptor.joinable()) {
        acceptor.join();
    }
    for (auto& connection : connections) {
        connection.worker.join();
    }
    if (listener >= 0) {
        close(listener);
    }
    close(stopReader);
}

std::vector<std::string> ScriptedServer::requests() const
{
    std::lock_guard const lock(mutex);
    std::vector<std::string> result;
    for (auto const& connection : connections) {
        result.push_back(connection.request);
    }
    return result;
}

std::size_t ScriptedServer::numConnections() const
{
    std::lock_guard const lock(mutex);
    return connections.size();
}

std::string ScriptedServer::requestOf(Connection const& connection) const
{
    std::lock_guard const lock(mutex);
    return connection.request;
}

void ScriptedServer::acceptUntilStopped()
{
    for (std::size_t index = 0; waitUntilReady(listener, POLLIN); ++index) {
        auto const descriptor = accept(listener, nullptr, nullptr);
        if (descriptor < 0) {
            continue;
        }
        auto const script = scripts.empty() ? Script() : scripts[std::min(index, scripts.size() - 1)];
        std::lock_guard const lock(mutex);
        auto& connection = connections.emplace_back();
        connection.descriptor = descriptor;
        connection.worker = std::thread([this, &connection, script] { serve(connection, script); });
    }
}

void ScriptedServer::serve(Connection& connection, Script const& script)
{
    auto const complete = std::all_of(
        script.begin(), script.end(), [&](Action const& action) { return perform(connection, action); });
    if (complete) {
        // Closing over unread bytes would send RST and take from the peer what is still on its way.
        shutdown(connection.descriptor, SHUT_WR);
        receive(connection, false);
    }
    close(connection.descriptor);
}

/// False ends the script.
bool ScriptedServer::perform(Connection& connection, Action const& action)
{
    switch (action.kind) {
    case Action::Kind::ReadRequest:
        return receive(connection, true);
    case Action::Kind::Send:
        return sendAll(connection, action.bytes);
    case Action::Kind::SendByteByByte:
        return sendSlowly(connection, action);
    case Action::Kind::Respond:
        return sendAll(connection, action.respond(requestOf(connection)));
    case Action::Kind::Wait:
        return sleepUnlessStopped(action.delay);
    case Action::Kind::WaitForPeer:
        receive(connection, false);
        return true;
    case Action::Kind::Reset:
        break;
    }
    linger const dropEverything{1, 0};
    setsockopt(connection.descriptor, SOL_SOCKET, SO_LINGER, &dropEverything, sizeof dropEverything);
    return false;
}

/// False if the peer closed, or the server was stopped, before the end that was waited for.
bool ScriptedServer::receive(Connection& connection, bool untilBlankLine)
{
    std::array<char, 4096> buffer;
    std::string received;
    while (!untilBlankLine || !holdsBlankLine(received)) {
        if (!waitUntilReady(connection.descriptor, POLLIN)) {
            return false;
        }
        auto const size = recv(connection.descriptor, buffer.data(), buffer.size(), 0);
        if (size <= 0) {
            return false;
        }
        received.append(buffer.data(), static_cast<std::size_t>(size));
        std::lock_guard const lock(mutex);
        connection.request.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return true;
}

bool ScriptedServer::sendAll(Connection const& connection, std::string const& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (!waitUntilReady(connection.descriptor, POLLOUT)) {
            return false;
        }
        auto const flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        auto const size = ::send(connection.descriptor, bytes.data() + sent, bytes.size() - sent, flags);
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        sent += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    return true;
}

bool ScriptedServer::sendSlowly(Connection const& connection, Action const& action)
{
    return std::all_of(action.bytes.begin(), action.bytes.end(), [&](char byte) {
        return sendAll(connection, std::string(1, byte)) && sleepUnlessStopped(action.delay);
    });
}

bool ScriptedServer::waitUntilReady(int descriptor, short events)
{
    for (;;) {
        std::array<pollfd, 2> waiting{{{stopReader, POLLIN, 0}, {descriptor, events, 0}}};
        auto const count = poll(waiting.data(), waiting.size(), -1);
        if (count > 0) {
            return waiting[0].revents == 0;
        }
        if (errno != EINTR) {
            return false;
        }
    }
}

bool ScriptedServer::sleepUnlessStopped(std::chrono::milliseconds duration)
{
    pollfd stopped{stopReader, POLLIN, 0};
    return poll(&stopped, 1, static_cast<int>(duration.count())) == 0;
}

HttpFileServer::HttpFileServer(
    std::string const& address, std::map<std::string, Bytes> files, std::uint16_t port)
    : server(
          address, port, {{readRequest(), respondWith([files = std::move(files)](std::string const& request) {
                               return serveFile(files, request);
                           })}})
{}

} // namespace foundation::test
