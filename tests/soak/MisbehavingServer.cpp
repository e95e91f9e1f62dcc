#include "soak/MisbehavingServer.hpp"

#include "support/Text.hpp"
#include "support/system/ScriptedServer.hpp"

#include <chrono>
#include <sstream>
#include <string_view>
#include <utility>

namespace foundation::test {

namespace {

using namespace std::chrono_literals;

/// More than the threads that may ask at the same time.
constexpr int numThreads = 12;
constexpr std::size_t trailingBytes = 200'000;

} // namespace

MisbehavingServer::MisbehavingServer(std::uint16_t port, std::map<std::string, Page> thePages)
    : pages(std::move(thePages)),
      stopSignal(makeStopSignal()),
      listener(listenAt("0.0.0.0", port))
{
    for (int number = 0; number < numThreads; ++number) {
        threads.emplace_back([this] { serveUntilStopped(); });
    }
}

MisbehavingServer::~MisbehavingServer()
{
    closeSocket(stopSignal.signal); // wakes every thread
    for (auto& thread : threads) {
        thread.join();
    }
    closeSocket(listener);
    closeSocket(stopSignal.watched);
}

void MisbehavingServer::waitUntilIdle() const
{
    while (numServing > 0) {
        std::this_thread::sleep_for(1ms);
    }
}

void MisbehavingServer::serveUntilStopped()
{
    for (;;) {
        SocketHandle connection = noSocket;
        {
            std::lock_guard<std::mutex> const lock(accepting);
            if (!waitUntilReady(listener, Readiness::ToRead, stopSignal)) {
                return;
            }
            ++numServing;
            connection = acceptFrom(listener);
        }
        if (connection != noSocket) {
            serve(connection);
            closeSocket(connection);
        }
        --numServing;
    }
}

void MisbehavingServer::serve(SocketHandle connection) const
{
    std::istringstream request(readRequest(connection));
    std::string method;
    std::string path;
    request >> method >> path;
    auto const page = pages.find(path);
    answer(connection, page == pages.end() ? Page{Manner::NotFound, {}} : page->second);
}

/// Returns the request up to its blank line.
std::string MisbehavingServer::readRequest(SocketHandle connection) const
{
    std::string request;
    while (!contains(request, "\r\n\r\n") && waitUntilReady(connection, Readiness::ToRead, stopSignal)) {
        auto const bytes = receiveSome(connection);
        if (bytes.empty()) {
            break;
        }
        request += bytes;
    }
    return request;
}

void MisbehavingServer::answer(SocketHandle connection, Page const& page) const
{
    auto const whole = httpOk(page.body);
    switch (page.manner) {
    case Manner::Good:
        sendAll(connection, whole);
        break;
    case Manner::Slow:
        for (std::size_t sent = 0; sent < whole.size(); sent += 32) {
            if (!sendAll(connection, whole.substr(sent, 32)) || !sleepUnlessStopped(2ms, stopSignal)) {
                break;
            }
        }
        break;
    case Manner::Late:
        sleepUnlessStopped(50ms, stopSignal);
        sendAll(connection, whole);
        break;
    case Manner::NotFound:
        sendAll(connection, httpResponse("HTTP/1.0 404 Not Found", ""));
        break;
    case Manner::Empty:
        sendAll(connection, httpOk({}));
        break;
    case Manner::Truncated:
        sendAll(connection, whole.substr(0, whole.size() - page.body.size() / 2));
        break;
    case Manner::Garbage:
        sendAll(connection, std::string(1000, '\xff'));
        break;
    case Manner::NoHeaders:
        sendAll(connection, "HTTP/1.0 200 OK\r\n" + asText(page.body));
        break;
    case Manner::Silent:
        break;
    case Manner::Reset:
        sendAll(connection, "HTTP/1.");
        resetAtClose(connection);
        return;
    case Manner::Trailing:
        sendAll(connection, whole + std::string(trailingBytes, 'x'));
        break;
    }
    // Closing with unread bytes sends RST, and the peer loses what is still on its way.
    endSending(connection);
    while (waitUntilReady(connection, Readiness::ToRead, stopSignal) && !receiveSome(connection).empty()) {
    }
}

bool MisbehavingServer::sendAll(SocketHandle connection, std::string const& bytes) const
{
    std::string_view left = bytes;
    while (!left.empty()) {
        if (!waitUntilReady(connection, Readiness::ToWrite, stopSignal)) {
            return false;
        }
        auto const sent = sendSome(connection, left);
        if (!sent) {
            return false;
        }
        left.remove_prefix(*sent);
    }
    return true;
}

} // namespace foundation::test
