#include "revocation/HttpClient.hpp"

#include "revocation/SocketBuffer.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <boost/asio/error.hpp>
#include <boost/system/error_code.hpp>

#include <chrono>
#include <istream>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace foundation::certificates {

namespace {

constexpr std::chrono::seconds exchangeTimeLimit(60);
constexpr unsigned int statusOk = 200;
constexpr std::string_view versionPrefix = "HTTP/";

[[noreturn]] void failToConnect(boost::system::error_code const& reason)
{
    throw X509CertificateException("CRL Download Error: Unable to connect: " + reason.message() + "\n");
}

/// Refuses a name with a NUL character. The system would read it up to there, and that part may be the name
/// of another host.
void throwIfNoName(std::string const& host)
{
    if (host.find('\0') != std::string::npos) {
        failToConnect(boost::asio::error::host_not_found);
    }
}

/// Small container images have no /etc/services, and then no name of a service is known.
boost::system::error_code connectToWebServer(SocketBuffer& socket, std::string const& host)
{
    auto const failure = socket.connectTo(host, "http");
    return failure == boost::asio::error::service_not_found ? socket.connectTo(host, "80") : failure;
}

void sendRequest(std::ostream& connection, std::string const& host, std::string const& path)
{
    // One string, so that the request takes as few packets as possible.
    std::string const request = "GET " + path + " HTTP/1.0\r\n" + "Host: " + host + "\r\n" +
                                "Accept: */*\r\n"
                                "Connection: close\r\n\r\n";
    connection << request << std::flush;
}

/// Refuses the answer as invalid only if the stream has failed and the first word is wrong. A stream that has
/// not failed passes with any first word. One that failed after a good first word has the status code 0.
void readStatusLine(std::istream& connection)
{
    std::string httpVersion;
    unsigned int statusCode = 0;
    std::string statusMessage;
    connection >> httpVersion;
    connection >> statusCode;
    std::getline(connection, statusMessage);

    if (!connection && httpVersion.compare(0, versionPrefix.size(), versionPrefix) != 0) {
        throw X509CertificateException("CRL Download Error: Invalid response\n");
    }
    if (statusCode != statusOk) {
        throw X509CertificateException(
            "CRL Download Error: Response returned with status code: " + std::to_string(statusCode) + "\n");
    }
}

/// Only "\r\n" alone on a line ends the headers; a bare line feed does not.
void skipHeaders(std::istream& connection)
{
    std::string line;
    while (std::getline(connection, line) && line != "\r") {
    }
}

std::string readToEnd(std::istream& connection)
{
    std::stringstream body;
    body << connection.rdbuf();
    return body.str();
}

} // namespace

std::string exchangeOverHttp(std::iostream& connection, std::string const& host, std::string const& path)
{
    sendRequest(connection, host, path);
    readStatusLine(connection);
    skipHeaders(connection);
    return readToEnd(connection);
}

std::string fetchOverHttp(std::string const& host, std::string const& path)
{
    throwIfNoName(host);
    // Buffer and stream are separate objects. As one object, like Boost's tcp::iostream, they end the program
    // if memory runs out for the buffer: libc++ cannot destroy a stream that is not initialized yet.
    SocketBuffer socket;
    std::iostream connection(&socket);
    connection.setf(std::ios::unitbuf);
    if (auto const failure = connectToWebServer(socket, host)) {
        failToConnect(failure);
    }
    // An absolute deadline instead of a limit for each read: a slow server cannot hold the caller for long.
    socket.expires_after(exchangeTimeLimit);
    return exchangeOverHttp(connection, host, path);
}

} // namespace foundation::certificates
