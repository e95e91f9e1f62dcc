#include "libcrypto/PEMBlocks.hpp"

#include "libcrypto/MemoryBIO.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;

namespace {

constexpr char const byteOrderMark[] = "\xEF\xBB\xBF";
constexpr std::size_t longestPiece = 254;

/// A block as the scanner should find it.
struct ExpectedBlock
{
    std::string label;
    std::string text;
    bool hasEndLine = true;
};

ExpectedBlock ended(std::string label, std::string text)
{
    return {std::move(label), std::move(text), true};
}

ExpectedBlock unended(std::string label, std::string text)
{
    return {std::move(label), std::move(text), false};
}

/// A text and the blocks in it.
struct ScannerRow
{
    ScannerRow(std::string theName, std::string theText) : name(std::move(theName)), text(std::move(theText))
    {}

    ScannerRow& finds(std::vector<ExpectedBlock> value)
    {
        blocks = std::move(value);
        return *this;
    }

    std::string name;
    std::string text;
    std::vector<ExpectedBlock> blocks;
};

std::vector<ScannerRow> linesThatAreNoBlock()
{
    return {
        {"nothing", ""},
        {"no BEGIN line", "text\n-----END A-----\n"},
        {"a BEGIN line after other text", "text -----BEGIN A-----\n-----END A-----\n"},
        {"a BEGIN line after a blank", " -----BEGIN A-----\n-----END A-----\n"},
        {"a BEGIN line without label", "-----BEGIN \n-----END A-----\n"},
        {"a BEGIN line without the last dashes", "-----BEGIN A\n-----END A-----\n"},
        {"a BEGIN line with four last dashes", "-----BEGIN A----\n-----END A-----\n"},
        {"text after a BEGIN line", "-----BEGIN A----- text\n-----END A-----\n"},
        {"two byte order marks",
         std::string(byteOrderMark) + byteOrderMark + "-----BEGIN A-----\n-----END A-----\n"},
        {"the byte order mark of UTF-16", "\xFE\xFF-----BEGIN A-----\n-----END A-----\n"},
        {"a BEGIN line longer than a piece",
         "-----BEGIN " + std::string(longestPiece, 'A') + "-----\n-----END A-----\n"},
    };
}

std::vector<ScannerRow> singleBlocks()
{
    std::string const simple = "-----BEGIN A-----\nB\n-----END A-----\n";
    std::string const noLineEnd = "-----BEGIN A-----\nB\n-----END A-----";
    std::string const dosLineEnds = "-----BEGIN A-----\r\nB\r\n-----END A-----\r\n";
    std::string const blanksAndTabs = "-----BEGIN A----- \t\nB\n-----END A-----\t \n";
    std::string const highBytes = "-----BEGIN A-----\xC3\xA4\nB\n-----END A-----\xFF\x80\n";
    std::string const otherEnd = "-----BEGIN A-----\nB\n-----END C-----\n";
    std::string const bareEnd = "-----BEGIN A-----\nB\n-----END \n-----END\n-----END A-----\n";
    std::string const endWithoutDashes = "-----BEGIN A-----\nB\n-----END A\n";
    std::string const indentedEnd = "-----BEGIN A-----\nB\n -----END A-----\n";
    std::string const fullPiece =
        "-----BEGIN A-----\n" + std::string(longestPiece, 'B') + "-----END A-----\n";
    std::string const partPiece =
        "-----BEGIN A-----\n" + std::string(longestPiece - 1, 'B') + "-----END A-----\n";
    std::string const emptyLabel = "-----BEGIN -----\n-----END -----\n";
    std::string const dashesInLabel = "-----BEGIN A-B-----\n-----END A-B-----\n";
    return {
        ScannerRow("text around it", "x\n" + simple + "y\n").finds({ended("A", simple)}),
        ScannerRow("no line end", noLineEnd).finds({ended("A", noLineEnd)}),
        ScannerRow("DOS line ends", dosLineEnds).finds({ended("A", dosLineEnds)}),
        ScannerRow("blanks and tabs at line ends", blanksAndTabs).finds({ended("A", blanksAndTabs)}),
        ScannerRow("high bytes at line ends", highBytes).finds({ended("A", highBytes)}),
        ScannerRow("a byte order mark", byteOrderMark + simple).finds({ended("A", byteOrderMark + simple)}),
        ScannerRow("a byte order mark after text", std::string("x\n") + byteOrderMark + simple)
            .finds({ended("A", byteOrderMark + simple)}),
        ScannerRow("an END line of another label", otherEnd).finds({ended("A", otherEnd)}),
        ScannerRow("bare END lines", bareEnd).finds({ended("A", bareEnd)}),
        ScannerRow("an END line without the last dashes", endWithoutDashes)
            .finds({ended("A", endWithoutDashes)}),
        ScannerRow("an END line after a blank", indentedEnd).finds({unended("A", indentedEnd)}),
        ScannerRow("an END line after a full piece", fullPiece).finds({ended("A", fullPiece)}),
        ScannerRow("an END line within a piece", partPiece).finds({unended("A", partPiece)}),
        ScannerRow("a BEGIN line after a full piece", std::string(longestPiece, 'x') + simple)
            .finds({ended("A", simple)}),
        ScannerRow("an empty label", emptyLabel).finds({ended("", emptyLabel)}),
        ScannerRow("a label with a dash", dashesInLabel).finds({ended("A-B", dashesInLabel)}),
        ScannerRow("nothing but a BEGIN line", "-----BEGIN A-----")
            .finds({unended("A", "-----BEGIN A-----")}),
    };
}

std::vector<ScannerRow> severalBlocks()
{
    std::string const a = "-----BEGIN A-----\nB\n-----END A-----\n";
    std::string const c = "-----BEGIN C D-----\r\n-----END C D-----";
    std::string const unendedA = "-----BEGIN A-----\nB\n";
    return {
        ScannerRow("one after the other", a + c).finds({ended("A", a), ended("C D", c)}),
        ScannerRow("text between", a + "x\n" + c).finds({ended("A", a), ended("C D", c)}),
        ScannerRow("no END line of the first", unendedA + c).finds({unended("A", unendedA), ended("C D", c)}),
        ScannerRow(
            "no END line of the first, a byte order mark before the second", unendedA + byteOrderMark + c)
            .finds({unended("A", unendedA), ended("C D", byteOrderMark + c)}),
        ScannerRow("a bare END line of the first", unendedA + "-----END \n" + c)
            .finds({unended("A", unendedA + "-----END \n"), ended("C D", c)}),
        ScannerRow("no END line of the last", a + unendedA).finds({ended("A", a), unended("A", unendedA)}),
    };
}

void expectBlocks(std::vector<ScannerRow> const& rows)
{
    for (ScannerRow const& row : rows) {
        SCOPED_TRACE(row.name);
        auto const found = splitPEMBlocks(row.text);
        ASSERT_EQ(found.size(), row.blocks.size());
        for (std::size_t index = 0; index < found.size(); ++index) {
            EXPECT_EQ(found[index].label, row.blocks[index].label);
            EXPECT_EQ(found[index].text, row.blocks[index].text);
            EXPECT_EQ(found[index].hasEndLine, row.blocks[index].hasEndLine);
        }
    }
}

/// A text, which stays as it is or becomes another one.
struct HighByteRow
{
    HighByteRow(std::string theName, std::string const& theText)
        : name(std::move(theName)),
          text(theText),
          expected(theText)
    {}

