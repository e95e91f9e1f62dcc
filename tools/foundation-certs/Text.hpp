#pragma once

#include <string>
#include <string_view>

/// Names in certificates and names of files are untrusted text.
namespace foundation::tools {

/// Returns the text for a terminal, on one line. Escapes control characters, characters that change the
/// direction of writing, and bytes that are not UTF-8: "\n", "\x1b", "\u202e". Backslashes stay as they are.
std::string printable(std::string_view text);

/// Returns the text as UTF-8. Escapes each byte that is not: "\xff".
std::string validUTF8(std::string_view text);

/// Returns the message as one printable line of the program, for standard error.
std::string errorLine(std::string_view message);

} // namespace foundation::tools
