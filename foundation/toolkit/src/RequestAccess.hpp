#pragma once

/// @file
/// What a certificate request holds, as OpenSSL's objects.

#include "libcrypto/OpenSSLHandles.hpp"

namespace foundation::toolkit {

/// The text of the CertificateException for a request that could not be read because memory ran out.
inline constexpr char const unreadableRequestText[] = "Internal error: The request could not be read.";

/// Returns the alternative names that the request asks for; null without any.
/// @throws certificates::InvalidArgument "The alternative names of the request are unreadable."
/// @throws certificates::CertificateException "Internal error: The request could not be read."
certificates::GENERAL_NAMEStackUPtr requestedNames(X509_REQ* request);

/// Returns the request's public key; null unless the request's signature verifies with it.
/// @throws certificates::CertificateException "Internal error: The request could not be read."
certificates::EVP_PKEYUPtr provenKey(X509_REQ* request);

} // namespace foundation::toolkit
