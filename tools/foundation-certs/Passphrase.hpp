#pragma once

#include <optional>
#include <string>

namespace foundation::tools {

/// Returns the content of the file without one line end at its end. "-" is standard input, and on Unix
/// systems /dev/fd/3 is the descriptor 3. Without a file, asks on the terminal and does not show what is
/// typed.
/// @throws std::runtime_error if the file cannot be read, or if there is no terminal
std::string
readPassphrase(std::optional<std::string> const& file, std::string const& prompt = "Passphrase: ");

} // namespace foundation::tools
