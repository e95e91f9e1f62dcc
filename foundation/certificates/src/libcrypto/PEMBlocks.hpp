#pragma once

#include <foundation/certificates/ByteArray.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::certificates::posix {

/// One block of a text in PEM form, within that text.
struct PEMBlock
{
    std::string_view label;
    /// From the line that begins the block to the one that ends it. A block that has no end of its own
    /// stops where the next one begins, or with the text.
    std::string_view text;
};

/// All blocks in their order. Where a reader of OpenSSL's runs on from a damaged block into the next, every
/// block is found here.
std::vector<PEMBlock> splitPEMBlocks(std::string_view text);

/// The content of the block (`PEM_read_bio`). Nothing if the block is damaged or encrypted.
std::optional<ByteArray> decode(PEMBlock const& block);

} // namespace foundation::certificates::posix
