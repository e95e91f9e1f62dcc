#include "revocation/HttpClient.hpp"
#include "certificate/X509CertificateImpl.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/system/ScriptedServer.hpp"

#include <boost/asio/error.hpp>
#include <gtest/gtest.h>

#include <chrono>
#include <istream>
#include <streambuf>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

using DownloadCRL = CertificateValidationOptions::DownloadCRL;

constexpr std::size_t severalMegabytes = 3000000;

constexpr DownloadCRL everyMode[] = {DownloadCRL::None, DownloadCRL::BestEffort, DownloadCRL::Required};

/// A connection without a network. It gives the same answer to every request.
class CannedAnswer : public std::streambuf
{
public:
    explicit CannedAnswer(std::string answerText) : answer(std::move(answerText))
    {
        setg(answer.data(), answer.data(), answer.data() + answer.size());
    }

    std::string request;

protected:
    int_type overflow(int_type character) override
    {
        request.push_back(traits_type::to_char_type(character));
        return character;
    }

private:
    std::string answer;
};

/// A connection on which every read and write fails.
class DeadConnection : public std::streambuf
{};

std::string exchange(std::string const& answer)
{
    CannedAnswer buffer(answer);
    std::iostream connection(&buffer);
    return exchangeOverHttp(connection, "ca.example", "/root.crl");
}

std::string manyHeaders(std::size_t size)
{
    std::string headers;
    while (headers.size() < size) {
        headers += "X-Header: " + std::to_string(headers.size()) + "\r\n";
    }
    return headers;
}

/// A host and a path, and the request that asks for them.
struct RequestRow
{
    RequestRow& host(std::string const& value)
    {
        hostName = value;
        return *this;
    }

    RequestRow& path(std::string const& value)
    {
        pathOfFile = value;
        return *this;
    }

    RequestRow& sends(std::string const& value)
    {
        request = value;
        return *this;
    }

    std::string hostName;
    std::string pathOfFile;
    std::string request;
};

/// What a server answers, and the body in it.
struct AnswerRow
{
    explicit AnswerRow(char const* theName) : name(theName) {}

    AnswerRow& answer(std::string const& value)
    {
        answerOfServer = value;
        return *this;
    }

    AnswerRow& body(std::string const& value)
    {
        bodyOfAnswer = value;
        return *this;
    }

    char const* name;
    std::string answerOfServer;
    std::string bodyOfAnswer;
};

/// What a server does in turn, and the body that it sends.
struct ScriptRow
{
    explicit ScriptRow(char const* theName) : name(theName) {}

    ScriptRow& script(Script const& value)
    {
        scriptOfServer = value;
        return *this;
    }

    ScriptRow& body(std::string const& value)
    {
        bodyOfAnswer = value;
        return *this;
    }

    char const* name;
    Script scriptOfServer;
    std::string bodyOfAnswer;
};

class HttpClient : public LeavesNoTrace
{};

std::string const request =
    "GET /root.crl?x=1 HTTP/1.0\r\nHost: 127.0.0.2\r\nAccept: */*\r\nConnection: close\r\n\r\n";

class FetchHttpResponse : public LeavesNoTrace
{};

} // namespace

TEST(HttpExchange, SendsOneGetRequestInFixedForm)
{
    RequestRow const rows[] = {
        RequestRow()
            .host("ca.example")
            .path("/root.crl")
            .sends("GET /root.crl HTTP/1.0\r\nHost: ca.example\r\nAccept: */*\r\nConnection: close\r\n\r\n"),
        RequestRow()
            .host("ca.example:8080")
            .path("/?a=b c%20")
            .sends("GET /?a=b c%20 HTTP/1.0\r\nHost: ca.example:8080\r\nAccept: */*\r\nConnection: "
                   "close\r\n\r\n"),
        RequestRow().host("").path("/").sends(
            "GET / HTTP/1.0\r\nHost: \r\nAccept: */*\r\nConnection: close\r\n\r\n"),
    };
    for (auto const& row : rows) {
        CannedAnswer buffer("HTTP/1.0 200 OK\r\n\r\nbody");
        std::iostream connection(&buffer);
        exchangeOverHttp(connection, row.hostName, row.pathOfFile);
        EXPECT_EQ(buffer.request, row.request);
    }
}

