#pragma once

/// @file
/// What an error code of OpenSSL's verification means here: its verdict, and how it is worded.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/CertificateValidation.hpp>

#include <string>

namespace foundation::certificates {

/// The verdict on an `X509_V_...` code. Total: `Failed` for all that has no verdict of its own.
CertificateChainStatus statusForVerifyError(int code);

/// A report of the context's error: its code, its depth, the subject of the certificate that it befell, and
/// OpenSSL's wording. The subject is empty if the context is at no certificate.
std::string describeVerifyError(X509_STORE_CTX* context);

/// The verdict and its text after the context's verification has failed.
CertificateValidationResults resultForFailedVerification(X509_STORE_CTX* context);

} // namespace foundation::certificates
