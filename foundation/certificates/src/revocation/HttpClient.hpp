#pragma once

/// @file
/// A deliberately small HTTP/1.0 client: one GET over plain TCP, and the body of an answer with status 200.
/// It follows no redirects, knows no proxy, reads no header, tries nothing twice. All its waiting blocks
/// the caller's thread.

#include <iosfwd>
#include <string>

namespace foundation::certificates {

/// Connects to the host's "http" service, sends one GET request and gives the body of the answer, which
/// ends where the connection ends. Name resolution and connect take as long as the system lets them;
/// request, headers and body together have 60 seconds from then on. A body that is still arriving when they
/// have passed is given as far as it came.
/// @throws X509CertificateException "CRL Download Error: Unable to connect: " and the system's message and
///     "\n"; and what exchangeOverHttp throws
std::string fetchOverHttp(std::string const& host, std::string const& path);

/// The exchange alone, over a connection that stands already. Bytes sent back are judged
/// leniently: see the source.
/// @throws X509CertificateException "CRL Download Error: Invalid response\n"; "CRL Download Error: Response
///     returned with status code: " and the status code and "\n"
std::string exchangeOverHttp(std::iostream& connection, std::string const& host, std::string const& path);

} // namespace foundation::certificates
