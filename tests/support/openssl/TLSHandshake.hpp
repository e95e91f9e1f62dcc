#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

namespace foundation::test {

using TLSContextHandle = std::shared_ptr<SSL_CTX>;

TLSContextHandle makeTLSContext(SSL_METHOD const* method = TLS_method());

/// Returns a server that presents the certificate, followed by the chain.
TLSContextHandle
makeTLSServer(X509Handle const& certificate, KeyHandle const& key, std::vector<X509Handle> const& chain = {});

/// Returns a client that accepts only servers with a chain to the context's own store.
TLSContextHandle makeTLSClient();

/// Runs a handshake in memory. Returns the client's verification result for the server's certificate. The
/// result is X509_V_OK only if both sides finished the handshake. With a host name, the client also checks
/// that the certificate is issued for it.
long verifyResultOfHandshake(
    TLSContextHandle const& client, TLSContextHandle const& server, std::string const& hostName = "");

} // namespace foundation::test
