#pragma once

#include "support/openssl/TLSHandshake.hpp"
#include "support/operations/Operation.hpp"

#include <string>
#include <vector>

/// @file
/// The rows of the toolkit's table for certificates from sources: files, streams and TLS connections.

namespace foundation::test {

/// The readers of the rows have sources of their own.
struct NoObject
{};

inline std::string rendered(NoObject const& /*object*/)
{
    return "";
}

/// A connection after its handshake, whose certificates nothing has read yet.
struct ConnectedClient
{
    TLSConnections ends;
};

ConnectedClient newConnectedClient();

inline std::string rendered(ConnectedClient const& /*client*/)
{
    return "";
}

/// A client's context. Its state is whether it accepts the right server, and another one.
struct ClientContext
{
    TLSContextHandle context = makeTLSContext(TLS_client_method());
};

std::string rendered(ClientContext const& client);

std::vector<Operation<NoObject>> const& readerOperations();
std::vector<Operation<ConnectedClient>> const& tlsPeerOperations();
std::vector<Operation<ClientContext>> const& tlsContextOperations();

/// Returns both ends of a connection whose client trusts the server's root, before the handshake.
TLSConnections makeTrustingConnections();

} // namespace foundation::test
