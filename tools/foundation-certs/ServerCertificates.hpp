#pragma once

#include <foundation/toolkit/Certificate.hpp>

#include <optional>
#include <string>
#include <vector>

namespace foundation::tools {

struct ServerAddress
{
    std::string host;
    std::string port;
};

/// Returns the parts of "HOST:PORT" or "[ADDRESS]:PORT"; nothing for any other text.
std::optional<ServerAddress> serverAddressFrom(std::string const& text);

/// Whether the text is an IP address.
bool isIPAddress(std::string const& text);

/// Returns the certificates that the TLS server sends, its own first. Checks nothing, and sends nothing after
/// the handshake. Gives up after ten seconds; only the system's resolver can take longer.
/// @param server where to connect to; no proxy is used
/// @param name the host name to ask for (server name indication), unless it is an IP address
/// @throws std::runtime_error if no certificate was received
std::vector<toolkit::Certificate> fetchCertificates(ServerAddress const& server, std::string const& name);

} // namespace foundation::tools
