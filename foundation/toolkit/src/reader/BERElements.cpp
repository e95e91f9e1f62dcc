#include "reader/BERElements.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace foundation::toolkit {

namespace {

constexpr unsigned char constructedBit = 0x20;
constexpr unsigned char longTag = 0x1F;
constexpr unsigned char continuationBit = 0x80;
constexpr unsigned char longLengthBit = 0x80;

/// Reads bytes one after the other. Remembers whether the end was reached.
class ByteCursor
{
public:
    explicit ByteCursor(std::string_view text) : bytes(text) {}

    unsigned char next()
    {
        if (position == bytes.size()) {
            isComplete = false;
            return 0;
        }
        return static_cast<unsigned char>(bytes[position++]);
    }

    bool hasAll() const { return isComplete; }
    std::size_t numRead() const { return position; }

private:
    std::string_view bytes;
    std::size_t position = 0;
    bool isComplete = true;
};

constexpr std::size_t sizeOfEndOfContents = 2;

bool isEndOfContents(BERHeader const& header)
{
    return header.tag == 0 && header.size == sizeOfEndOfContents && header.contentSize == std::size_t(0);
}

/// Returns the size of the content of an element with the indefinite form, and of the end-of-contents element
/// behind it. The bytes begin after the header.
std::optional<std::size_t> sizeToEndOfContents(std::string_view bytes)
{
    std::size_t depth = 1;
    std::size_t position = 0;
    while (depth != 0) {
        auto const header = readHeader(bytes.substr(position));
        if (!header) {
            return std::nullopt;
        }
        position += header->size;
        if (!header->contentSize) {
            ++depth;
        } else if (isEndOfContents(*header)) {
            --depth;
        } else if (*header->contentSize > bytes.size() - position) {
            return std::nullopt;
        } else {
            position += *header->contentSize;
        }
    }
    return position;
}

} // namespace

std::optional<BERHeader> readHeader(std::string_view bytes)
{
    ByteCursor cursor(bytes);
    BERHeader header;
    header.tag = cursor.next();
    if ((header.tag & longTag) == longTag) {
        while ((cursor.next() & continuationBit) != 0) {
        }
    }
    unsigned char const length = cursor.next();
    if (length == longLengthBit) {
        header.size = cursor.numRead();
        bool const mayBeIndefinite = (header.tag & constructedBit) != 0;
        return cursor.hasAll() && mayBeIndefinite ? std::optional(header) : std::nullopt;
    }
    std::uint64_t contentSize = length;
    if ((length & longLengthBit) != 0) {
        contentSize = 0;
        auto numBytes = static_cast<std::size_t>(length & ~longLengthBit);
        if (numBytes > sizeof(contentSize)) {
            return std::nullopt;
        }
        for (; numBytes != 0; --numBytes) {
            contentSize = (contentSize << 8U) | cursor.next();
        }
    }
    header.size = cursor.numRead();
    constexpr std::uint64_t largest = std::numeric_limits<std::size_t>::max();
    header.contentSize = static_cast<std::size_t>(std::min(contentSize, largest));
    return cursor.hasAll() ? std::optional(header) : std::nullopt;
}

std::optional<BERElement> firstElement(std::string_view bytes)
{
    auto const header = readHeader(bytes);
    if (!header) {
        return std::nullopt;
    }
    std::string_view const rest = bytes.substr(header->size);
    if (header->contentSize) {
        if (*header->contentSize > rest.size()) {
            return std::nullopt;
        }
        return BERElement{
            header->tag, bytes.substr(0, header->size + *header->contentSize),
            rest.substr(0, *header->contentSize)};
    }
    auto const size = sizeToEndOfContents(rest);
    if (!size) {
        return std::nullopt;
    }
    return BERElement{
        header->tag, bytes.substr(0, header->size + *size), rest.substr(0, *size - sizeOfEndOfContents)};
}

std::optional<BERElement> takeElement(std::string_view& bytes)
{
    auto const element = firstElement(bytes);
    if (element) {
        bytes.remove_prefix(element->whole.size());
    }
    return element;
}

} // namespace foundation::toolkit
