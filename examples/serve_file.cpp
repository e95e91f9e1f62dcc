// serve_file FILE [PORT]: answers every HTTP request on the loopback address with the file, until it is
// stopped. Use it as a server of revocation lists in experiments.
#include <boost/asio/ip/tcp.hpp>

#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

using boost::asio::ip::tcp;

std::string contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned short portFrom(std::string const& word)
{
    auto const isNumber =
        !word.empty() && word.size() <= 5 && word.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber || std::stoul(word) > 65535) {
        throw std::runtime_error("not a port: " + word);
    }
    return static_cast<unsigned short>(std::stoul(word));
}

void answer(tcp::iostream& peer, std::string const& content)
{
    std::string line;
    while (std::getline(peer, line) && line != "\r") {
    }
    peer << "HTTP/1.0 200 OK\r\nContent-Length: " << content.size() << "\r\n\r\n" << content << std::flush;
}

[[noreturn]] void serve(std::string const& path, unsigned short port)
{
    auto const content = contentOf(path);
    boost::asio::io_context context;
    tcp::acceptor acceptor(context, tcp::endpoint(boost::asio::ip::address_v4::loopback(), port));
    std::cout << "Serving " << path << " at http://127.0.0.1:" << acceptor.local_endpoint().port() << "/"
              << std::endl;
    while (true) {
        tcp::iostream peer;
        acceptor.accept(peer.socket());
        peer.expires_after(std::chrono::seconds(5));
        answer(peer, content);
    }
}

} // namespace

int main(int argc, char** argv)
{
    constexpr char const usageText[] =
        "Usage: serve_file FILE [PORT]\n"
        "Answers every HTTP request at 127.0.0.1 with the content of FILE, until it is stopped. The\n"
        "default PORT is 80, from which revocation lists are fetched.\n";
    if (argc == 2 && argv[1] == std::string("--help")) {
        std::cout << usageText;
        return 0;
    }
    if (argc < 2 || argc > 3) {
        std::cerr << "serve_file: one file and at most one port, try --help\n";
        return 2;
    }
    try {
        serve(argv[1], argc == 3 ? portFrom(argv[2]) : 80);
    } catch (std::exception const& error) {
        std::cerr << "serve_file: " << error.what() << '\n';
        return 2;
    }
}
