#pragma once

/// @file
/// Memory BIOs carry text and bytes into OpenSSL and out of it.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <string>
#include <string_view>

namespace foundation::certificates {

inline BIOUPtr makeMemoryBIO()
{
    return makeBIO(BIO_new(BIO_s_mem()));
}

/// Returns a BIO that reads the bytes in place, so they must outlive it. At their end it answers as a memory
/// BIO does into which they were written. Returns null if out of memory, or if there are more bytes than an
/// int can count.
BIOUPtr makeReaderOf(ByteArray const& data);

/// Writes all bytes in one call. Returns false if the BIO is null or takes fewer bytes. Also returns false,
/// and writes nothing, if there are more bytes than an int can count.
bool writeAll(BIO* bio, ByteArray const& data);
bool writeAll(BIO* bio, std::string_view text);

/// Returns the unread content of the BIO, which is empty for a null BIO.
std::string contentsAsString(BIO* bio);
ByteArray contentsAsBytes(BIO* bio);

} // namespace foundation::certificates
