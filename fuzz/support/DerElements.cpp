#include "support/DerElements.hpp"

namespace foundation::fuzz {

std::optional<DerExtent> firstElementIn(std::uint8_t const* data, std::size_t size)
{
    constexpr unsigned longForm = 0x80;
    if (size < 2) {
        return std::nullopt;
    }
    DerExtent extent{2, data[1]};
    if ((data[1] & longForm) != 0) {
        std::size_t const lengthBytes = data[1] & 0x7FU;
        if (lengthBytes == 0 || lengthBytes > 4 || size < 2 + lengthBytes) {
            return std::nullopt;
        }
        extent = {2 + lengthBytes, 0};
        for (std::size_t index = 0; index < lengthBytes; ++index) {
            extent.contentSize = extent.contentSize << 8U | data[2 + index];
        }
    }
    return extent.contentSize > size - extent.headerSize ? std::nullopt : std::optional<DerExtent>(extent);
}

std::vector<Bytes> elementsIn(Bytes const& data)
{
    std::vector<Bytes> elements;
    for (std::size_t position = 0; position < data.size();) {
        auto const rest = data.size() - position;
        auto const extent = firstElementIn(data.data() + position, rest);
        auto const begin = data.begin() + static_cast<std::ptrdiff_t>(position);
        std::size_t const size = extent ? extent->size() : rest;
        elements.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
        position += size;
    }
    return elements;
}

} // namespace foundation::fuzz
