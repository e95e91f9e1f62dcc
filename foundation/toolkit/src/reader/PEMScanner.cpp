#include "reader/PEMScanner.hpp"

#include "libcrypto/PEMBlocks.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

bool mayHoldCertificates(std::string_view label)
{
    constexpr std::array<std::string_view, 7> labels = {
        "CERTIFICATE", "X509 CERTIFICATE", "TRUSTED CERTIFICATE", "PKCS7", "PKCS #7 SIGNED DATA", "CMS",
        "PKCS12"};
    return std::find(labels.begin(), labels.end(), label) != labels.end();
}

void append(PEMText& block, std::string_view line)
{
    if (block.text.size() + line.size() > largestBlock) {
        block.isTooLarge = true;
    } else if (!block.isTooLarge) {
        block.text += line;
    }
}

} // namespace

std::optional<PEMText> PEMScanner::next(BufferedInput& input)
{
    while (true) {
        std::string_view const line = firstPEMLine(input.peek(longestPEMLine));
        auto const label = labelOfBeginLine(line);
        if (open && (label || line.empty())) {
            if (auto block = end()) {
                return block; // the line belongs to the next call
            }
        }
        if (line.empty()) {
            return std::nullopt;
        }
        if (label) {
            open = OpenBlock{{std::string(line)}, mayHoldCertificates(*label)};
        } else if (open && open->isWanted) {
            append(open->block, line);
        }
        bool const ends = open && !label && isEndLine(line);
        input.skip(line.size());
        if (ends) {
            open->block.hasEndLine = true;
            if (auto block = end()) {
                return block;
            }
        }
    }
}

/// Forgets the open block and returns it, if it may hold certificates.
std::optional<PEMText> PEMScanner::end()
{
    OpenBlock ended = std::move(*open);
    open.reset();
    return ended.isWanted ? std::optional(std::move(ended.block)) : std::nullopt;
}

} // namespace foundation::toolkit
