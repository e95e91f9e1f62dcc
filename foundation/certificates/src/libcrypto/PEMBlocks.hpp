#pragma once

/// @file
/// The scanner of PEM text. It finds the blocks of a text by the line rules of OpenSSL's PEM reader:
///
/// - A line ends after its line feed or after 254 characters. What follows counts as a line of its own.
/// - White space, control characters and bytes above 127 at the end of a line are ignored.
/// - A byte order mark before a BEGIN line is ignored.
/// - A line "-----END " without a label is no END line.
///
/// The scanner differs from OpenSSL's reader in two ways, so that one damaged block does not hide others.
/// Each BEGIN line starts a new block, even if the block before has no END line. And a byte order mark may
/// precede every BEGIN line; OpenSSL accepts one only in the first line and right after an END line.
///
/// OpenSSL ignores bytes above 127 only where `char` is signed, since it compares characters with a blank. On
/// other platforms a BEGIN line with such a byte at its end hides its block. There, writePEM makes up for it.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::certificates {

/// One block of a PEM text. The views refer to that text.
struct PEMBlock
{
    std::string_view label;
    /// The text from the BEGIN line to the END line, both included. Without an END line, it reaches to the
    /// next BEGIN line or to the end of the text.
    std::string_view text;
    bool hasEndLine = false;
};

/// The most characters that OpenSSL's reader takes as one line.
constexpr std::size_t longestPEMLine = 254;

/// Returns the first line with its line feed, or the first piece of a long line; empty for no text.
std::string_view firstPEMLine(std::string_view text);

/// Returns the label if the line is a BEGIN line.
std::optional<std::string_view> labelOfBeginLine(std::string_view line);

/// Whether the line is an END line.
bool isEndLine(std::string_view line);

/// Returns all blocks in their order, damaged ones too.
std::vector<PEMBlock> splitPEMBlocks(std::string_view text);

/// Whether a further block follows a block without an END line. OpenSSL reads such a block up to the next END
/// line, and skips all lines before it without an error.
bool hidesBlock(std::vector<PEMBlock> const& blocks);

/// Returns the text with a blank in place of each byte above 127 that is ignored at the end of a line.
/// OpenSSL reads the result as it reads the text where `char` is signed, on every platform. The text keeps
/// its length, because a change would shift the pieces of long lines.
std::string blankHighBytesAtLineEnds(std::string_view text);

/// Writes the text into the BIO so that OpenSSL's PEM reader ignores the same bytes on every platform. Where
/// `char` is signed, the text is written unchanged. Returns false where writeAll does.
bool writePEM(BIO* bio, std::string_view text);

/// Returns the content of the block (`PEM_read_bio`), or nothing if the block is damaged or encrypted.
std::optional<ByteArray> decode(PEMBlock const& block);

} // namespace foundation::certificates
