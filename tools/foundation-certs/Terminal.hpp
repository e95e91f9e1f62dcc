#pragma once

#include <cstdio>
#include <string>

namespace foundation::tools {

/// Whether the stream is a terminal.
bool isTerminal(std::FILE* stream);

/// Marks text of human output. Does nothing unless standard output is a terminal, and if the environment
/// variable NO_COLOR is not empty.
std::string inBold(std::string const& text);
std::string inGreen(std::string const& text);
std::string inRed(std::string const& text);

} // namespace foundation::tools
