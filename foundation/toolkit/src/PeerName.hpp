#pragma once

/// @file
/// Checks the names of peers that a program asks for. OpenSSL takes an empty host for "no check", a host with
/// a leading dot for "any host below it", and addresses with text behind them.

#include <foundation/certificates/ByteArray.hpp>

#include <string>

namespace foundation::toolkit {

/// Returns the host.
/// @throws InvalidArgument "The host name is empty.", "The host name contains a NUL character.", "The host
///     name is not ASCII. Write an international name in its A-labels.", "The host name begins with a dot."
std::string const& requireHost(std::string const& host);

/// Returns the host if OpenSSL takes it for a verification. OpenSSL 4 takes only what can be a host name.
/// @throws InvalidArgument "OpenSSL refuses the host name.", and as requireHost does
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
std::string const& requireHostForVerification(std::string const& host);

/// Returns the 4 or 16 bytes of the address.
/// @throws InvalidArgument "The IP address is empty.", "The IP address contains a NUL character.", "The IP
///     address is not ASCII.", "The text is not an IP address."
foundation::certificates::ByteArray requireAddress(std::string const& address);

} // namespace foundation::toolkit
