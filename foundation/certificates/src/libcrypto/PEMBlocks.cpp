#include "libcrypto/PEMBlocks.hpp"

#include "libcrypto/MemoryBIO.hpp"

#include <openssl/pem.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <iterator>

namespace foundation::certificates {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view beginMarker = "-----BEGIN ";
constexpr std::string_view endMarker = "-----END ";
constexpr std::string_view dashes = "-----";

bool startsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool isHigh(char character)
{
    return static_cast<unsigned char>(character) > 127;
}

bool isIgnoredAtLineEnd(char character)
{
    return isHigh(character) || static_cast<unsigned char>(character) <= ' ';
}

std::string_view withoutIgnoredEnd(std::string_view line)
{
    while (!line.empty() && isIgnoredAtLineEnd(line.back())) {
        line.remove_suffix(1);
    }
    return line;
}

std::string_view extendedBy(std::string_view block, std::string_view nextLine)
{
    return {block.data(), block.size() + nextLine.size()};
}

} // namespace

std::string_view firstPEMLine(std::string_view text)
{
    std::string_view const piece = text.substr(0, longestPEMLine);
    std::size_t const lineFeed = piece.find('\n');
    return lineFeed == std::string_view::npos ? piece : piece.substr(0, lineFeed + 1);
}

std::optional<std::string_view> labelOfBeginLine(std::string_view line)
{
    line = withoutIgnoredEnd(line);
    if (startsWith(line, byteOrderMark)) {
        line.remove_prefix(byteOrderMark.size());
    }
    if (!startsWith(line, beginMarker) || !endsWith(line, dashes)) {
        return std::nullopt;
    }
    line.remove_prefix(beginMarker.size());
    line.remove_suffix(dashes.size());
    return line;
}

bool isEndLine(std::string_view line)
{
    return startsWith(withoutIgnoredEnd(line), endMarker);
}

std::vector<PEMBlock> splitPEMBlocks(std::string_view text)
{
    std::vector<PEMBlock> blocks;
    bool insideBlock = false;
    while (!text.empty()) {
        std::string_view const line = firstPEMLine(text);
        if (auto const label = labelOfBeginLine(line)) {
            blocks.push_back({*label, line, false});
            insideBlock = true;
        } else if (insideBlock) {
            PEMBlock& block = blocks.back();
            block.text = extendedBy(block.text, line);
            block.hasEndLine = isEndLine(line);
            insideBlock = !block.hasEndLine;
        }
        text.remove_prefix(line.size());
    }
    return blocks;
}

bool hidesBlock(std::vector<PEMBlock> const& blocks)
{
    return !blocks.empty() && std::any_of(blocks.begin(), blocks.end() - 1, [](PEMBlock const& block) {
        return !block.hasEndLine;
    });
}

std::string blankHighBytesAtLineEnds(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        std::string_view const line = firstPEMLine(text);
        std::string_view const kept = withoutIgnoredEnd(line);
        std::string_view const ignored = line.substr(kept.size());
        result += kept;
        std::replace_copy_if(ignored.begin(), ignored.end(), std::back_inserter(result), isHigh, ' ');
        text.remove_prefix(line.size());
    }
    return result;
}

bool writePEM(BIO* bio, std::string_view text)
{
    if constexpr (CHAR_MIN == 0) {
        return writeAll(bio, blankHighBytesAtLineEnds(text));
    } else {
        return writeAll(bio, text);
    }
}

std::optional<ByteArray> decode(PEMBlock const& block)
{
    auto const bio = makeMemoryBIO();
    if (!writePEM(bio.get(), block.text)) {
        return std::nullopt;
    }
    char* label = nullptr;
    char* header = nullptr;
    unsigned char* content = nullptr;
    long length = 0;
    int const outcome = PEM_read_bio(bio.get(), &label, &header, &content, &length);
    auto const ownedLabel = makeOpenSSLChars(label);
    auto const ownedHeader = makeOpenSSLChars(header);
    auto const ownedContent = makeOpenSSLBytes(content);
    bool const isEncrypted = header != nullptr && *header != '\0';
    if (outcome != 1 || content == nullptr || isEncrypted) {
        return std::nullopt;
    }
    return ByteArray(content, content + length);
}

} // namespace foundation::certificates