TEST(HttpExchange, ReturnsBodyOfAnswerWithStatus200)
{
    std::string const megabytes(severalMegabytes, 'x');
    AnswerRow const rows[] = {
        AnswerRow("no headers").answer("HTTP/1.0 200 OK\r\n\r\nbody").body("body"),
        AnswerRow("headers")
            .answer("HTTP/1.0 200 OK\r\nServer: x\r\nContent-Length: 4\r\n\r\nbody")
            .body("body"),
        AnswerRow("HTTP/1.1").answer("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nbody").body("body"),
        AnswerRow("chunks stay as they are")
            .answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\n\r\n")
            .body("4\r\nbody\r\n0\r\n\r\n"),
        AnswerRow("no status message").answer("HTTP/1.0 200\r\n\r\nbody").body("body"),
        AnswerRow("long status message").answer("HTTP/1.0 200 " + megabytes + "\r\n\r\nbody").body("body"),
        AnswerRow("first word is not HTTP").answer("ICY 200 OK\r\n\r\nbody").body("body"),
        AnswerRow("first word of megabytes").answer(megabytes + " 200 OK\r\n\r\nbody").body("body"),
        AnswerRow("length too small").answer("HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nbody").body("body"),
        AnswerRow("length too large")
            .answer("HTTP/1.0 200 OK\r\nContent-Length: 999\r\n\r\nbody")
            .body("body"),
        AnswerRow("every kind of byte")
            .answer("HTTP/1.0 200 OK\r\n\r\n\0\xFF\x80\r\n\n\r\x1A"s)
            .body("\0\xFF\x80\r\n\n\r\x1A"s),
        AnswerRow("body begins with blanks")
            .answer("HTTP/1.0 200 OK\r\n\r\n \t\r\n\r\nbody")
            .body(" \t\r\n\r\nbody"),
        AnswerRow("body of megabytes").answer("HTTP/1.0 200 OK\r\n\r\n" + megabytes).body(megabytes),
        AnswerRow("one header of megabytes")
            .answer("HTTP/1.0 200 OK\r\nX: " + megabytes + "\r\n\r\nbody")
            .body("body"),
        AnswerRow("megabytes of headers")
            .answer("HTTP/1.0 200 OK\r\n" + manyHeaders(severalMegabytes) + "\r\nbody")
            .body("body"),
        AnswerRow("blank lines before the status line")
            .answer("\r\n\n\r\nHTTP/1.0 200 OK\r\n\r\nbody")
            .body("body"),
        AnswerRow("status code on the next line").answer("HTTP/1.0\r\n200 OK\r\n\r\nbody").body("body"),
        AnswerRow("status code without blank behind it").answer("HTTP/1.0 200OK\r\n\r\nbody").body("body"),
        AnswerRow("leading zeros").answer("HTTP/1.0 00200 OK\r\n\r\nbody").body("body"),
        AnswerRow("bare line feeds except at the end")
            .answer("HTTP/1.0 200 OK\nServer: x\n\n\r\nbody")
            .body("body"),
        AnswerRow("carriage returns within a header")
            .answer("HTTP/1.0 200 OK\r\nX: \r\r\n\r\r\n\r\nbody")
            .body("body"),
        AnswerRow("HTML").answer("HTTP/1.0 200 OK\r\n\r\n<html></html>").body("<html></html>"),
    };
    for (auto const& row : rows) {
        EXPECT_TRUE(exchange(row.answerOfServer) == row.bodyOfAnswer) << row.name;
    }
}

