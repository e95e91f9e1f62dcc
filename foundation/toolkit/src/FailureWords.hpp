#pragma once

#include "VerdictWords.hpp"

#include <optional>
#include <string_view>

namespace foundation::toolkit {

/// Returns the words for the text of an exception. The longest beginning that fits counts. Returns nothing
/// for a text that docs/errors.md does not list.
std::optional<Words> wordsForFailure(std::string_view text);

} // namespace foundation::toolkit
