#pragma once

/// @file
/// Access to the OpenSSL object behind a certificate, without a copy and without an encoding. Trust stores,
/// verifications and PKCS#7 structures share certificates this way. X509Duplicates makes copies instead.

#include "certificate/X509CertificateImpl.hpp"
#include "certificate/X509Duplicates.hpp"
#include "keys/RSAKeySize.hpp"
#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <mutex>
#include <utility>

namespace foundation::certificates {

struct X509Access
{
    /// Returns a further reference to the certificate's OpenSSL object, never null. The object must not be
    /// changed. Holds the certificate's lock during the call, and leaves OpenSSL's error queue as it is.
    /// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate
    ///     has no content."
    static X509UPtr share(X509Certificate const& certificate)
    {
        std::lock_guard<std::mutex> const lock(certificate.mutex);
        if (certificate.impl == nullptr) {
            throw X509CertificateException("Error: X509Certificate is uninitialized.");
        }
        X509* const x509 = certificate.impl->x509.get();
        if (x509 == nullptr || X509_up_ref(x509) != 1) {
            throw X509CertificateException("Error: X509Certificate has no content.");
        }
        return makeX509(x509);
    }

    /// Returns an implementation that shares the certificate, or duplicates it if it may not be shared.
    /// Refuses its key as loading does. Nothing may change a shared certificate afterwards.
    static X509CertificateImpl implementationWith(X509* certificate)
    {
        if (certificate == nullptr || !mayBeShared(certificate) || X509_up_ref(certificate) != 1) {
            return X509CertificateImpl(certificate);
        }
        auto reference = makeX509(certificate);
        X509CertificateImpl sharing;
        sharing.x509 = std::move(reference);
        if (!isStrongRSAKey(X509_get0_pubkey(certificate))) {
            sharing.throwIfKeyTooWeak();
        }
        return sharing;
    }
};

} // namespace foundation::certificates
