#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace foundation::fuzz {

using Bytes = std::vector<unsigned char>;

/// The extent of a DER element at the start of some bytes.
struct DerExtent
{
    std::size_t headerSize;
    std::size_t contentSize;

    std::size_t size() const { return headerSize + contentSize; }
};

/// Returns the extent of the element at the start of the bytes. Returns nothing if the bytes do not hold a
/// whole element. Supports tags of one byte and definite lengths.
std::optional<DerExtent> firstElementIn(std::uint8_t const* data, std::size_t size);

/// Returns the consecutive elements. Bytes after them that are not an element become the last entry.
std::vector<Bytes> elementsIn(Bytes const& data);

} // namespace foundation::fuzz
