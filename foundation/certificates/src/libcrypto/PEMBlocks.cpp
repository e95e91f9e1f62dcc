#include "libcrypto/PEMBlocks.hpp"

#include "libcrypto/OpenSSLHandles.hpp"

#include <openssl/pem.h>

#include <limits>

namespace foundation::certificates::posix {

namespace {

constexpr std::string_view beginMarker = "-----BEGIN ";
constexpr std::string_view endMarker = "-----END ";

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

std::string_view labelIn(std::string_view beginLine)
{
    std::string_view const afterMarker = beginLine.substr(beginMarker.size());
    return afterMarker.substr(0, afterMarker.find_first_of("-\r\n"));
}

} // namespace

std::vector<PEMBlock> splitPEMBlocks(std::string_view text)
{
    std::vector<PEMBlock> blocks;
    bool insideBlock = false;
    std::size_t lineStart = 0;
    while (lineStart < text.size()) {
        std::size_t const lineFeed = text.find('\n', lineStart);
        std::size_t const lineEnd = lineFeed == std::string_view::npos ? text.size() : lineFeed + 1;
        std::string_view const line = text.substr(lineStart, lineEnd - lineStart);
        if (startsWith(line, beginMarker)) {
            blocks.push_back({labelIn(line), line.substr(0, 0)});
            insideBlock = true;
        }
        if (insideBlock) {
            std::string_view& block = blocks.back().text;
            block = std::string_view(block.data(), block.size() + line.size());
            insideBlock = !startsWith(line, endMarker);
        }
        lineStart = lineEnd;
    }
    return blocks;
}

std::optional<ByteArray> decode(PEMBlock const& block)
{
    if (block.text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return std::nullopt;
    }
    auto const bio = makeBIO(BIO_new_mem_buf(block.text.data(), static_cast<int>(block.text.size())));
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

} // namespace foundation::certificates::posix
