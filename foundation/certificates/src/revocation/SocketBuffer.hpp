#pragma once

#include <boost/asio/basic_socket_streambuf.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>

#include <string>

namespace foundation::certificates {

/// A TCP connection as a stream buffer that works in programs with signals.
///
/// Boost's own buffer treats an interrupted wait as the end of the connection, so a signal would truncate a
/// body. This buffer waits again: for a connection as long as the system does, for bytes until the deadline
/// that `expires_after` sets. A write that fails drops the bytes that were not sent.
class SocketBuffer : public boost::asio::basic_socket_streambuf<boost::asio::ip::tcp>
{
public:
    /// Tries the host's addresses in order, until one accepts. Returns no error after success, otherwise the
    /// resolver's error or that of the last address.
    boost::system::error_code connectTo(std::string const& host, std::string const& service);

protected:
    int_type underflow() override;
#ifndef _WIN32
    int_type overflow(int_type character) override;

private:
    bool sendPending();
    boost::system::error_code waitUntilWritable();
    boost::system::error_code resultOfPendingConnect();
#endif
};

} // namespace foundation::certificates