TEST(HttpExchange, ReturnsEmptyBodyIfHeadersDoNotEnd)
{
    struct
    {
        char const* name;
        std::string answer;
    } const rows[] = {
        {"no body", "HTTP/1.0 200 OK\r\n\r\n"},
        {"end within the status line", "HTTP/1.0 200"},
        {"end behind the status line", "HTTP/1.0 200 OK\r\n"},
        {"end within a header", "HTTP/1.0 200 OK\r\nServer: x"},
        {"end behind a header", "HTTP/1.0 200 OK\r\nServer: x\r\n"},
        {"end before the last line feed", "HTTP/1.0 200 OK\r\nServer: x\r\n\r"},
        {"bare line feeds", "HTTP/1.0 200 OK\nServer: x\n\nbody\nmore body\n"},
        {"megabytes of headers", "HTTP/1.0 200 OK\r\n" + manyHeaders(severalMegabytes)},
        {"one header of megabytes", "HTTP/1.0 200 OK\r\nX: " + std::string(severalMegabytes, 'x')},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(exchange(row.answer), "") << row.name;
    }
}

TEST(HttpExchange, RefusesEveryOtherStatus)
{
    struct
    {
        std::string answer;
        std::string text;
    } const rows[] = {
        {"HTTP/1.0 404 Not Found\r\n\r\nbody",
         "CRL Download Error: Response returned with status code: 404\n"},
        {"HTTP/1.0 301 Moved Permanently\r\nLocation: http://127.0.0.3/\r\n\r\nbody",
         "CRL Download Error: Response returned with status code: 301\n"},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\nbody",
         "CRL Download Error: Response returned with status code: 100\n"},
        {"HTTP/1.1 206 Partial Content\r\n\r\nbody",
         "CRL Download Error: Response returned with status code: 206\n"},
        {"HTTP/1.0 500\r\n\r\n", "CRL Download Error: Response returned with status code: 500\n"},
        {"HTTP/1.0 2000 OK\r\n\r\nbody", "CRL Download Error: Response returned with status code: 2000\n"},
        {"HTTP/1.0 20 OK\r\n\r\nbody", "CRL Download Error: Response returned with status code: 20\n"},
        {"ICY 404 Not Found\r\n\r\nbody", "CRL Download Error: Response returned with status code: 404\n"},
        // No number after a good first word: the status code keeps its initial value.
        {"HTTP/1.0", "CRL Download Error: Response returned with status code: 0\n"},
        {"HTTP/", "CRL Download Error: Response returned with status code: 0\n"},
        {"HTTP/1.0 OK\r\n\r\nbody", "CRL Download Error: Response returned with status code: 0\n"},
        {"HTTP/1.0 \r\n\r\n", "CRL Download Error: Response returned with status code: 0\n"},
        // Too large for the type: the largest value of the type.
        {"HTTP/1.0 99999999999999 OK\r\n\r\nbody",
         "CRL Download Error: Response returned with status code: 4294967295\n"},
        // Neither a number nor a good first word.
        {"", "CRL Download Error: Invalid response\n"},
        {"\r\n", "CRL Download Error: Invalid response\n"},
        {"HTTP", "CRL Download Error: Invalid response\n"},
        {"http/1.0 OK\r\n\r\nbody", "CRL Download Error: Invalid response\n"},
        {"<html>not found</html>", "CRL Download Error: Invalid response\n"},
        {std::string(severalMegabytes, 'x'), "CRL Download Error: Invalid response\n"},
    };
    for (auto const& row : rows) {
        EXPECT_THROWS_EXACTLY(X509CertificateException, row.text, exchange(row.answer));
    }
}

TEST(HttpExchange, RefusesConnectionThatCannotWrite)
{
    DeadConnection buffer;
    std::iostream connection(&buffer);
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "CRL Download Error: Invalid response\n",
        exchangeOverHttp(connection, "ca.example", "/root.crl"));
}

