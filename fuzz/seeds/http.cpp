#include "seeds/Seeds.hpp"

namespace foundation::fuzz {

Seeds httpSeeds()
{
    // The first character is the size of the pieces in which the response arrives.
    std::string const inOnePiece = "~";
    std::string const byteByByte(1, '\0');
    std::string const good = "HTTP/1.1 200 OK\r\nContent-Type: application/pkix-crl\r\n"
                             "Content-Length: 4\r\n\r\nbody";
    return {
        {"good", bytesOf(inOnePiece + good)},
        {"byte_by_byte", bytesOf(byteByByte + good)},
        {"request_refused", bytesOf("\xFF" + good)},
        {"empty_body", bytesOf(inOnePiece + "HTTP/1.0 200 OK\r\n\r\n")},
        {"no_headers_end", bytesOf(inOnePiece + "HTTP/1.0 200 OK\r\nServer: x\r\n")},
        {"bare_line_feeds", bytesOf(inOnePiece + "HTTP/1.0 200 OK\nServer: x\n\nbody")},
        {"line_ends_in_body", bytesOf(inOnePiece + "HTTP/1.0 200\r\n\r\n\r\n\n\r\nbody\r\n\r\n")},
        {"redirect", bytesOf(inOnePiece + "HTTP/1.1 301 Moved\r\nLocation: http://elsewhere/\r\n\r\n")},
        {"not_found", bytesOf(inOnePiece + "HTTP/1.1 404 Not Found\r\n\r\n<html></html>")},
        {"other_protocol", bytesOf(inOnePiece + "ICY 200 OK\r\n\r\nbody")},
        {"word_only", bytesOf(inOnePiece + "HTTP/1.1")},
        {"negative_status", bytesOf(inOnePiece + "HTTP/1.1 -4294967096 OK\r\n\r\nbody")},
        {"status_too_long", bytesOf(inOnePiece + "HTTP/1.1 20000000000000000000 OK\r\n\r\nbody")},
        {"zero_in_headers", bytesOf(inOnePiece + std::string("HTTP/1.1 200\0\r\na\0b\r\n\r\nbody", 27))},
        {"blanks_first", bytesOf(inOnePiece + " \r\n\tHTTP/1.1 \n 200 OK\r\n\r\nbody")},
    };
}

} // namespace foundation::fuzz
