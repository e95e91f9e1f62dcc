#pragma once

/// @file
/// One gate for each way in which OpenSSL functions report a failure: a null pointer, a result below 1, a
/// result other than 1, a size of 0. Each gate throws the given exception with the given text. Where a caller
/// ignores a result on purpose, a comment gives the reason.

#include <openssl/err.h>

#include <cstddef>

namespace foundation::certificates {

template <typename Exception, typename T>
T* throwIfNull(T* pointer, char const* text)
{
    if (pointer == nullptr) {
        throw Exception(text);
    }
    return pointer;
}

template <typename Exception>
void throwIfBelowOne(long result, char const* text)
{
    if (result < 1) {
        throw Exception(text);
    }
}

template <typename Exception>
void throwIfNotOne(long result, char const* text)
{
    if (result != 1) {
        throw Exception(text);
    }
}

template <typename Exception>
void throwIfZero(std::size_t size, char const* text)
{
    if (size == 0) {
        throw Exception(text);
    }
}

/// Returns the reason code of the oldest entry in OpenSSL's error queue; 0 for an empty queue. The entry
/// stays.
inline int reasonOfOldestError()
{
    return ERR_GET_REASON(ERR_peek_error());
}

} // namespace foundation::certificates
