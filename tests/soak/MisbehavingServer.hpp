#pragma once

#include "support/openssl/Handles.hpp"
#include "support/system/Sockets.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace foundation::test {

/// How a server answers a request.
enum class Manner
{
    Good,
    Slow,      ///< sends a few bytes at a time
    Late,      ///< waits before it answers
    NotFound,  ///< status 404
    Empty,     ///< a body without bytes
    Truncated, ///< half of the body
    Garbage,   ///< no HTTP
    NoHeaders, ///< the body follows the status line
    Silent,    ///< closes without an answer
    Reset,     ///< resets the connection after half of the status line
    Trailing   ///< a lot of bytes after the body
};

/// A web server on all loopback addresses that treats each path in a manner of its own. Its threads serve one
/// connection at a time each. It keeps nothing of what it has served.
class MisbehavingServer
{
public:
    struct Page
    {
        Manner manner;
        Bytes body;
    };

    /// @param pages by path; other paths do not exist
    MisbehavingServer(std::uint16_t port, std::map<std::string, Page> pages);
    ~MisbehavingServer();
    MisbehavingServer(MisbehavingServer const&) = delete;
    MisbehavingServer& operator=(MisbehavingServer const&) = delete;

    /// Waits until every connection is closed.
    void waitUntilIdle() const;

private:
    void serveUntilStopped();
    void serve(SocketHandle connection) const;
    std::string readRequest(SocketHandle connection) const;
    void answer(SocketHandle connection, Page const& page) const;
    bool sendAll(SocketHandle connection, std::string const& bytes) const;

    std::map<std::string, Page> const pages;
    StopSignal stopSignal;
    SocketHandle listener;
    std::mutex accepting;
    std::atomic<int> numServing{0};
    std::vector<std::thread> threads;
};

} // namespace foundation::test
