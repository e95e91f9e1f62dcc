#include <foundation/certificates/FreeFunctions.hpp>

#include <foundation/certificates/Exceptions.hpp>

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/dataflow_exception.hpp>
#include <boost/archive/iterators/transform_width.hpp>

#include <algorithm>
#include <iomanip>
#include <ios>
#include <ostream>

namespace foundation::certificates {

namespace {

namespace iterators = boost::archive::iterators;

constexpr char const lowerCaseDigits[] = "0123456789abcdef";

unsigned char valueOfHexDigit(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned char>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned char>(digit - 'a' + 10);
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned char>(digit - 'A' + 10);
    }
    throw InvalidArgument("Input string contains characters which are not in Hex.");
}

} // namespace

std::string base64Encode(ByteArray const& data)
{
    using Encoder =
        iterators::base64_from_binary<iterators::transform_width<ByteArray::const_iterator, 6, 8>>;

    std::string text;
    text.reserve((data.size() + 2) / 3 * 4);
    Encoder const end(data.end());
    for (Encoder character(data.begin()); character != end; ++character) {
        text.push_back(static_cast<char>(*character));
    }
    text.append(((data.size() / 3 + 1) * 3 - data.size()) % 3, '=');
    return text;
}

ByteArray base64Decode(std::string const& text)
{
    using Decoder = iterators::transform_width<iterators::binary_from_base64<char const*>, 8, 6>;

    auto const padding = static_cast<std::size_t>(std::count(text.begin(), text.end(), '='));
    std::size_t const length = text.size() - padding;
    std::size_t const leftOver = length % 4;
    if (leftOver == 1) {
        // One character is not enough for a byte.
        throw iterators::dataflow_exception(iterators::dataflow_exception::invalid_base64_character);
    }
    ByteArray bytes(length / 4 * 3 + (leftOver == 0 ? 0 : leftOver - 1));
    Decoder decoder(text.data());
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(*decoder);
        ++decoder;
    }
    return bytes;
}

std::string hexEncode(ByteArray const& data)
{
    std::string text;
    text.reserve(data.size() * 2);
    for (unsigned char const byte : data) {
        text.push_back(lowerCaseDigits[byte >> 4U]);
        text.push_back(lowerCaseDigits[byte & 0x0FU]);
    }
    return text;
}

ByteArray hexDecode(std::string const& text)
{
    if (text.size() % 2 != 0) {
        throw InvalidArgument("Input string is invalid for hex decoding. It has odd number of characters.");
    }
    ByteArray bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t index = 0; index < text.size(); index += 2) {
        unsigned const high = valueOfHexDigit(text[index]);
        unsigned const low = valueOfHexDigit(text[index + 1]);
        bytes.push_back(static_cast<unsigned char>(high << 4U | low));
    }
    return bytes;
}

void prettyPrintBytes(ByteArray const& data, std::string const& label, std::ostream& out)
{
    if (!label.empty()) {
        out << label << ' ';
    }
    auto const flags = out.flags();
    auto const fill = out.fill();
    auto const width = out.width();
    out << std::hex;
    for (unsigned char const byte : data) {
        out << "0x" << std::setfill('0') << std::setw(2) << static_cast<unsigned int>(byte) << ' ';
    }
    out.flags(flags);
    out.fill(fill);
    out.width(width);
    out << std::endl;
}

} // namespace foundation::certificates