TEST_F(HttpClient, SendsOneRequestAndReturnsBody)
{
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send(httpOk(Bytes{'a', 0, 'b'}))}});

    EXPECT_EQ(fetchOverHttp("127.0.0.2", "/root.crl?x=1"), "a\0b"s);
    EXPECT_EQ(server.requests(), std::vector<std::string>{request});
}

TEST_F(HttpClient, SendsRequestOfAnyLength)
{
    std::string const path = "/" + std::string(200000, 'p');
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});

    EXPECT_EQ(fetchOverHttp("127.0.0.2", path), "body");
    EXPECT_EQ(
        server.requests().at(0),
        "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.2\r\nAccept: */*\r\nConnection: close\r\n\r\n");
}

TEST_F(HttpClient, AcceptsAnswerInAnyPortions)
{
    std::string const megabytes(severalMegabytes, 'x');
    ScriptRow const rows[] = {
        ScriptRow("one byte at a time")
            .script({readRequest(), sendByteByByte("HTTP/1.0 200 OK\r\nX: y\r\n\r\nbody", 2ms)})
            .body("body"),
        ScriptRow("a pause within the head")
            .script(
                {readRequest(), send("HTTP/1.0 20"), wait(100ms), send("0 OK\r"), wait(100ms),
                 send("\n\r\nbody")})
            .body("body"),
        ScriptRow("a pause within the body")
            .script({readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbo"), wait(100ms), send("dy")})
            .body("body"),
        ScriptRow("megabytes of headers")
            .script({readRequest(), send("HTTP/1.0 200 OK\r\n" + manyHeaders(severalMegabytes) + "\r\nbody")})
            .body("body"),
        ScriptRow("megabytes of body")
            .script({readRequest(), send("HTTP/1.0 200 OK\r\n\r\n" + megabytes)})
            .body(megabytes),
        ScriptRow("first word is not HTTP")
            .script({readRequest(), send("ICY 200 OK\r\n\r\nbody")})
            .body("body"),
        ScriptRow("reset within the body")
            .script(
                {readRequest(), send("HTTP/1.0 200 OK\r\nContent-Length: 9\r\n\r\nbody"), wait(300ms),
                 reset()})
            .body("body"),
        ScriptRow("200 with an empty body").script({readRequest(), send("HTTP/1.0 200 OK\r\n\r\n")}).body(""),
    };
    for (auto const& row : rows) {
        ScriptedServer const server("127.0.0.2", 80, {row.scriptOfServer});
        EXPECT_TRUE(fetchOverHttp("127.0.0.2", "/root.crl?x=1") == row.bodyOfAnswer) << row.name;
        EXPECT_EQ(server.requests(), std::vector<std::string>{request}) << row.name;
    }
}

TEST_F(HttpClient, FailsWithoutConnection)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Unable to connect: " +
            boost::asio::error::make_error_code(boost::asio::error::connection_refused).message() + "\n",
        fetchOverHttp("127.0.0.99", "/root.crl"));
}

TEST_F(HttpClient, FailsForInvalidHostName)
{
    std::string const hosts[] = {
        "127.0.0.2:80",
        "no-such-host.invalid",
        " ",
        "\xFF\xFE",
        ".",
        std::string(300, 'a'),
        std::string(200000, 'a'),
        std::string(200000, '.'),
        "a b",
        "127.0.0.2\0"s,
        "127.0.0.2\0.example"s,
        "\0"s,
    };
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});
    for (auto const& host : hosts) {
        EXPECT_THROWS_WITH_PREFIX(
            X509CertificateException, "CRL Download Error: Unable to connect: ", fetchOverHttp(host, "/"));
    }
    EXPECT_EQ(server.numConnections(), 0u);
}

TEST_F(HttpClient, FailsForAddressInBrackets)
{
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});
    EXPECT_THROWS_WITH_PREFIX(
        X509CertificateException,
        "CRL Download Error: Unable to connect: ", fetchOverHttp("[127.0.0.2]", "/"));
    EXPECT_EQ(server.numConnections(), 0u);
}

