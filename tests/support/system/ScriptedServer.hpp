#pragma once

#include "support/openssl/Handles.hpp"
#include "support/system/Sockets.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace foundation::test {

/// One step of a server with a connection.
struct Action
{
    enum class Kind
    {
        ReadRequest,
        Send,
        SendByteByByte,
        Respond,
        Wait,
        WaitForPeer,
        Reset
    };

    Kind kind = Kind::ReadRequest;
    std::string bytes;
    std::chrono::milliseconds delay{0};
    std::function<std::string(std::string const& request)> respond;
};

using Script = std::vector<Action>;

/// Reads until a blank line ends the request or the peer closes.
Action readRequest();
Action send(std::string bytes);
Action send(Bytes const& bytes);
/// Pauses after each byte.
Action sendByteByByte(std::string bytes, std::chrono::milliseconds pause);
/// Sends the function's result for the request that was read so far.
Action respondWith(std::function<std::string(std::string const& request)> respond);
Action wait(std::chrono::milliseconds duration);
/// Reads and discards until the peer closes.
Action waitForPeer();
/// Closes with RST instead of FIN. Must be the last step of a script.
Action reset();

/// Returns a response "HTTP/1.0 200 OK" with the length and the body.
std::string httpOk(Bytes const& body);
/// Returns a response with the given status line, the length and the body.
std::string httpResponse(std::string const& statusLine, std::string const& body);

/// A TCP server on a loopback address. The first connection runs the first script, and so on. Connections
/// beyond the scripts run the last one. After its script, a connection is closed for writing and read until
/// the peer closes, too. The destructor stops all connections at once, also during a wait.
class ScriptedServer
{
public:
    /// Throws `std::system_error` if the address cannot be bound. Port 0 selects a free port.
    ScriptedServer(std::string const& address, std::uint16_t port, std::vector<Script> connectionScripts);
    ~ScriptedServer();
    ScriptedServer(ScriptedServer const&) = delete;
    ScriptedServer& operator=(ScriptedServer const&) = delete;

    std::uint16_t port() const { return boundPort; }
    /// Returns all bytes that each connection has read so far, in the order of the connections.
    std::vector<std::string> requests() const;
    std::size_t numConnections() const;
    /// Ends all connections and waits for their threads. Keeps the recorded requests. A second call does
    /// nothing.
    void stop();

private:
    struct Connection
    {
        SocketHandle socket = noSocket;
        /// Guarded by the server's mutex, like the list of connections.
        std::string request;
        std::atomic<bool> hasEnded{false};
        std::thread worker;
    };

    void joinEndedWorkers();
    void acceptUntilStopped();
    void serve(Connection& connection, Script const& script);
    bool perform(Connection& connection, Action const& action);
    bool receive(Connection& connection, bool untilBlankLine);
    bool sendAll(Connection const& connection, std::string const& bytes);
    bool sendSlowly(Connection const& connection, Action const& action);
    std::string requestOf(Connection const& connection) const;

    std::vector<Script> scripts;
    StopSignal stopSignal;
    SocketHandle listener = noSocket;
    std::uint16_t boundPort = 0;
    mutable std::mutex mutex;
    std::list<Connection> connections;
    std::thread acceptor;
};

/// Answers "GET path" with status 200 and the file, or with status 404 for an unknown path.
class HttpFileServer
{
public:
    HttpFileServer(std::string const& address, std::map<std::string, Bytes> files, std::uint16_t port = 80);

    std::uint16_t port() const { return server.port(); }
    std::vector<std::string> requests() const { return server.requests(); }
    std::size_t numConnections() const { return server.numConnections(); }
    void stop() { server.stop(); }

private:
    ScriptedServer server;
};

} // namespace foundation::test
