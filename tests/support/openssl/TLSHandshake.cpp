#include "support/openssl/TLSHandshake.hpp"

#include "support/openssl/OpenSSLErrors.hpp"

#include <gtest/gtest.h>

namespace foundation::test {

namespace {

using ConnectionHandle = std::shared_ptr<SSL>;

/// Returns one end of a connection over its half of a BIO pair.
ConnectionHandle connectionOf(TLSContextHandle const& context, BIO* transport)
{
    ConnectionHandle connection(SSL_new(context.get()), SSL_free);
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

long verifyResultOfHandshake(
    TLSContextHandle const& client, TLSContextHandle const& server, std::string const& hostName)
{
    ErrorQueueMark const queue;
    BIO* clientSide = nullptr;
    BIO* serverSide = nullptr;
    require(BIO_new_bio_pair(&clientSide, 0, &serverSide, 0));
    auto const clientEnd = connectionOf(client, clientSide);
    auto const serverEnd = connectionOf(server, serverSide);
    if (!hostName.empty()) {
        require(SSL_set1_host(clientEnd.get(), hostName.c_str()));
    }
    SSL_set_connect_state(clientEnd.get());
    SSL_set_accept_state(serverEnd.get());
    for (int round = 0; round < 20; ++round) {
        bool const clientDone = SSL_do_handshake(clientEnd.get()) == 1;
        bool const serverDone = SSL_do_handshake(serverEnd.get()) == 1;
        if (clientDone && serverDone) {
            EXPECT_STREQ(SSL_get_version(clientEnd.get()), "TLSv1.3");
            return SSL_get_verify_result(clientEnd.get());
        }
    }
    long const result = SSL_get_verify_result(clientEnd.get());
    return result == X509_V_OK ? X509_V_ERR_UNSPECIFIED : result;
}

} // namespace foundation::test
