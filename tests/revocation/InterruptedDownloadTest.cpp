#include "revocation/HttpClient.hpp"
#include "revocation/SocketBuffer.hpp"

#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <boost/asio/error.hpp>
#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h> // NOLINT(modernize-deprecated-headers): sigaction is not in <csignal>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

// Signals interrupt the system calls of a download: a program with timers or a profiler has many of them.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr char const serverAddress[] = "127.0.0.2";
constexpr std::uint16_t httpPort = 80;
/// The fewest signals that make a test count: each row waits for 200 ms or more, at one signal a millisecond.
constexpr int minSignals = 20;
/// More bytes than the system's buffers take while the peer does not read.
constexpr std::size_t maxBuffered = 1U << 23;

struct HandlerFlags
{
    char const* name;
    int flags;
};

// `poll` is interrupted with either; SA_RESTART makes the system repeat other calls by itself.
constexpr HandlerFlags allHandlerFlags[] = {{"SA_RESTART", SA_RESTART}, {"no flags", 0}};

volatile std::sig_atomic_t numSignals = 0;

void countSignal(int /*number*/)
{
    numSignals = numSignals + 1;
}

/// Keeps SIGALRM from this thread and from the threads that it starts meanwhile.
class BlockedAlarm
{
public:
    BlockedAlarm()
    {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarm, &before);
    }
    ~BlockedAlarm() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    BlockedAlarm(BlockedAlarm const&) = delete;
    BlockedAlarm& operator=(BlockedAlarm const&) = delete;

private:
    sigset_t before{};
};

/// Interrupts this thread a thousand times a second, or once after some milliseconds. All other threads must
/// have blocked SIGALRM.
class Interruptions
{
public:
    enum class Number
    {
        Many,
        One
    };

    explicit Interruptions(HandlerFlags const& handlerFlags, Number number = Number::Many)
        : least(number == Number::Many ? minSignals : 1)
    {
        numSignals = 0;
        struct sigaction action = {};
        action.sa_handler = countSignal;
        action.sa_flags = handlerFlags.flags;
        sigaction(SIGALRM, &action, &actionBefore);
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_UNBLOCK, &alarm, &maskBefore);
        if (number == Number::Many) {
            setTimer(period, period);
        } else {
            setTimer(delayOfOne, 0);
        }
    }
    ~Interruptions()
    {
        setTimer(0, 0);
        pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
        sigaction(SIGALRM, &actionBefore, nullptr);
        EXPECT_GE(numSignals, least);
    }
    Interruptions(Interruptions const&) = delete;
    Interruptions& operator=(Interruptions const&) = delete;

private:
    // microseconds
    static constexpr suseconds_t period = 1000;
    static constexpr suseconds_t delayOfOne = 50000;

    static void setTimer(suseconds_t first, suseconds_t following)
    {
        itimerval timer{};
        timer.it_value.tv_usec = first;
        timer.it_interval.tv_usec = following;
        setitimer(ITIMER_REAL, &timer, nullptr);
    }

    int least;
    struct sigaction actionBefore = {};
    sigset_t maskBefore{};
};

/// Listens with a queue of connections that is full, so that a client has to wait for its connection.
class FullListener
{
public:
    FullListener() : listener(listenAt(serverAddress, httpPort)), filler(::socket(AF_INET, SOCK_STREAM, 0))
    {
        ::listen(listener, 0);
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        ::connect(filler, reinterpret_cast<sockaddr const*>(&address), size);
    }
    ~FullListener()
    {
        closeSocket(filler);
        close();
    }
    FullListener(FullListener const&) = delete;
    FullListener& operator=(FullListener const&) = delete;

    SocketHandle handle() const { return listener; }

    void close()
    {
        if (isOpen) {
            closeSocket(listener);
            isOpen = false;
        }
    }

private:
    SocketHandle listener;
    SocketHandle filler;
    bool isOpen = true;
};

/// Accepts connections from a full queue after `acceptDelay`, reads after `readDelay` more, and answers one
/// request.
class LateServer
{
public:
    LateServer(std::chrono::milliseconds acceptDelay, std::chrono::milliseconds readDelay)
    {
        worker = std::thread([this, acceptDelay, readDelay] { serve(acceptDelay, readDelay); });
    }
    ~LateServer()
    {
        ::shutdown(queue.handle(), SHUT_RDWR); // wakes a thread that still waits for a connection
        end();
    }
    LateServer(LateServer const&) = delete;
    LateServer& operator=(LateServer const&) = delete;

