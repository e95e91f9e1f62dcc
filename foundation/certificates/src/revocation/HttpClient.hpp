#pragma once

/// @file
/// A deliberately small HTTP/1.0 client: one GET request over plain TCP, and the body of an answer with
/// status 200. It follows no redirects, uses no proxy, reads no headers and does not retry. It blocks the
/// caller's thread.

#include <iosfwd>
#include <string>

namespace foundation::certificates {

/// Connects to the host's "http" service, sends one GET request and returns the body of the answer. The body
/// ends with the connection.
///
/// Name resolution and connect have no deadline of their own. Request, headers and body together have 60
/// seconds after that. If the body is still arriving then, the part that arrived is returned.
/// @throws X509CertificateException "CRL Download Error: Unable to connect: " and the system's message and
///     "\n"; and what exchangeOverHttp throws
std::string fetchOverHttp(std::string const& host, std::string const& path);

/// Sends the request over an open connection and returns the body of the answer. Accepts some malformed
/// answers: see the source.
/// @throws X509CertificateException "CRL Download Error: Invalid response\n"; "CRL Download Error: Response
///     returned with status code: " and the status code and "\n"
std::string exchangeOverHttp(std::iostream& connection, std::string const& host, std::string const& path);

} // namespace foundation::certificates
