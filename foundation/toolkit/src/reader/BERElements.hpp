#pragma once

/// @file
/// Elements of BER and DER without OpenSSL, which refuses a whole structure if one certificate in it is
/// damaged. Untrusted input: nothing here recurses, and all lengths are checked against the bytes that there
/// are.

#include <cstddef>
#include <optional>
#include <string_view>

namespace foundation::toolkit {

constexpr unsigned char berInteger = 0x02;
constexpr unsigned char berObjectIdentifier = 0x06;
constexpr unsigned char berSequence = 0x30;
/// [0], constructed
constexpr unsigned char berContext0 = 0xA0;

/// The most bytes that readHeader looks at for the tags that the reader knows.
constexpr std::size_t longestHeader = 10;

/// Tag and length of an element.
struct BERHeader
{
    /// The first byte of the tag.
    unsigned char tag = 0;
    std::size_t size = 0;
    /// No value for the indefinite form, which an end-of-contents element ends. A size that a system of 32
    /// bits cannot hold is the largest that it can.
    std::optional<std::size_t> contentSize;
};

struct BERElement
{
    unsigned char tag = 0;
    /// The element with its header and its end.
    std::string_view whole;
    std::string_view content;
};

/// Returns the header at the start of the bytes; nothing if it is damaged or incomplete.
std::optional<BERHeader> readHeader(std::string_view bytes);

/// Returns the element at the start of the bytes; nothing if it is damaged or incomplete.
std::optional<BERElement> firstElement(std::string_view bytes);

/// Removes the element at the start of the bytes, and returns it; nothing if it is damaged or incomplete.
std::optional<BERElement> takeElement(std::string_view& bytes);

} // namespace foundation::toolkit