    /// What the client sent. To be asked after the client has its answer.
    std::string const& request()
    {
        end();
        return received;
    }

    bool hasFurtherConnection() const
    {
        pollfd waiting{queue.handle(), POLLIN, 0};
        return ::poll(&waiting, 1, 0) != 0;
    }

private:
    void serve(std::chrono::milliseconds acceptDelay, std::chrono::milliseconds readDelay)
    {
        std::this_thread::sleep_for(acceptDelay);
        closeSocket(acceptFrom(queue.handle()));
        auto const connection = acceptFrom(queue.handle());
        std::this_thread::sleep_for(readDelay);
        std::string const endOfRequest = "\r\n\r\n";
        for (std::string bytes = receiveSome(connection); !bytes.empty(); bytes = receiveSome(connection)) {
            received += bytes;
            if (received.size() >= endOfRequest.size() &&
                received.compare(received.size() - endOfRequest.size(), std::string::npos, endOfRequest) ==
                    0) {
                sendSome(connection, "HTTP/1.0 200 OK\r\n\r\nbody");
                endSending(connection);
            }
        }
        closeSocket(connection);
    }

    void end()
    {
        if (worker.joinable()) {
            worker.join();
        }
    }

    FullListener queue;
    std::string received;
    std::thread worker;
};

class InterruptedDownload : public LeavesNoTrace
{
protected:
    static std::string requestFor(std::string const& path)
    {
        return "GET " + path + " HTTP/1.0\r\nHost: " + serverAddress +
               "\r\nAccept: */*\r\nConnection: close\r\n\r\n";
    }

private:
    BlockedAlarm const blockedAlarm;
};

} // namespace

TEST_F(InterruptedDownload, KeepsWholeBody)
{
    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        ScriptedServer const server(
            serverAddress, httpPort,
            {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nfirst "), wait(300ms), send("second")}});
        Interruptions const interruptions(handlerFlags);

        EXPECT_EQ(fetchOverHttp(serverAddress, "/root.crl"), "first second");
        EXPECT_EQ(server.numConnections(), 1U);
    }
}

TEST_F(InterruptedDownload, FindsRevocation)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.setDistributionPoints({std::string("http://") + serverAddress + "/root.crl"});
    });
    auto const der = toDer(makeCrl(root, {revoke(leaf)}));
    auto const half = der.begin() + static_cast<std::ptrdiff_t>(der.size() / 2);
    auto const bestEffort = optionsWith({}, Options::CheckCRL::LeafOnly, Options::DownloadCRL::BestEffort);

    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        ScriptedServer const server(
            serverAddress, httpPort,
            {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\n"), send(Bytes(der.begin(), half)), wait(300ms),
              send(Bytes(half, der.end()))}});
        Interruptions const interruptions(handlerFlags);

        auto const results =
            load(leaf).validateCertificate(X509CertificateChain(), bestEffort, storeOf({root}));

        EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Revoked);
    }
}

TEST_F(InterruptedDownload, WaitsForItsOneConnection)
{
    constexpr auto acceptDelay = 200ms;
    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        LateServer server(acceptDelay, 0ms);
        auto const begin = Clock::now();
        {
            Interruptions const interruptions(handlerFlags);
            EXPECT_EQ(fetchOverHttp(serverAddress, "/root.crl"), "body");
        }

        EXPECT_GE(Clock::now() - begin, acceptDelay);
        EXPECT_EQ(server.request(), requestFor("/root.crl"));
        EXPECT_FALSE(server.hasFurtherConnection());
    }
}

TEST_F(InterruptedDownload, SendsEachByteOfRequestOnce)
{
    std::string path = "/";
    while (path.size() < maxBuffered) {
        path += std::to_string(path.size());
    }
    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        LateServer server(0ms, 300ms);
        {
            Interruptions const interruptions(handlerFlags);
            EXPECT_EQ(fetchOverHttp(serverAddress, path), "body");
        }

        EXPECT_TRUE(server.request() == requestFor(path));
    }
}

