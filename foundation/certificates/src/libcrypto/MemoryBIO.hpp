#pragma once

/// @file
/// Memory BIOs: the way to get text and bytes into OpenSSL and out of it.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <cstddef>
#include <limits>
#include <string>

namespace foundation::certificates {

inline BIOUPtr makeMemoryBIO()
{
    return makeBIO(BIO_new(BIO_s_mem()));
}

/// Whether a single BIO_write, which counts in int, can take that many bytes.
constexpr bool fitsOneWrite(std::size_t size)
{
    return size <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

/// Writes all bytes; false if the BIO took fewer, or if there are more than fit one write.
bool writeAll(BIO* bio, ByteArray const& data);

/// What the BIO holds and nobody has read yet. Empty for a null BIO.
std::string contentsAsString(BIO* bio);
ByteArray contentsAsBytes(BIO* bio);

} // namespace foundation::certificates
