#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/system/StreamBuffers.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <boost/archive/iterators/dataflow_exception.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <memory>
#include <random>
#include <sstream>
#include <string>

using namespace foundation::certificates;
using namespace foundation::test;
using boost::archive::iterators::dataflow_exception;

namespace {

constexpr char const notBase64[] = "attempt to decode a value not in base64 char set";
constexpr char const oddHex[] = "Input string is invalid for hex decoding. It has odd number of characters.";
constexpr char const notHex[] = "Input string contains characters which are not in Hex.";
std::string const base64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Encodes as RFC 4648 says it: each group is a number of 24 bits.
std::string referenceBase64(ByteArray const& data)
{
    std::string text;
    for (std::size_t start = 0; start < data.size(); start += 3) {
        std::size_t const count = std::min<std::size_t>(3, data.size() - start);
        unsigned group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8U | (index < count ? data[start + index] : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text += index <= count ? base64Alphabet[group >> (18 - 6 * index) & 63U] : '=';
        }
    }
    return text;
}

/// Decodes as documented: removes one character from the end for each "=", takes a remaining "=" for zero,
/// and ignores bits that fill no byte. Returns null if decoding must throw.
std::unique_ptr<ByteArray> referenceDecoded(std::string text)
{
    text.resize(text.size() - static_cast<std::size_t>(std::count(text.begin(), text.end(), '=')));
    auto bytes = std::make_unique<ByteArray>();
    unsigned buffer = 0;
    unsigned bits = 0;
    for (char const character : text) {
        auto const value = base64Alphabet.find(character);
        if (value == std::string::npos && character != '=') {
            return nullptr;
        }
        constexpr unsigned pending = 0xff; // the lowest bits, which are not in the output yet
        buffer = (buffer & pending) << 6U | (character == '=' ? 0U : static_cast<unsigned>(value));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes->push_back(static_cast<unsigned char>(buffer >> bits));
        }
    }
    return text.size() % 4 == 1 ? nullptr : std::move(bytes);
}

ByteArray randomBytes(std::mt19937& random, std::size_t size)
{
    ByteArray bytes(size);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(random() & 0xFFU);
    }
    return bytes;
}

std::string prettyPrinted(ByteArray const& data, std::string const& label)
{
    std::ostringstream out;
    prettyPrintBytes(data, label, out);
    return out.str();
}

} // namespace

TEST(Base64Encode, AgreesWithVectorsOfRFC4648)
{
    struct Row
    {
        char const* plain;
        char const* encoded;
    };
    // RFC 4648, 10
    for (Row const& row :
         {Row{"", ""}, Row{"f", "Zg=="}, Row{"fo", "Zm8="}, Row{"foo", "Zm9v"}, Row{"foob", "Zm9vYg=="},
          Row{"fooba", "Zm9vYmE="}, Row{"foobar", "Zm9vYmFy"}}) {
        EXPECT_EQ(base64Encode(asBytes(row.plain)), row.encoded);
        EXPECT_EQ(base64Decode(row.encoded), asBytes(row.plain));
    }
}

TEST(Base64Encode, UsesPlusAndSlash)
{
    EXPECT_EQ(base64Encode({0xFB, 0xEF, 0xFF}), "++//");
}

TEST(Base64Encode, WritesOneLine)
{
    EXPECT_EQ(base64Encode(ByteArray(3000, 0)), std::string(4000, 'A'));
}

TEST(Base64Encode, AgreesWithReferenceImplementation)
{
    std::mt19937 random(20); // NOLINT(cert-msc51-cpp): the same bytes on every run
    for (std::size_t size = 0; size < 400; ++size) {
        auto const data = randomBytes(random, size);
        auto const text = base64Encode(data);
        ASSERT_EQ(text, referenceBase64(data));
        ASSERT_EQ(base64Decode(text), data);
    }
}

