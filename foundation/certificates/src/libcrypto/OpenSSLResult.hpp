#pragma once

/// @file
/// OpenSSL's conventions for saying "no", told apart by name: a null pointer, a result below 1, a result
/// other than 1. Each gate throws the given exception with the given text. A result that a caller leaves
/// untested is left so on purpose, and says why.

#include <openssl/err.h>

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

/// The reason code of the oldest entry in OpenSSL's queue, which stays there; 0 for an empty queue.
inline int reasonOfOldestError()
{
    return ERR_GET_REASON(ERR_peek_error());
}

} // namespace foundation::certificates
