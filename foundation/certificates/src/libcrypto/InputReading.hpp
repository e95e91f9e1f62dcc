#pragma once

/// @file
/// The steps that all loaders share. They take bytes from strings and streams, and tell PEM from DER. They
/// run OpenSSL's reader without a passphrase prompt, and report failures.

#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/NoPassphrase.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <iosfwd>
#include <string>
#include <string_view>

namespace foundation::certificates {

/// Returns the characters as bytes.
/// @throws InvalidArgument reasonText and what() of a failure to copy them
ByteArray bytesOfString(std::string const& data, char const* reasonText);

/// Returns the rest of the stream. Reads through the stream's buffer: no white space is skipped, and no state
/// flag changes.
/// @throws InvalidArgument notGoodText if the stream is not good; nothing is read then
/// @throws InvalidArgument reasonText and what() of a failure to read
ByteArray bytesOfStream(std::istream& stream, char const* notGoodText, char const* reasonText);
/// As bytesOfStream, but returns the rest as text.
std::string textOfStream(std::istream& stream, char const* notGoodText, char const* reasonText);

/// Whether the data contains the marker. Such data is read as PEM.
bool containsMarker(ByteArray const& data, std::string_view marker);

enum class InputForm
{
    PEM,
    DER
};

/// OpenSSL's functions for one kind of structure.
template <typename Object>
struct StructureFunctions
{
    Object* (*readPEM)(BIO*, Object**, pem_password_cb*, void*);
    Object* (*readDER)(BIO*, Object**);
    void (*release)(Object*);
};

/// Returns a BIO from which OpenSSL's reader of that form gets the data. It reads in place where it can, so
/// the data must outlive it.
/// @throws Exception "Internal error: The given certificate data could not be written to a buffer."
template <typename Exception>
BIOUPtr bufferOf(ByteArray const& data, InputForm form);

/// Whether OpenSSL's decoders for memory and for BIOs read the same object from the beginning of the data, if
/// the one for memory succeeds. False for some data on which they agree, but never true if they differ.
///
/// The decoder for BIOs takes a header of at most seven bytes. It finds the end of an element of indefinite
/// length by rules of its own.
bool isReadAlikeInPlace(ByteArray const& der);

/// Returns the structure that the data holds, decoded without a copy of the data. Returns null, and leaves
/// OpenSSL's error queue empty, if readStructure must read it: it then succeeds, or reports the failure.
template <typename Object>
OpenSSLHandle<Object> decodeInPlace(
    ByteArray const& der, Object* (*decode)(Object**, unsigned char const**, long), void (*release)(Object*));

/// Returns the structure that the data holds.
/// @throws Exception as bufferOf and throwIfLoadingFailed do
/// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in PEM
///     encoding. Please verify the input data." if the text has no block of that kind; for data in DER that
///     begins with a wrong tag, the same text with DER for PEM
template <typename Exception, typename Object>
OpenSSLHandle<Object> readStructure(
    ByteArray const& data, InputForm form, StructureFunctions<Object> const& functions,
    RAIIOpenSSLErrorRemover& errors);

/// Refuses what OpenSSL could not read. A result with an entry in the error queue counts as a failure too.
/// @throws Exception the text and OpenSSL's reason
template <typename Exception>
void throwIfLoadingFailed(
    bool isLoaded, RAIIOpenSSLErrorRemover& errors,
    char const* text = "Error: Loading a certificate failed. Reason=");

namespace detail {

BIOUPtr makeInputReader(ByteArray const& data, InputForm form);
void throwIfOtherForm(InputForm form);

} // namespace detail

template <typename Exception>
BIOUPtr bufferOf(ByteArray const& data, InputForm form)
{
    auto bio = detail::makeInputReader(data, form);
    if (bio == nullptr) {
        throw Exception("Internal error: The given certificate data could not be written to a buffer.");
    }
    return bio;
}

template <typename Object>
OpenSSLHandle<Object> decodeInPlace(
    ByteArray const& der, Object* (*decode)(Object**, unsigned char const**, long), void (*release)(Object*))
{
    OpenSSLHandle<Object> structure(nullptr, release);
    if (isReadAlikeInPlace(der)) {
        unsigned char const* position = der.data();
        structure.reset(decode(nullptr, &position, static_cast<long>(der.size())));
    }
    if (ERR_peek_error() != 0) { // a result with an entry in the queue is a failure too
        structure.reset();
        ERR_clear_error();
    }
    return structure;
}

template <typename Exception, typename Object>
OpenSSLHandle<Object> readStructure(
    ByteArray const& data, InputForm form, StructureFunctions<Object> const& functions,
    RAIIOpenSSLErrorRemover& errors)
{
    auto const bio = bufferOf<Exception>(data, form);
    OpenSSLHandle<Object> structure(
        form == InputForm::PEM ? functions.readPEM(bio.get(), nullptr, refusePassphrase, nullptr)
                               : functions.readDER(bio.get(), nullptr),
        functions.release);
    detail::throwIfOtherForm(form);
    throwIfLoadingFailed<Exception>(structure != nullptr, errors);
    return structure;
}

template <typename Exception>
void throwIfLoadingFailed(bool isLoaded, RAIIOpenSSLErrorRemover& errors, char const* text)
{
    if (!isLoaded || ERR_peek_error() != 0) {
        throw Exception(text + errors.getErrorString());
    }
}

} // namespace foundation::certificates
