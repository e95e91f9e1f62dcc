#include "support/system/ScriptedServer.hpp"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

namespace foundation::test {

namespace {

Action actionOf(Action::Kind kind)
{
    Action action;
    action.kind = kind;
    return action;
}

bool holdsBlankLine(std::string const& text)
{
    return text.find("\r\n\r\n") != std::string::npos || text.find("\n\n") != std::string::npos;
}

/// Returns the second word of the request line.
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
    : scripts(std::move(connectionScripts)),
      stopSignal(makeStopSignal())
{
    try {
        listener = listenAt(address, port);
        boundPort = portOf(listener);
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

void ScriptedServer::stop()
{
    if (stopSignal.signal == noSocket) {
        return;
    }
    // Wakes every thread of the server.
    closeSocket(std::exchange(stopSignal.signal, noSocket));
    if (acceptor.joinable()) {
        acceptor.join();
    }
    for (auto& connection : connections) {
        if (connection.worker.joinable()) {
            connection.worker.join();
        }
    }
    if (listener != noSocket) {
        closeSocket(listener);
    }
    closeSocket(stopSignal.watched);
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

/// Frees the stacks of threads that have ended. A 32-bit process has room for only some hundred stacks.
void ScriptedServer::joinEndedWorkers()
{
    for (auto& connection : connections) {
        if (connection.hasEnded && connection.worker.joinable()) {
            connection.worker.join();
        }
    }
}

void ScriptedServer::acceptUntilStopped()
{
    for (std::size_t index = 0; waitUntilReady(listener, Readiness::ToRead, stopSignal); ++index) {
        auto const accepted = acceptFrom(listener);
        if (accepted == noSocket) {
            continue;
        }
        auto const script = scripts.empty() ? Script() : scripts[std::min(index, scripts.size() - 1)];
        joinEndedWorkers();
        std::lock_guard const lock(mutex);
        auto& connection = connections.emplace_back();
        connection.socket = accepted;
        connection.worker = std::thread([this, &connection, script] { serve(connection, script); });
    }
}

void ScriptedServer::serve(Connection& connection, Script const& script)
{
    auto const complete = std::all_of(
        script.begin(), script.end(), [&](Action const& action) { return perform(connection, action); });
    if (complete) {
        // Closing with unread bytes sends RST, and the peer loses what is still on its way.
        endSending(connection.socket);
        receive(connection, false);
    }
    closeSocket(connection.socket);
    connection.hasEnded = true;
}

/// Returns false to end the script.
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
        return sleepUnlessStopped(action.delay, stopSignal);
    case Action::Kind::WaitForPeer:
        receive(connection, false);
        return true;
    case Action::Kind::Reset:
        break;
    }
    resetAtClose(connection.socket);
    return false;
}

/// Returns false if the peer closed or the server stopped before the expected end.
bool ScriptedServer::receive(Connection& connection, bool untilBlankLine)
{
    std::string received;
    while (!untilBlankLine || !holdsBlankLine(received)) {
        if (!waitUntilReady(connection.socket, Readiness::ToRead, stopSignal)) {
            return false;
        }
        auto const bytes = receiveSome(connection.socket);
        if (bytes.empty()) {
            return false;
        }
        received.append(bytes);
        std::lock_guard const lock(mutex);
        connection.request.append(bytes);
    }
    return true;
}

bool ScriptedServer::sendAll(Connection const& connection, std::string const& bytes)
{
    std::string_view left = bytes;
    while (!left.empty()) {
        if (!waitUntilReady(connection.socket, Readiness::ToWrite, stopSignal)) {
            return false;
        }
        auto const sent = sendSome(connection.socket, left);
        if (!sent) {
            return false;
        }
        left.remove_prefix(*sent);
    }
    return true;
}

bool ScriptedServer::sendSlowly(Connection const& connection, Action const& action)
{
    return std::all_of(action.bytes.begin(), action.bytes.end(), [&](char byte) {
        return sendAll(connection, std::string(1, byte)) && sleepUnlessStopped(action.delay, stopSignal);
    });
}

HttpFileServer::HttpFileServer(
    std::string const& address, std::map<std::string, Bytes> files, std::uint16_t port)
    : server(
          address, port, {{readRequest(), respondWith([files = std::move(files)](std::string const& request) {
                               return serveFile(files, request);
                           })}})
{}

} // namespace foundation::test
