#include "ServerCertificates.hpp"

#include <foundation/toolkit/TLSPeer.hpp>

#include <boost/asio/connect.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <stdexcept>

namespace foundation::tools {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using foundation::toolkit::Certificate;

namespace {

constexpr std::chrono::seconds timeLimit(10);

using Connection = asio::ssl::stream<tcp::socket>;

bool isPort(std::string const& text)
{
    std::uint16_t number = 0;
    auto const* const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number != 0;
}

/// Accepts servers that other clients refuse before they show the certificate.
void acceptOldServers(SSL_CTX* context)
{
    SSL_CTX_set_security_level(context, 0);
    SSL_CTX_set_min_proto_version(context, 0);
    SSL_CTX_set_options(context, SSL_OP_LEGACY_SERVER_CONNECT);
}

/// Connects and runs the handshake, step by step. Must outlive the run of the service.
class Handshake
{
public:
    Handshake(asio::io_context& service, Connection& theConnection)
        : resolver(service),
          connection(theConnection)
    {}

    void start(ServerAddress const& server)
    {
        resolver.async_resolve(
            server.host, server.port, tcp::resolver::numeric_service,
            [this](error_code const& failure, tcp::resolver::results_type const& endpoints) {
                if (failure) {
                    outcome = failure;
                } else {
                    connect(endpoints);
                }
            });
    }

    /// Why the handshake failed.
    error_code const& failure() const { return outcome; }

private:
    void connect(tcp::resolver::results_type const& endpoints)
    {
        asio::async_connect(
            connection.next_layer(), endpoints, [this](error_code const& failure, tcp::endpoint const&) {
                if (failure) {
                    outcome = failure;
                } else {
                    shakeHands();
                }
            });
    }

    void shakeHands()
    {
        connection.async_handshake(
            asio::ssl::stream_base::client, [this](error_code const& failure) { outcome = failure; });
    }

    tcp::resolver resolver;
    Connection& connection;
    error_code outcome = asio::error::timed_out;
};

} // namespace

std::optional<ServerAddress> serverAddressFrom(std::string const& text)
{
    auto const colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || !isPort(text.substr(colon + 1))) {
        return std::nullopt;
    }
    auto host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        return std::nullopt;
    }
    return ServerAddress{host, text.substr(colon + 1)};
}

bool isIPAddress(std::string const& text)
{
    error_code failure;
    asio::ip::make_address(text, failure);
    return !failure;
}

std::vector<Certificate> fetchCertificates(ServerAddress const& server, std::string const& name)
{
    asio::io_context service;
    asio::ssl::context context(asio::ssl::context::tls_client);
    acceptOldServers(context.native_handle());
    Connection connection(service, context);
    if (!isIPAddress(name)) {
        SSL_set_tlsext_host_name(connection.native_handle(), name.c_str());
    }
    Handshake handshake(service, connection);
    handshake.start(server);
    service.run_for(timeLimit);

    // A server that requires a client's certificate ends the handshake after it has sent its own.
    auto const leaf = toolkit::peerCertificate(connection.native_handle());
    if (!leaf) {
        auto const failure = handshake.failure();
        throw std::runtime_error(
            server.host + ":" + server.port + ": " +
            (failure ? failure.message() : "the server sent no certificate"));
    }
    auto certificates = toolkit::peerIntermediates(connection.native_handle());
    certificates.insert(certificates.begin(), *leaf);
    return certificates;
}

} // namespace foundation::tools