TEST(Base64Encode, AgreesWithReferenceImplementationOnMebibytes)
{
    for (std::size_t const size : {3145727U, 3145728U, 3145729U, 7000000U}) {
        ByteArray data(size);
        for (std::size_t index = 0; index < size; ++index) {
            data[index] = static_cast<unsigned char>(index * index >> 5U);
        }
        EXPECT_TRUE(base64Encode(data) == referenceBase64(data)) << size;
    }
}

TEST(Base64Decode, ReturnsNoBytesForEmptyTextAndForPaddingAlone)
{
    EXPECT_EQ(base64Decode(""), ByteArray());
    EXPECT_EQ(base64Decode("="), ByteArray());
    EXPECT_EQ(base64Decode("===="), ByteArray());
}

TEST(Base64Decode, NeedsNoPadding)
{
    EXPECT_EQ(base64Decode("Zg"), asBytes("f"));
    EXPECT_EQ(base64Decode("Zm8"), asBytes("fo"));
}

TEST(Base64Decode, IgnoresBitsThatFillNoByte)
{
    EXPECT_EQ(base64Decode("Zh=="), asBytes("f"));
    EXPECT_EQ(base64Decode("Zm9="), asBytes("fo"));
}

TEST(Base64Decode, RemovesOneCharacterFromEndForEachEqualsSign)
{
    struct Row
    {
        char const* text;
        ByteArray bytes;
    };
    for (Row const& row :
         {Row{"Zm=v", {0x66, 0x60}},   // decodes "Zm=", where "=" is zero
          Row{"=Zm9", {0x01, 0x99}},   // decodes "=Zm"
          Row{"==ABCD", {0, 0, 0x01}}, // decodes "==AB"
          Row{"Zg=!", {0x66, 0x00}},   // removes the "!"
          Row{"Zm9vZg==\n\n==", {0x66, 0x6F, 0x6F, 0x66, 0x00, 0x00}}}) {
        EXPECT_EQ(base64Decode(row.text), row.bytes) << row.text;
    }
}

TEST(Base64Decode, RefusesGroupOfOneCharacter)
{
    for (char const* text : {"A", "ABCDE", "ABCDEFGHI", "A=", "ABCDE=", "A===", "ABCDE===", "==A"}) {
        EXPECT_THROWS_EXACTLY(dataflow_exception, notBase64, base64Decode(text)) << text;
    }
}

TEST(Base64Decode, RefusesLineBreaksAndBlanksAnywhere)
{
    for (char const* text : {"Zm9v\n", "\nZm9v", "Zm\n9v", "Zm9v\r\nZm9v", "Zm9v Zm9v", "\tZm9v", "    "}) {
        EXPECT_THROWS_EXACTLY(dataflow_exception, notBase64, base64Decode(text)) << text;
    }
}

TEST(Base64Decode, RefusesBytesOutsideAlphabet)
{
    for (int value = 0; value < 256; ++value) {
        auto const character = static_cast<char>(value);
        if (character == '=' || base64Alphabet.find(character) != std::string::npos) {
            continue;
        }
        for (std::size_t position = 0; position < 4; ++position) {
            std::string text = "AAAA";
            text[position] = character;
            EXPECT_THROWS_EXACTLY(dataflow_exception, notBase64, base64Decode(text)) << value;
        }
    }
}

TEST(Base64Decode, ThrowsExceptionThatIsNotOfTheLibrary)
{
    try {
        base64Decode("!!!!");
        FAIL() << "nothing was thrown";
    } catch (CertificateException const&) {
        FAIL() << "the exception is one of the library";
    } catch (dataflow_exception const& thrown) {
        EXPECT_EQ(thrown.code, dataflow_exception::invalid_base64_character);
    }
}

TEST(Base64Decode, AgreesWithReferenceImplementationOnRandomText)
{
    // Mostly characters of the alphabet, with equals signs and other characters among them.
    std::string const characters = base64Alphabet + base64Alphabet + base64Alphabet + "====" + "!\n";
    std::mt19937 random(21); // NOLINT(cert-msc51-cpp): the same texts on every run
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 24, ' ');
        for (char& character : text) {
            character = characters[random() % characters.size()];
        }
        auto const expected = referenceDecoded(text);
        if (expected) {
            ASSERT_EQ(base64Decode(text), *expected) << text;
        } else {
            ASSERT_THROW(base64Decode(text), dataflow_exception) << text;
        }
    }
}

