#include "support/SelfSigned.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>

// A certificate that was built is put to its use: a TLS server has it, and a client trusts it and nothing
// else.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using ContextHandle = std::shared_ptr<SSL_CTX>;
using ConnectionHandle = std::shared_ptr<SSL>;

ContextHandle makeContext(SSL_METHOD const* method)
{
    ContextHandle context(SSL_CTX_new(method), SSL_CTX_free);
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION));
    return context;
}

ContextHandle serverWith(X509Certificate const& certificate, std::string const& privateKey)
{
    auto const context = makeContext(TLS_server_method());
    auto const bio = own(BIO_new_mem_buf(privateKey.data(), static_cast<int>(privateKey.size())));
    auto const key = own(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    require(SSL_CTX_use_certificate(context.get(), parsed(certificate).get()));
    require(SSL_CTX_use_PrivateKey(context.get(), key.get()));
    return context;
}

ContextHandle clientTrusting(X509Certificate const& certificate)
{
    auto const context = makeContext(TLS_client_method());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    TrustStore trusted;
    trusted.addCertificate(certificate);
    attachTrustStoreToSSLCTX(trusted, context.get());
    return context;
}

ConnectionHandle connectionOf(ContextHandle const& context, BIO* transport)
{
    ConnectionHandle connection(SSL_new(context.get()), SSL_free);
    SSL_set_bio(connection.get(), transport, transport);
    return connection;
}

/// What the client makes of the server's certificate after the handshake, which is done in memory.
long verifyResult(ContextHandle const& server, ContextHandle const& client, std::string const& hostName)
{
    ErrorQueueMark const queue;
    BIO* clientSide = nullptr;
    BIO* serverSide = nullptr;
    require(BIO_new_bio_pair(&clientSide, 0, &serverSide, 0));
    auto const clientEnd = connectionOf(client, clientSide);
    auto const serverEnd = connectionOf(server, serverSide);
    require(SSL_set1_host(clientEnd.get(), hostName.c_str()));
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
    return SSL_get_verify_result(clientEnd.get()) == X509_V_OK ? X509_V_ERR_UNSPECIFIED
                                                               : SSL_get_verify_result(clientEnd.get());
}

} // namespace

TEST(SelfSignedCertHandshake, SucceedsWithAClientThatTrustsTheCertificate)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().build();

    for (char const* const host : {"localhost", "127.0.0.1"}) {
        EXPECT_EQ(
            verifyResult(serverWith(certificate, privateKey), clientTrusting(certificate), host), X509_V_OK)
            << host;
    }
}

TEST(SelfSignedCertHandshake, FailsWithAClientThatTrustsAnother)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().build();
    auto const other = SelfSignedCertBuilder().withCommonName("other").build().first;

    EXPECT_EQ(
        verifyResult(serverWith(certificate, privateKey), clientTrusting(other), "localhost"),
        X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
}

TEST(SelfSignedCertHandshake, FailsUnderAnotherName)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().withCommonName("build.example").build();

    EXPECT_EQ(
        verifyResult(serverWith(certificate, privateKey), clientTrusting(certificate), "localhost"),
        X509_V_ERR_HOSTNAME_MISMATCH);
}