TEST_F(HttpClient, DoesNotFollowRedirect)
{
    ScriptedServer const server(
        "127.0.0.2", 80,
        {{readRequest(), send("HTTP/1.0 301 Moved Permanently\r\nLocation: http://127.0.0.3/\r\n\r\n")}});
    ScriptedServer const target("127.0.0.3", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "CRL Download Error: Response returned with status code: 301\n",
        fetchOverHttp("127.0.0.2", "/root.crl?x=1"));
    EXPECT_EQ(server.numConnections(), 1u);
    EXPECT_EQ(target.numConnections(), 0u);
}

TEST_F(FetchHttpResponse, ReturnsBodyInEveryMode)
{
    ScriptedServer const server("127.0.0.2", 80, {{readRequest(), send("HTTP/1.0 200 OK\r\n\r\nbody")}});

    for (auto const mode : everyMode) {
        EXPECT_EQ(X509CertificateImpl().fetchHttpResponse("127.0.0.2", "/root.crl?x=1", mode), "body");
    }
    EXPECT_EQ(server.requests(), (std::vector<std::string>{request, request, request}));
}

TEST_F(FetchHttpResponse, ReturnsEmptyTextAfterAnyFailureInEveryMode)
{
    struct
    {
        char const* name;
        Script script;
    } const rows[] = {
        {"closes at once", {}},
        {"resets at once", {reset()}},
        {"reads the request and closes", {readRequest()}},
        {"reads the request and resets", {readRequest(), reset()}},
        {"resets within the headers", {readRequest(), send("HTTP/1.0 200 OK\r\nX"), wait(100ms), reset()}},
        {"no HTTP", {readRequest(), send("<html>\r\n")}},
        {"status 301", {readRequest(), send("HTTP/1.0 301 Moved\r\n\r\nbody")}},
        {"status 404", {readRequest(), send("HTTP/1.0 404 Not Found\r\n\r\nbody")}},
        {"status 500", {readRequest(), send("HTTP/1.1 500 Error\r\n\r\nbody")}},
        {"no status", {readRequest(), send("HTTP/1.0\r\n\r\nbody")}},
        {"empty body", {readRequest(), send("HTTP/1.0 200 OK\r\n\r\n")}},
        {"bare line feeds", {readRequest(), send("HTTP/1.0 200 OK\n\nbody")}},
        {"headers without end", {readRequest(), send("HTTP/1.0 200 OK\r\n" + manyHeaders(1000000))}},
    };
    for (auto const& row : rows) {
        ScriptedServer const server("127.0.0.2", 80, {row.script});
        for (auto const mode : everyMode) {
            EXPECT_EQ(X509CertificateImpl().fetchHttpResponse("127.0.0.2", "/root.crl", mode), "")
                << row.name;
        }
        EXPECT_EQ(server.numConnections(), 3u) << row.name;
    }
}

TEST_F(FetchHttpResponse, ReturnsEmptyTextWithoutConnectionInEveryMode)
{
    for (auto const mode : everyMode) {
        for (auto const& host : {"127.0.0.99"s, "127.0.0.2:80"s, "no-such-host.invalid"s, ""s, "\0"s}) {
            EXPECT_EQ(X509CertificateImpl().fetchHttpResponse(host, "/root.crl", mode), "") << host;
        }
    }
}

TEST(ThrowIfRequired, ThrowsOnlyIfCRLsAreRequired)
{
    X509CertificateImpl const implementation;

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "message\n",
        implementation.throwIfRequired(DownloadCRL::Required, "message\n"));
    EXPECT_NO_THROW(implementation.throwIfRequired(DownloadCRL::BestEffort, "message\n"));
    EXPECT_NO_THROW(implementation.throwIfRequired(DownloadCRL::None, "message\n"));
}
