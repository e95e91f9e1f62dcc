#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <vector>

namespace foundation::test {

using TLSContextHandle = std::shared_ptr<SSL_CTX>;

TLSContextHandle makeTLSContext(SSL_METHOD const* method = TLS_method());

/// A server that shows the certificate and, behind it, the chain.
TLSContextHandle
makeTLSServer(X509Handle const& certificate, KeyHandle const& key, std::vector<X509Handle> const& chain = {});

/// A client that accepts no server but those with a chain to the context's own store.
TLSContextHandle makeTLSClient();

/// What the client makes of the server's certificate in a handshake between the two, in memory. X509_V_OK
/// only if both have finished it. A client that is given a host name wants the certificate to be made out to
/// it.
long verifyResultOfHandshake(
    TLSContextHandle const& client, TLSContextHandle const& server, std::string const& hostName = "");

} // namespace foundation::test
