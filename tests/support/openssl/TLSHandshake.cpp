#include "support/openssl/TLSHandshake.hpp"

#include "support/openssl/OpenSSLErrors.hpp"

#include <gtest/gtest.h>

namespace foundation::test {

namespace {

/// Returns one end of a connection over its half of a BIO pair.
TLSConnectionHandle connectionOf(TLSContextHandle const& context, BIO* transport)
{
    TLSConnectionHandle connection(SSL_new(context.get()), SSL_free);
    SSL_set_bio(connection.get(), transport, transport);
    return connection;
}

} // namespace

TLSContextHandle makeTLSContext(SSL_METHOD const* method)
{
    TLSContextHandle context(SSL_CTX_new(method), SSL_CTX_free);
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION));
    return context;
}

TLSContextHandle
makeTLSServer(X509Handle const& certificate, KeyHandle const& key, std::vector<X509Handle> const& chain)
{
    auto context = makeTLSContext(TLS_server_method());
    require(SSL_CTX_use_certificate(context.get(), certificate.get()));
    require(SSL_CTX_use_PrivateKey(context.get(), key.get()));
    for (auto const& member : chain) {
        require(SSL_CTX_add1_chain_cert(context.get(), member.get()));
    }
    return context;
}

TLSContextHandle makeTLSClient()
{
    auto context = makeTLSContext(TLS_client_method());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    return context;
}

TLSConnections makeConnections(TLSContextHandle const& client, TLSContextHandle const& server)
{
    BIO* clientSide = nullptr;
    BIO* serverSide = nullptr;
    require(BIO_new_bio_pair(&clientSide, 0, &serverSide, 0));
    TLSConnections connections{connectionOf(client, clientSide), connectionOf(server, serverSide)};
    SSL_set_connect_state(connections.client.get());
    SSL_set_accept_state(connections.server.get());
    return connections;
}

void shakeHands(TLSConnections& connections)
{
    ErrorQueueMark const queue;
    constexpr int enoughRounds = 20;
    for (int round = 0; round < enoughRounds && !connections.isComplete; ++round) {
        bool const isClientDone = SSL_do_handshake(connections.client.get()) == 1;
        bool const isServerDone = SSL_do_handshake(connections.server.get()) == 1;
        connections.isComplete = isClientDone && isServerDone;
    }
}

TLSConnections connected(
    TLSContextHandle const& client, TLSContextHandle const& server,
    std::function<void(SSL* client)> const& prepare)
{
    auto connections = makeConnections(client, server);
    if (prepare) {
        prepare(connections.client.get());
    }
    shakeHands(connections);
    return connections;
}

long verifyResultOfHandshake(
    TLSContextHandle const& client, TLSContextHandle const& server, std::string const& hostName)
{
    auto const connections = connected(client, server, [&](SSL* connection) {
        if (!hostName.empty()) {
            require(SSL_set1_host(connection, hostName.c_str()));
        }
    });
    long const result = SSL_get_verify_result(connections.client.get());
    if (connections.isComplete) {
        EXPECT_STREQ(SSL_get_version(connections.client.get()), "TLSv1.3");
        return result;
    }
    return result == X509_V_OK ? X509_V_ERR_UNSPECIFIED : result;
}

} // namespace foundation::test