TEST_F(InterruptedDownload, EndsReadAtDeadline)
{
    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        ScriptedServer const server(serverAddress, httpPort, {{send("body"), waitForPeer()}});
        SocketBuffer socket;
        ASSERT_FALSE(socket.connectTo(serverAddress, "http"));
        auto const begin = Clock::now();
        socket.expires_after(300ms);
        Interruptions const interruptions(handlerFlags);

        char bytes[5];
        EXPECT_EQ(socket.sgetn(bytes, sizeof bytes), 4);

        EXPECT_EQ(socket.error(), boost::asio::error::timed_out);
        EXPECT_GE(Clock::now() - begin, 300ms);
        EXPECT_LT(Clock::now() - begin, 10s);
    }
}

TEST_F(InterruptedDownload, EndsWriteAtDeadline)
{
    std::string const bytes(maxBuffered, 'x');
    for (auto const& handlerFlags : allHandlerFlags) {
        SCOPED_TRACE(handlerFlags.name);
        ScriptedServer const server(serverAddress, httpPort, {{wait(1h)}});
        SocketBuffer socket;
        ASSERT_FALSE(socket.connectTo(serverAddress, "http"));
        auto const begin = Clock::now();
        socket.expires_after(300ms);
        Interruptions const interruptions(handlerFlags);

        EXPECT_LT(socket.sputn(bytes.data(), maxBuffered), static_cast<std::streamsize>(maxBuffered));

        EXPECT_GE(Clock::now() - begin, 300ms);
        EXPECT_LT(Clock::now() - begin, 10s);

        // So does a flush of a few bytes for which there is no room.
        constexpr std::streamsize few = 100;
        int result = 0;
        auto const beginOfFlushes = Clock::now();
        while (result == 0 && Clock::now() - beginOfFlushes < 10s) {
            socket.expires_after(100ms);
            ASSERT_EQ(socket.sputn(bytes.data(), few), few);
            result = socket.pubsync();
        }
        EXPECT_EQ(result, -1);
    }
}

TEST_F(InterruptedDownload, EndsWriteWithTheConnection)
{
    std::string const bytes = "\r\n\r\n" + std::string(maxBuffered, 'x');
    ScriptedServer const server(serverAddress, httpPort, {{readRequest(), reset()}});
    SocketBuffer socket;
    ASSERT_FALSE(socket.connectTo(serverAddress, "http"));
    auto const begin = Clock::now();
    socket.expires_after(30s);

    EXPECT_LT(socket.sputn(bytes.data(), maxBuffered), static_cast<std::streamsize>(maxBuffered));

    EXPECT_LT(Clock::now() - begin, 10s);
}

TEST_F(InterruptedDownload, EndsConnectAtDeadline)
{
    for (auto const number : {Interruptions::Number::Many, Interruptions::Number::One}) {
        for (auto const& handlerFlags : allHandlerFlags) {
            SCOPED_TRACE(handlerFlags.name);
            LateServer const server(1s, 0ms);
            SocketBuffer socket;
            socket.expires_after(300ms);
            Interruptions const interruptions(handlerFlags, number);

            EXPECT_EQ(socket.connectTo(serverAddress, "http"), boost::asio::error::timed_out);
        }
    }
}

TEST_F(InterruptedDownload, ReportsRefusalOfInterruptedConnect)
{
    FullListener queue;
    std::thread closing([&] {
        std::this_thread::sleep_for(200ms);
        queue.close();
    });
    SocketBuffer socket;
    socket.expires_after(30s);
    {
        Interruptions const interruption(allHandlerFlags[0], Interruptions::Number::One);
        EXPECT_EQ(socket.connectTo(serverAddress, "http"), boost::asio::error::connection_refused);
    }
    closing.join();
}

TEST_F(InterruptedDownload, SendsNothingAfterDeadline)
{
    ScriptedServer const server(serverAddress, httpPort, {{waitForPeer()}});
    SocketBuffer socket;
    ASSERT_FALSE(socket.connectTo(serverAddress, "http"));
    socket.expires_after(-1ms);

    EXPECT_EQ(socket.sputc('x'), 'x'); // into the buffer
    EXPECT_EQ(socket.pubsync(), -1);
}
