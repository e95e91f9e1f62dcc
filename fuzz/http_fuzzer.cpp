#include "revocation/HttpClient.hpp"

#include "support/Properties.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <optional>
#include <streambuf>
#include <string>
#include <utility>

// Feeds responses to the HTTP client that downloads CRLs. The first byte of the input says how the connection
// behaves. The other bytes are the response.

namespace foundation::fuzz {

namespace {

constexpr char const host[] = "crl.test";
constexpr char const path[] = "/a/b.crl?c";

/// A connection whose bytes arrive in pieces, as on a socket.
class Connection : public std::streambuf
{
public:
    Connection(std::string answer, std::size_t pieceLength, bool acceptsRequest)
        : answer(std::move(answer)),
          pieceLength(pieceLength),
          acceptsRequest(acceptsRequest)
    {}

    std::string const& request() const { return sent; }

protected:
    int_type underflow() override
    {
        auto const length = std::min(pieceLength, answer.size() - arrived);
        char* const begin = answer.data() + arrived;
        setg(begin, begin, begin + length);
        arrived += length;
        return length == 0 ? traits_type::eof() : traits_type::to_int_type(*begin);
    }

    std::streamsize xsputn(char const* characters, std::streamsize count) override
    {
        if (!acceptsRequest) {
            return 0;
        }
        sent.append(characters, static_cast<std::size_t>(count));
        return count;
    }

private:
    std::string answer;
    std::size_t pieceLength;
    bool acceptsRequest;
    std::size_t arrived = 0;
    std::string sent;
};

struct Reply
{
    unsigned long statusCode = 0;
    std::string body;
};

bool isSpace(char character)
{
    return character != '\0' && std::strchr(" \t\n\v\f\r", character) != nullptr;
}

/// Returns what follows the headers. The headers end with a line that holds only a carriage return. Without
/// such a line there is no body.
std::string bodyOf(std::string const& answer, std::size_t endOfStatusLine)
{
    auto const end = answer.find("\n\r\n", endOfStatusLine);
    return end == std::string::npos ? "" : answer.substr(end + std::strlen("\n\r\n"));
}

/// Returns the reply if its status line is well formed: a word, one blank, and a number that ends within the
/// line. Other replies are not compared.
std::optional<Reply> wellFormedReply(std::string const& answer)
{
    auto const endOfWord = answer.find(' ');
    auto const endOfLine = answer.find('\n');
    if (endOfWord == 0 || endOfLine == std::string::npos || endOfWord > endOfLine) {
        return std::nullopt;
    }
    auto const endOfNumber = answer.find_first_not_of("0123456789", endOfWord + 1);
    auto const numDigits = endOfNumber - endOfWord - 1;
    if (std::any_of(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(endOfWord), isSpace) ||
        numDigits < 1 || numDigits > 9) {
        return std::nullopt;
    }
    return Reply{std::stoul(answer.substr(endOfWord + 1, numDigits)), bodyOf(answer, endOfLine)};
}

struct Outcome
{
    std::optional<std::string> body;
    std::string failure;
};

Outcome exchange(std::iostream& stream)
{
    Outcome outcome;
    try {
        outcome.body = certificates::exchangeOverHttp(stream, host, path);
    } catch (certificates::X509CertificateException const& failure) {
        outcome.failure = failure.what();
    } catch (...) {
        failOnException("the exchange fails with the documented type");
    }
    return outcome;
}

bool isDocumented(std::string const& failure)
{
    std::string const wrongStatus = "CRL Download Error: Response returned with status code: ";
    if (failure.compare(0, wrongStatus.size(), wrongStatus) != 0) {
        return failure == "CRL Download Error: Invalid response\n";
    }
    auto const number = failure.substr(wrongStatus.size());
    return number.size() >= 2 && number.find_first_not_of("0123456789") == number.size() - 1 &&
           number.back() == '\n' && number != "200\n";
}

void requireAgreement(Outcome const& outcome, Reply const& reply)
{
    if (reply.statusCode == 200) {
        require(outcome.body == reply.body, "the body is the one that was sent");
    } else {
        require(
            outcome.failure == "CRL Download Error: Response returned with status code: " +
                                   std::to_string(reply.statusCode) + "\n",
            "the failure names the status code");
    }
}

void check(std::string const& answer, std::size_t pieceLength, bool acceptsRequest)
{
    Connection connection(answer, pieceLength, acceptsRequest);
    std::iostream stream(&connection);
    auto const outcome = exchange(stream);

    require(outcome.body || isDocumented(outcome.failure), "the failure has a documented text");
    if (!acceptsRequest) {
        require(
            outcome.failure == "CRL Download Error: Invalid response\n",
            "without a request the response is invalid");
        return;
    }
    require(
        connection.request() == "GET /a/b.crl?c HTTP/1.0\r\nHost: crl.test\r\nAccept: */*\r\n"
                                "Connection: close\r\n\r\n",
        "the request is the documented one");
    if (auto const reply = wellFormedReply(answer)) {
        requireAgreement(outcome, *reply);
    } else if (outcome.body) {
        require(
            outcome.body->size() <= answer.size() &&
                std::equal(outcome.body->rbegin(), outcome.body->rend(), answer.rbegin()),
            "the body is the end of what was sent");
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    constexpr unsigned refusesRequest = 0x80;
    std::string const answer(data + 1, data + size);
    std::size_t const pieceLength = 1 + (data[0] & 0x7FU);
    foundation::fuzz::check(answer, pieceLength, (data[0] & refusesRequest) == 0);
    return 0;
}
