#include "revocation/SocketBuffer.hpp"

#include <boost/asio/error.hpp>

#ifndef _WIN32
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#endif

namespace foundation::certificates {

namespace {

using Buffer = boost::asio::basic_socket_streambuf<boost::asio::ip::tcp>;

#ifndef _WIN32

#ifdef MSG_NOSIGNAL
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0; // Boost has set SO_NOSIGPIPE on the socket
#endif

/// Returns the milliseconds for `poll`; 0 if the deadline has passed.
int timeoutUntil(Buffer::time_point deadline)
{
    using std::chrono::milliseconds;
    auto const left = std::chrono::ceil<milliseconds>(deadline - Buffer::clock_type::now());
    milliseconds const longest(std::numeric_limits<int>::max());
    return static_cast<int>(std::clamp(left, milliseconds(0), longest).count());
}

boost::system::error_code systemError(int number)
{
    return {number, boost::asio::error::get_system_category()};
}

#endif

} // namespace

boost::system::error_code SocketBuffer::connectTo(std::string const& host, std::string const& service)
{
    boost::system::error_code failure;
    boost::asio::ip::tcp::resolver resolver(socket().get_executor());
    auto const addresses = resolver.resolve(host, service, failure);
    if (failure) {
        return failure;
    }
    failure = boost::asio::error::not_found;
    for (auto const& address : addresses) {
        connect(address.endpoint());
        failure = error();
#ifndef _WIN32
        if (failure == boost::asio::error::interrupted) {
            failure = resultOfPendingConnect();
        }
#endif
        if (!failure) {
            break;
        }
    }
    return failure;
}

SocketBuffer::int_type SocketBuffer::underflow()
{
    // Each attempt begins with a look at the deadline.
    auto character = Buffer::underflow();
    while (traits_type::eq_int_type(character, traits_type::eof()) &&
           error() == boost::asio::error::interrupted) {
        character = Buffer::underflow();
    }
    return character;
}

#ifndef _WIN32

// Boost's `overflow` does not tell how much it sent before it was interrupted, so it cannot be called again.
SocketBuffer::int_type SocketBuffer::overflow(int_type character)
{
    bool const sent = sendPending();
    setp(pbase(), epptr());
    if (!sent) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(character);
        pbump(1);
    }
    return traits_type::not_eof(character);
}

bool SocketBuffer::sendPending()
{
    char const* unsent = pbase();
    while (unsent != pptr()) {
        if (clock_type::now() > expiry()) {
            return false;
        }
        auto const numSent =
            ::send(socket().native_handle(), unsent, static_cast<std::size_t>(pptr() - unsent), sendFlags);
        if (numSent >= 0) {
            unsent += numSent;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (waitUntilWritable()) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

boost::system::error_code SocketBuffer::waitUntilWritable()
{
    for (;;) {
        pollfd waiting{socket().native_handle(), POLLOUT, 0};
        int const numReady = ::poll(&waiting, 1, timeoutUntil(expiry()));
        if (numReady > 0) {
            return {};
        }
        if (numReady < 0 && errno != EINTR) {
            return systemError(errno);
        }
        if (clock_type::now() > expiry()) {
            return boost::asio::error::timed_out;
        }
    }
}

/// Returns the result of an interrupted connect, which continues by itself. A second connect on the same
/// socket would be refused. One on another socket would be a second connection.
boost::system::error_code SocketBuffer::resultOfPendingConnect()
{
    if (auto const failure = waitUntilWritable()) {
        return failure;
    }
    int result = 0;
    socklen_t size = sizeof result;
    bool const isKnown = ::getsockopt(socket().native_handle(), SOL_SOCKET, SO_ERROR, &result, &size) == 0;
    return systemError(isKnown ? result : errno);
}

#endif

} // namespace foundation::certificates