TEST(HexEncode, WritesTwoLowerCaseDigitsForEachByte)
{
    EXPECT_EQ(hexEncode({}), "");
    EXPECT_EQ(hexEncode({0x00, 0xAB}), "00ab");
    EXPECT_EQ(hexEncode({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xFF}), "0123456789abcdefff");
}

TEST(HexDecode, TakesDigitsOfEitherCase)
{
    EXPECT_EQ(hexDecode(""), ByteArray());
    EXPECT_EQ(hexDecode("00AB"), (ByteArray{0x00, 0xAB}));
    EXPECT_EQ(hexDecode("00ab"), (ByteArray{0x00, 0xAB}));
    EXPECT_EQ(hexDecode("aBcDeF09"), (ByteArray{0xAB, 0xCD, 0xEF, 0x09}));
}

TEST(HexDecode, ReversesHexEncodeForEveryByte)
{
    ByteArray every;
    for (int value = 0; value < 256; ++value) {
        every.push_back(static_cast<unsigned char>(value));
    }
    EXPECT_EQ(hexDecode(hexEncode(every)), every);
}

TEST(HexDecode, RefusesOddNumberOfCharacters)
{
    for (char const* text : {"a", "abc", "0x1", "zzz"}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, oddHex, hexDecode(text)) << text;
    }
}

TEST(HexDecode, RefusesOtherCharacters)
{
    for (char const* text :
         {"zz", "0x10", "0g", "g0", " 1", "1 ", "a b ", "00:11:", "+1", "-1", "\xC3\xA4", "/0", ":0", "@a",
          "G0", "`a"}) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, notHex, hexDecode(text)) << text;
    }
    EXPECT_THROWS_EXACTLY(InvalidArgument, notHex, hexDecode(std::string(2, '\0')));
}

TEST(PrettyPrintBytes, WritesLabelAndBytesWithBlankAfterEach)
{
    EXPECT_EQ(prettyPrinted({0x0A, 0xFF, 0x00}, "Key"), "Key 0x0a 0xff 0x00 \n");
    EXPECT_EQ(prettyPrinted({0x0A}, ""), "0x0a \n");
    EXPECT_EQ(prettyPrinted({}, "Key"), "Key \n");
    EXPECT_EQ(prettyPrinted({}, ""), "\n");
}

TEST(PrettyPrintBytes, WritesOneLine)
{
    std::string expected = "Key ";
    for (int count = 0; count < 500; ++count) {
        expected += "0x07 ";
    }
    EXPECT_EQ(prettyPrinted(ByteArray(500, 7), "Key"), expected + '\n');
}

TEST(PrettyPrintBytes, LeavesFormatStateUnchanged)
{
    std::ostringstream out;
    out << std::oct << std::left << std::showbase << std::uppercase << std::setfill('*')
        << std::setprecision(3);
    auto const flags = out.flags();
    prettyPrintBytes({1, 2}, "Key", out);
    EXPECT_EQ(out.flags(), flags);
    EXPECT_EQ(out.fill(), '*');
    EXPECT_EQ(out.precision(), 3);
    EXPECT_EQ(out.width(), 0);
}

TEST(PrettyPrintBytes, KeepsWidthWithoutLabel)
{
    std::ostringstream out;
    out << std::setw(12);
    prettyPrintBytes({}, "", out);
    EXPECT_EQ(out.width(), 12);
}

TEST(PrettyPrintBytes, FlushesStream)
{
    FlushCountingBuffer buffer;
    std::ostream out(&buffer);
    prettyPrintBytes({1}, "Key", out);
    EXPECT_EQ(buffer.flushes(), 1);
}

TEST(PrettyPrintBytes, ThrowsNothingIfStreamFails)
{
    std::ostream out(nullptr);
    prettyPrintBytes({1, 2, 3}, "Key", out);
    EXPECT_TRUE(out.bad());
}
