#pragma once

/// @file
/// Tells a failure caused by the input from one caused by running out of memory.
///
/// OpenSSL's error queue does not show the difference. The entry of the cause is neither the oldest nor the
/// newest one if the caller has left entries and later failures have added some. And not every version of
/// OpenSSL queues an entry when an allocation fails. So a failed step runs a second time, if memory is
/// available then.

#include "libcrypto/ErrorMark.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/crypto.h>

#include <cstddef>

namespace foundation::certificates {

/// Whether OpenSSL can allocate a small block that is larger than what extensions and names need.
inline bool hasMemoryAtHand()
{
    constexpr std::size_t enough = 65536;
    RAIIOpenSSLErrorRemover const errors(false);
    return makeOpenSSLBytes(static_cast<unsigned char*>(OPENSSL_malloc(enough))) != nullptr;
}

/// Runs the step, which returns whether it succeeded. If it fails although memory is available, runs it a
/// second time. The second run succeeds, or fails because of its input.
///
/// Returns whether the step failed because OpenSSL ran out of memory.
///
/// OpenSSL's error queue holds what one attempt leaves. The entries of the first attempt are removed before
/// the second one. The queue has few places, and the entries of both would push out the caller's.
template <typename Step>
bool lacksMemoryFor(Step const& step)
{
    {
        ErrorMark mark;
        if (step()) {
            return false;
        }
        if (!hasMemoryAtHand()) {
            return true;
        }
        mark.removeErrors();
    }
    step();
    return false;
}

/// Runs the step as lacksMemoryFor does.
/// @throws Exception the text, if OpenSSL ran out of memory
template <typename Exception, typename Step>
void throwIfLacksMemoryFor(Step const& step, char const* text)
{
    if (lacksMemoryFor(step)) {
        throw Exception(text);
    }
}

} // namespace foundation::certificates
