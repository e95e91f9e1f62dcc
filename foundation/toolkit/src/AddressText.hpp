#pragma once

/// @file
/// IP addresses as text and as bytes in network order, on every platform alike.

#include <foundation/certificates/ByteArray.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace foundation::toolkit {

/// Returns the address as `inet_ntop` writes it; nothing unless there are 4 or 16 bytes.
std::optional<std::string> addressAsText(foundation::certificates::ByteArray const& bytes);

/// Returns the 4 or 16 bytes of the address; nothing for any other text. Accepts what `inet_pton` accepts: no
/// blanks, no leading zeros in IPv4, no brackets and no zone.
std::optional<foundation::certificates::ByteArray> addressFromText(std::string_view text);

} // namespace foundation::toolkit
