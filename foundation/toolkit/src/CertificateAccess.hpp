#pragma once

/// @file
/// Access to the OpenSSL object behind a toolkit certificate, without a copy.

#include "certificate/Extensions.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Certificate.hpp>

#include <memory>
#include <string>

namespace foundation::toolkit {

/// The text of the X509CertificateException for a step of OpenSSL that ran out of memory.
inline constexpr char const outOfMemoryText[] = "Internal error: OpenSSL ran out of memory.";

/// Runs the step, which returns whether it succeeded. A step that fails although memory is available failed
/// because of its input.
/// @throws X509CertificateException "Internal error: OpenSSL ran out of memory."
template <typename Step>
void runUnlessOutOfMemory(Step const& step)
{
    foundation::certificates::throwIfLacksMemoryFor<foundation::certificates::X509CertificateException>(
        step, outOfMemoryText);
}

struct CertificateAccess
{
    /// Returns the parsed certificate for OpenSSL functions that take it without `const`, and do not change
    /// it.
    static x509_st* get(Certificate const& certificate) { return certificate.x509.get(); }

    /// Returns a certificate that shares an object which nothing changes any more: it comes from a verified
    /// chain, a TLS connection or a loader. Reads its key and its extensions, so that no later step runs out
    /// of memory for them.
    /// @throws X509CertificateException "Internal error: OpenSSL ran out of memory." also for a null pointer
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions."
    static Certificate adopt(foundation::certificates::X509UPtr certificate);
};

} // namespace foundation::toolkit
