#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace foundation::fuzz {

using Bytes = std::vector<unsigned char>;

/// Where an element of DER lies in the bytes that it was found at the start of.
struct DerExtent
{
    std::size_t headerSize;
    std::size_t contentSize;

    std::size_t size() const { return headerSize + contentSize; }
};

/// The element at the start of the bytes; nothing if there is none, or if it is longer than the bytes. Knows
/// tags of one byte and definite lengths.
std::optional<DerExtent> firstElementIn(std::uint8_t const* data, std::size_t size);

/// The elements that stand one behind the other; last of all what follows them and is none, if there is
/// anything.
std::vector<Bytes> elementsIn(Bytes const& data);

} // namespace foundation::fuzz
