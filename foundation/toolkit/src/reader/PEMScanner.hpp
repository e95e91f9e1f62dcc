#pragma once

#include "reader/BufferedInput.hpp"

#include <cstddef>
#include <optional>
#include <string>

namespace foundation::toolkit {

/// The largest PEM block, and the largest structure in DER, that is read.
constexpr std::size_t largestBlock = std::size_t(16) * 1024 * 1024;

/// A PEM block that may hold certificates.
struct PEMText
{
    /// From the BEGIN line to the END line; incomplete if the block is too large.
    std::string text;
    bool hasEndLine = false;
    bool isTooLarge = false;
};

/// Finds the PEM blocks of a text, one at a time. Other text and blocks of other kinds are skipped.
class PEMScanner
{
public:
    /// Returns the next block; nothing at the end of the input. A BEGIN line and the end of the input end a
    /// block that has no END line yet.
    /// @throws ReadFailure
    std::optional<PEMText> next(BufferedInput& input);

private:
    struct OpenBlock
    {
        PEMText block;
        bool isWanted = false;
    };

    std::optional<PEMText> end();

    std::optional<OpenBlock> open;
};

} // namespace foundation::toolkit
