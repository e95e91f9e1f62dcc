#pragma once

#include <vector>

namespace foundation::certificates {

/// The library's byte vector: all binary input and output.
///
/// A big number in a ByteArray is big-endian and unsigned, without leading zero bytes; zero is
/// the empty array.
using ByteArray = std::vector<unsigned char>;

} // namespace foundation::certificates
