#pragma once

#include <vector>

namespace foundation::certificates {

/// The type of all binary input and output.
///
/// A big number in a ByteArray is unsigned and big-endian, without leading zero bytes. Zero is the empty
/// array.
using ByteArray = std::vector<unsigned char>;

} // namespace foundation::certificates
