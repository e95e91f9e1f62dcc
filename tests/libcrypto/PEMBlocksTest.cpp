#include "libcrypto/PEMBlocks.hpp"

#include <gtest/gtest.h>

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

struct ScannerRow
{
    std::string name;
    std::string text;
    std::vector<ExpectedBlock> blocks;
};

std::vector<ScannerRow> linesThatAreNoBlock()
{
    return {
        {"nothing", "", {}},
        {"no BEGIN line", "text\n-----END A-----\n", {}},
        {"a BEGIN line after other text", "text -----BEGIN A-----\n-----END A-----\n", {}},
        {"a BEGIN line after a blank", " -----BEGIN A-----\n-----END A-----\n", {}},
        {"a BEGIN line without label", "-----BEGIN \n-----END A-----\n", {}},
        {"a BEGIN line without the last dashes", "-----BEGIN A\n-----END A-----\n", {}},
        {"a BEGIN line with four last dashes", "-----BEGIN A----\n-----END A-----\n", {}},
        {"text after a BEGIN line", "-----BEGIN A----- text\n-----END A-----\n", {}},
        {"two byte order marks",
         std::string(byteOrderMark) + byteOrderMark + "-----BEGIN A-----\n-----END A-----\n",
         {}},
        {"the byte order mark of UTF-16", "\xFE\xFF-----BEGIN A-----\n-----END A-----\n", {}},
        {"a BEGIN line longer than a piece",
         "-----BEGIN " + std::string(longestPiece, 'A') + "-----\n-----END A-----\n",
         {}},
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
        {"text around it", "x\n" + simple + "y\n", {ended("A", simple)}},
        {"no line end", noLineEnd, {ended("A", noLineEnd)}},
        {"DOS line ends", dosLineEnds, {ended("A", dosLineEnds)}},
        {"blanks and tabs at line ends", blanksAndTabs, {ended("A", blanksAndTabs)}},
        {"high bytes at line ends", highBytes, {ended("A", highBytes)}},
        {"a byte order mark", byteOrderMark + simple, {ended("A", byteOrderMark + simple)}},
        {"a byte order mark after text",
         std::string("x\n") + byteOrderMark + simple,
         {ended("A", byteOrderMark + simple)}},
        {"an END line of another label", otherEnd, {ended("A", otherEnd)}},
        {"bare END lines", bareEnd, {ended("A", bareEnd)}},
        {"an END line without the last dashes", endWithoutDashes, {ended("A", endWithoutDashes)}},
        {"an END line after a blank", indentedEnd, {unended("A", indentedEnd)}},
        {"an END line after a full piece", fullPiece, {ended("A", fullPiece)}},
        {"an END line within a piece", partPiece, {unended("A", partPiece)}},
        {"a BEGIN line after a full piece", std::string(longestPiece, 'x') + simple, {ended("A", simple)}},
        {"an empty label", emptyLabel, {ended("", emptyLabel)}},
        {"a label with a dash", dashesInLabel, {ended("A-B", dashesInLabel)}},
        {"nothing but a BEGIN line", "-----BEGIN A-----", {unended("A", "-----BEGIN A-----")}},
    };
}

std::vector<ScannerRow> severalBlocks()
{
    std::string const a = "-----BEGIN A-----\nB\n-----END A-----\n";
    std::string const c = "-----BEGIN C D-----\r\n-----END C D-----";
    std::string const unendedA = "-----BEGIN A-----\nB\n";
    return {
        {"one after the other", a + c, {ended("A", a), ended("C D", c)}},
        {"text between", a + "x\n" + c, {ended("A", a), ended("C D", c)}},
        {"no END line of the first", unendedA + c, {unended("A", unendedA), ended("C D", c)}},
        {"no END line of the first, a byte order mark before the second",
         unendedA + byteOrderMark + c,
         {unended("A", unendedA), ended("C D", byteOrderMark + c)}},
        {"a bare END line of the first",
         unendedA + "-----END \n" + c,
         {unended("A", unendedA + "-----END \n"), ended("C D", c)}},
        {"no END line of the last", a + unendedA, {ended("A", a), unended("A", unendedA)}},
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

} // namespace
