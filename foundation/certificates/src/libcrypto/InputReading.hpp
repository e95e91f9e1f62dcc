#pragma once

/// @file
/// What all loaders share: getting the bytes out of strings and streams, telling PEM from DER, saying that
/// the input was neither, and refusing to ask for a passphrase.

#include <foundation/certificates/ByteArray.hpp>

#include <iosfwd>
#include <string>
#include <string_view>

namespace foundation::certificates {

/// The characters as bytes.
/// @throws InvalidArgument reasonText and what() of a failure to copy them
ByteArray bytesOfString(std::string const& data, char const* reasonText);

/// The rest of the stream, read through its buffer: no white space is skipped, no state flag changes.
/// @throws InvalidArgument notGoodText, with nothing read, if the stream is not good; reasonText and what()
///     of a failure to read
ByteArray bytesOfStream(std::istream& stream, char const* notGoodText, char const* reasonText);
/// The same, as text.
std::string textOfStream(std::istream& stream, char const* notGoodText, char const* reasonText);

/// Whether the marker stands anywhere in the data, which then counts as PEM.
bool containsMarker(ByteArray const& data, std::string_view marker);

/// To be called after a structure was read from PEM: throws if the oldest error in the queue says that no
/// block of its kind was found.
/// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in PEM
///     encoding. Please verify the input data."
void throwIfWrongPEMEncoding();
/// To be called after a structure was read from DER: throws if the oldest error in the queue says that it
/// begins with a wrong tag.
/// @throws InvalidArgument the text above with DER for PEM in both places
void throwIfWrongDEREncoding();

/// A passphrase callback (`pem_password_cb`) that has none. Loading must never ask on a terminal, which is
/// what OpenSSL does for an encrypted block where it is given no callback.
int refusePassphrase(char* buffer, int size, int forWriting, void* userData);

} // namespace foundation::certificates