    HighByteRow& becomes(std::string value)
    {
        expected = std::move(value);
        return *this;
    }

    std::string name;
    std::string text;
    std::string expected;
};

std::vector<HighByteRow> textsWithHighBytes()
{
    using namespace std::string_literals;
    std::string const full(longestPiece, 'x');
    std::string const almostFull(longestPiece - 1, 'x');
    return {
        HighByteRow("nothing", ""),
        HighByteRow("ASCII", "abc \t\r\n-----BEGIN A-----\n\n"),
        HighByteRow("high bytes within a line", "a\xC3\xA4z\n\x80z"),
        HighByteRow("a byte order mark before text", "\xEF\xBB\xBFz\n"),
        HighByteRow("the last ASCII character", "a\x7F\n"),
        HighByteRow("a NUL character at a line end", "a\0\n"s),
        HighByteRow("high bytes at the start of a second piece", full + "\x80z\n"),
        HighByteRow("a letter at a line end", "a\xC3\xA4\nb").becomes("a  \nb"),
        HighByteRow("a letter at the end of the text", "a\xC3\xA4").becomes("a  "),
        HighByteRow("a letter before a DOS line end", "a\xC3\xA4\r\n").becomes("a  \r\n"),
        HighByteRow("the first and the last high byte", "a\x80\nb\xFF\n").becomes("a \nb \n"),
        HighByteRow("high bytes and white space in turn", "a \x80\t\xFF\v\n").becomes("a  \t \v\n"),
        HighByteRow("high bytes around a NUL character", "a\x80\0\x80\n"s).becomes("a \0 \n"s),
        HighByteRow("high bytes before the last ASCII character", "a\x80\x7F\x80\n").becomes("a\x80\x7F \n"),
        HighByteRow("a line of high bytes", "\xEF\xBB\xBF\n").becomes("   \n"),
        HighByteRow("every line", "a\x80\nb\x80\nc\x80\n").becomes("a \nb \nc \n"),
        HighByteRow("the end of a piece", almostFull + "\x80z\n").becomes(almostFull + " z\n"),
        HighByteRow("the last piece of a line", full + "z\x80\n").becomes(full + "z \n"),
        HighByteRow("a piece of high bytes", full + "\x80\xFF\n").becomes(full + "  \n"),
        HighByteRow("the ends of two pieces", almostFull + "\x80" + almostFull + "\x80\n")
            .becomes(almostFull + " " + almostFull + " \n"),
    };
}

/// The lines as OpenSSL's reader sees them, which removes what compares as at most a blank from the end of
/// each.
template <typename Character>
std::vector<std::string> linesOf(std::string const& text)
{
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        std::string line = text.substr(start, longestPiece);
        line = line.substr(0, line.find('\n') == std::string::npos ? line.size() : line.find('\n') + 1);
        start += line.size();
        while (!line.empty() && static_cast<Character>(line.back()) <= static_cast<Character>(' ')) {
            line.pop_back();
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace

TEST(PEMBlocks, LinesThatOpenSSLIgnoresAreNoBlock)
{
    expectBlocks(linesThatAreNoBlock());
}

TEST(PEMBlocks, SingleBlockIsFoundByLineRulesOfOpenSSL)
{
    expectBlocks(singleBlocks());
}

TEST(PEMBlocks, EachBeginLineStartsBlock)
{
    expectBlocks(severalBlocks());
}

TEST(PEMBlocks, OnlyBlockWithoutEndLineHidesNextBlock)
{
    std::string const ended = "-----BEGIN A-----\n-----END A-----\n";
    std::string const unended = "-----BEGIN A-----\n";
    EXPECT_FALSE(hidesBlock(splitPEMBlocks("")));
    EXPECT_FALSE(hidesBlock(splitPEMBlocks(ended + ended)));
    EXPECT_FALSE(hidesBlock(splitPEMBlocks(ended + unended)));
    EXPECT_TRUE(hidesBlock(splitPEMBlocks(unended + ended)));
    EXPECT_TRUE(hidesBlock(splitPEMBlocks(ended + unended + unended)));
}

TEST(PEMHighBytes, BecomeBlanksAtLineEndsOnly)
{
    for (HighByteRow const& row : textsWithHighBytes()) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(blankHighBytesAtLineEnds(row.text), row.expected);
        EXPECT_EQ(blankHighBytesAtLineEnds(row.expected), row.expected);
    }
}

TEST(PEMHighBytes, LookTheSameToReaderWithUnsignedCharacters)
{
    for (HighByteRow const& row : textsWithHighBytes()) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(linesOf<unsigned char>(blankHighBytesAtLineEnds(row.text)), linesOf<signed char>(row.text));
        EXPECT_EQ(linesOf<signed char>(blankHighBytesAtLineEnds(row.text)), linesOf<signed char>(row.text));
    }
}

TEST(PEMHighBytes, ReachOpenSSLAsTheyAreWhereCharactersAreSigned)
{
    for (HighByteRow const& row : textsWithHighBytes()) {
        SCOPED_TRACE(row.name);
        auto const bio = makeMemoryBIO();
        EXPECT_EQ(writePEM(bio.get(), row.text), true);
        EXPECT_EQ(contentsAsString(bio.get()), CHAR_MIN < 0 ? row.text : row.expected);
    }
}

TEST(PEMHighBytes, NullBIOTakesNoText)
{
    EXPECT_FALSE(writePEM(nullptr, "text"));
}
