#pragma once

/// @file
/// Whether a step of OpenSSL's failed because of what it was given, or because there was no memory for it.
///
/// OpenSSL's queue of errors cannot tell. What reports the cause stands behind whatever the caller left in
/// the queue, and before what followed from it; only the two ends of the queue can be seen; and not every
/// release of OpenSSL reports each want of memory. So a step that failed is taken once more, with memory at
/// hand.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/crypto.h>

#include <cstddef>

namespace foundation::certificates {

/// Takes the step, which says whether it succeeded, and once more if it did not. Whether there was no memory
/// for it; otherwise it succeeded in the end, or is refused with memory at hand as well. In OpenSSL's queue
/// stands what the first attempt left there.
template <typename Step>
bool lacksMemoryFor(Step const& step)
{
    /// More than extensions and names take, and little enough to be had again in small pieces.
    constexpr std::size_t memoryAtHand = 65536;

    if (step()) {
        return false;
    }
    RAIIOpenSSLErrorRemover const errors(false);
    if (makeOpenSSLBytes(static_cast<unsigned char*>(OPENSSL_malloc(memoryAtHand))) == nullptr) {
        return true;
    }
    step();
    return false;
}

} // namespace foundation::certificates
