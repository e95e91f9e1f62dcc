/// Compares base64, hexadecimal and the dump of bytes with a simple implementation of their rules or with
/// OpenSSL.

#include "support/Properties.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <boost/archive/iterators/dataflow_exception.hpp>
#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;

std::string base64OfOpenSSL(ByteArray const& data)
{
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0'); // one more for the terminator that OpenSSL appends
    int const length = EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(text.data()), data.data(), static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

/// Returns six bits, or nothing for a character outside the alphabet. Returns zero for "=".
std::optional<unsigned> valueOfBase64Character(char character)
{
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (character == '=') {
        return 0;
    }
    auto const position = alphabet.find(character);
    return position == std::string_view::npos ? std::nullopt : std::optional<unsigned>(position);
}

/// Returns the expected result of base64Decode, or nothing if it must fail.
std::optional<ByteArray> decodedBase64(std::string const& text)
{
    auto const padding = static_cast<std::size_t>(std::count(text.begin(), text.end(), '='));
    std::string_view const kept(text.data(), text.size() - padding);
    if (kept.size() % 4 == 1) {
        return std::nullopt;
    }
    ByteArray bytes;
    unsigned bits = 0;
    unsigned bitCount = 0;
    for (char const character : kept) {
        auto const value = valueOfBase64Character(character);
        if (!value) {
            return std::nullopt;
        }
        bits = (bits << 6U | *value) & 0xFFFFU;
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes.push_back(static_cast<unsigned char>(bits >> bitCount));
        }
    }
    return bytes;
}

void checkBase64(ByteArray const& data, std::string const& text)
{
    std::string const encoded = certificates::base64Encode(data);
    require(encoded == base64OfOpenSSL(data), "base64Encode agrees with EVP_EncodeBlock");
    require(certificates::base64Decode(encoded) == data, "base64Decode undoes base64Encode");

    std::optional<ByteArray> decoded;
    succeeds<boost::archive::iterators::dataflow_exception>(
        [&] { decoded = certificates::base64Decode(text); });
    require(decoded == decodedBase64(text), "base64Decode follows its rules");
}

bool isHex(std::string const& text)
{
    return text.size() % 2 == 0 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

void checkHex(ByteArray const& data, std::string const& text)
{
    std::string const encoded = certificates::hexEncode(data);
    require(encoded.size() == 2 * data.size(), "hexEncode writes two digits per byte");
    require(certificates::hexDecode(encoded) == data, "hexDecode undoes hexEncode");

    ByteArray decoded;
    bool const succeeded = succeeds([&] { decoded = certificates::hexDecode(text); });
    require(succeeded == isHex(text), "hexDecode accepts exactly pairs of digits");
    std::string lowerCase = text;
    std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), [](char digit) {
        return digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
    });
    require(!succeeded || certificates::hexEncode(decoded) == lowerCase, "hexEncode undoes hexDecode");
}

void checkDump(ByteArray const& data, std::string const& label)
{
    std::string expected = label.empty() ? "" : label + " ";
    for (unsigned char const byte : data) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "0x%02x ", static_cast<unsigned>(byte));
        expected += digits;
    }
    std::ostringstream out;
    certificates::prettyPrintBytes(data, label, out);
    require(out.str() == expected + "\n", "prettyPrintBytes writes one line");
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    using namespace foundation::fuzz;
    foundation::certificates::ByteArray const data(input, input + size);
    std::string const text(data.begin(), data.end());
    checkBase64(data, text);
    checkHex(data, text);
    checkDump(data, text);
    return 0;
}
