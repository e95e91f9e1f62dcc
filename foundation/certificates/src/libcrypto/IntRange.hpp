#pragma once

#include <cstddef>
#include <limits>

namespace foundation::certificates {

/// Whether OpenSSL can take that many bytes in one call. Most of its functions count in `int`; a longer input
/// must be refused, since a narrowed count would select a part of it.
constexpr bool fitsInInt(std::size_t size)
{
    return size <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

} // namespace foundation::certificates
