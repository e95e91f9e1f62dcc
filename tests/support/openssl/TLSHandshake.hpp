#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/ssl.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace foundation::test {

using TLSContextHandle = std::shared_ptr<SSL_CTX>;
using TLSConnectionHandle = std::shared_ptr<SSL>;

TLSContextHandle makeTLSContext(SSL_METHOD const* method = TLS_method());

/// Returns a server that presents the certificate, followed by the chain.
TLSContextHandle
makeTLSServer(X509Handle const& certificate, KeyHandle const& key, std::vector<X509Handle> const& chain = {});

/// Returns a client that accepts only servers with a chain to the context's own store.
TLSContextHandle makeTLSClient();

/// The two ends of a connection in memory.
struct TLSConnections
{
    TLSConnectionHandle client;
    TLSConnectionHandle server;
    /// Whether both sides have finished the handshake.
    bool isComplete = false;
};

/// Returns both ends of a connection that has not begun its handshake.
TLSConnections makeConnections(TLSContextHandle const& client, TLSContextHandle const& server);

/// Runs the handshake until both sides have finished it or one has failed.
void shakeHands(TLSConnections& connections);

/// Makes a connection, prepares the client's end, and runs the handshake.
TLSConnections connected(
    TLSContextHandle const& client, TLSContextHandle const& server,
    std::function<void(SSL* client)> const& prepare = {});

/// Runs a handshake in memory. Returns the client's verification result for the server's certificate. The
/// result is X509_V_OK only if both sides finished the handshake. With a host name, the client also checks
/// that the certificate is issued for it.
long verifyResultOfHandshake(
    TLSContextHandle const& client, TLSContextHandle const& server, std::string const& hostName = "");

} // namespace foundation::test
