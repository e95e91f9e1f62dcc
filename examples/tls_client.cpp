// tls_client HOST PORT [--roots FILE]: connects to a TLS server, refuses it unless its certificate is trusted
// and issued for the host, and prints the certificates.
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/TLSPeer.hpp>

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::TrustStore;
using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;
using foundation::toolkit::expectPeer;
using foundation::toolkit::requirePeerCertificate;
using foundation::toolkit::verifiedChain;

namespace {

namespace asio = boost::asio;
using Connection = asio::ssl::stream<asio::ip::tcp::socket>;

constexpr char const usageText[] =
    "Usage: tls_client HOST PORT [--roots FILE]\n"
    "\n"
    "  HOST          a host name or an IP address, which the server's certificate must have\n"
    "  --roots FILE  the trusted certificates; by default those of the operating system\n"
    "\n"
    "Exit status: 0 if the server is the one that was meant, 1 if it was refused, 2 for any other failure.\n";

std::vector<Certificate> readRoots(std::string const& path)
{
    std::vector<Certificate> roots;
    CertificateReader reader(path);
    while (auto const read = reader.next()) {
        if (!read->certificate) {
            throw std::runtime_error(read->source + ": " + read->failure);
        }
        roots.push_back(*read->certificate);
    }
    return roots;
}

void trust(asio::ssl::context& context, std::string const& rootsFile)
{
    if (!rootsFile.empty()) {
        requirePeerCertificate(context.native_handle(), readRoots(rootsFile));
        return;
    }
    TrustStore systemRoots;
    systemRoots.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
    requirePeerCertificate(context.native_handle(), systemRoots);
}

/// Returns whether the server proved that it is the host.
bool shakeHands(Connection& connection)
{
    boost::system::error_code error;
    connection.handshake(asio::ssl::stream_base::client, error);
    if (!error) {
        return true;
    }
    long const verdict = SSL_get_verify_result(connection.native_handle());
    if (verdict == X509_V_OK) {
        throw boost::system::system_error(error);
    }
    std::cout << "Refused: " << X509_verify_cert_error_string(verdict) << '\n';
    return false;
}

int run(std::string const& host, std::string const& port, std::string const& rootsFile)
{
    asio::ssl::context context(asio::ssl::context::tls_client);
    trust(context, rootsFile);

    asio::io_context service;
    Connection connection(service, context);
    expectPeer(connection.native_handle(), host);

    asio::ip::tcp::resolver resolver(service);
    asio::connect(connection.next_layer(), resolver.resolve(host, port));
    if (!shakeHands(connection)) {
        return 1;
    }
    std::cout << "Accepted: " << host << '\n';
    for (auto const& certificate : verifiedChain(connection.native_handle())) {
        std::cout << certificate.getKeyKind() << ' ' << certificate.getSubject() << '\n';
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> const words(argv + 1, argv + argc);
        if (words.size() == 2) {
            return run(words[0], words[1], "");
        }
        if (words.size() == 4 && words[2] == "--roots") {
            return run(words[0], words[1], words[3]);
        }
        std::cerr << usageText;
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
    }
    return 2;
}
