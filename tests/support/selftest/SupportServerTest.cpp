#include "support/assertions/ExactThrow.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <boost/asio/ip/tcp.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;
using Socket = boost::asio::ip::tcp::iostream;

std::string restOf(std::istream& stream)
{
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Sends the request. Returns everything that the server sends before it closes the connection.
std::string exchange(std::uint16_t port, std::string const& request)
{
    Socket socket;
    socket.expires_after(20s);
    socket.connect("127.0.0.2", std::to_string(port));
    socket << request << std::flush;
    return restOf(socket);
}

} // namespace

TEST(ScriptedServer, DeliversBytesAndRecordsRequests)
{
    ScriptedServer server("127.0.0.2", 0, {{readRequest(), send("first")}, {readRequest(), send("second")}});

    EXPECT_EQ(exchange(server.port(), "GET /1\r\n\r\n"), "first");
    EXPECT_EQ(exchange(server.port(), "GET /2\r\n\r\n"), "second");
    EXPECT_EQ(exchange(server.port(), "GET /3\r\n\r\n"), "second");

    std::vector<std::string> const expected{"GET /1\r\n\r\n", "GET /2\r\n\r\n", "GET /3\r\n\r\n"};
    EXPECT_EQ(server.requests(), expected);
    EXPECT_EQ(server.numConnections(), 3u);
}

TEST(ScriptedServer, DeliversManyBytes)
{
    std::string const body(5'000'000, 'x');
    ScriptedServer server("127.0.0.2", 0, {{readRequest(), send(body)}});
    EXPECT_EQ(exchange(server.port(), "GET /\r\n\r\n"), body);
}

TEST(ScriptedServer, DeliversBeforeItReadsTheRequest)
{
    ScriptedServer server("127.0.0.2", 0, {{send("early")}});
    EXPECT_EQ(exchange(server.port(), "GET /\r\n\r\n"), "early");
}

TEST(ScriptedServer, DeliversByteByByte)
{
    ScriptedServer server("127.0.0.2", 0, {{readRequest(), sendByteByByte("slow", 20ms)}});
    auto const start = Clock::now();
    EXPECT_EQ(exchange(server.port(), "GET /\r\n\r\n"), "slow");
    EXPECT_GE(Clock::now() - start, 60ms);
}

TEST(ScriptedServer, ResetsConnection)
{
    ScriptedServer server("127.0.0.2", 0, {{readRequest(), reset()}});
    Socket socket;
    socket.expires_after(20s);
    socket.connect("127.0.0.2", std::to_string(server.port()));
    socket << "GET /\r\n\r\n" << std::flush;
    EXPECT_EQ(restOf(socket), "");
    EXPECT_EQ(socket.error(), boost::asio::error::connection_reset);
}

TEST(ScriptedServer, StopsDuringWait)
{
    auto const start = Clock::now();
    {
        ScriptedServer server("127.0.0.2", 0, {{send("x"), wait(1h)}});
        Socket socket;
        socket.expires_after(20s);
        socket.connect("127.0.0.2", std::to_string(server.port()));
        EXPECT_EQ(socket.get(), 'x');
    }
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST(ScriptedServer, ReportsOccupiedAddress)
{
    ScriptedServer server("127.0.0.2", 0, {});
    EXPECT_THROW(ScriptedServer("127.0.0.2", server.port(), {}), std::system_error);
}

TEST(ScriptedServer, ServesOnPort80OfSeveralLoopbackAddresses)
{
    ScriptedServer one("127.0.0.2", 80, {{send("one")}});
    ScriptedServer two("127.0.0.3", 80, {{send("two")}});
    EXPECT_EQ(one.port(), 80);
    EXPECT_EQ(exchange(80, ""), "one");
}

TEST(HttpFileServer, ServesFilesByPath)
{
    HttpFileServer server("127.0.0.2", {{"/a.crl", {'a', 'b'}}}, 0);
    EXPECT_EQ(
        exchange(server.port(), "GET /a.crl HTTP/1.0\r\n\r\n"),
        "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nab");
    EXPECT_EQ(
        exchange(server.port(), "GET /b.crl HTTP/1.0\r\n\r\n"),
        "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n");
}

TEST(TemporaryFolder, IsRemovedWithItsContent)
{
    std::filesystem::path path;
    {
        TemporaryFolder const folder;
        path = folder.path();
        auto const file = folder.write("file", std::string("content"));
        std::ifstream stream(file);
        EXPECT_EQ(restOf(stream), "content");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}
