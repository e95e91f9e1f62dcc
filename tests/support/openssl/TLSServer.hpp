#pragma once

#include "support/openssl/TLSHandshake.hpp"

#include <string>
#include <thread>

namespace foundation::test {

/// Serves one TLS connection at a free port of the loopback address 127.0.0.1.
class TLSServer
{
public:
    explicit TLSServer(TLSContextHandle const& context) : acceptor(own(BIO_new_accept("127.0.0.1:0")))
    {
        require(BIO_do_accept(acceptor.get()));             // the first call binds the port
        require(SSL_CTX_set_num_tickets(context.get(), 0)); // the client may be gone by then
        worker = std::thread([this, context] { serve(context); });
    }

    ~TLSServer()
    {
        // Ends the wait if no client has come.
        auto client = own(BIO_new_connect(("127.0.0.1:" + port()).c_str()));
        BIO_do_connect(client.get());
        client.reset(); // before the join: the server now waits for this client's first message
        worker.join();
    }

    TLSServer(TLSServer const&) = delete;
    TLSServer& operator=(TLSServer const&) = delete;

    std::string port() const { return BIO_get_accept_port(acceptor.get()); }

private:
    void serve(TLSContextHandle const& context)
    {
        require(BIO_do_accept(acceptor.get()));
        BIO* const transport = BIO_pop(acceptor.get());
        TLSConnectionHandle const connection(SSL_new(context.get()), SSL_free);
        SSL_set_bio(connection.get(), transport, transport);
        SSL_accept(connection.get());
    }

    BioHandle acceptor;
    std::thread worker;
};

} // namespace foundation::test
