#pragma once

/// @file
/// Maps error codes of OpenSSL's verification to verdicts and texts.

#include "libcrypto/OpenSSLHandles.hpp"

#include <foundation/certificates/CertificateValidation.hpp>

#include <string>

namespace foundation::certificates {

/// Returns the verdict for an `X509_V_...` code; `Failed` for a code without a verdict of its own.
CertificateChainStatus statusForVerifyError(int code);

/// Returns a report of the context's error: code, depth, the subject of the certificate with the error, and
/// OpenSSL's text. The subject is empty if the context has no current certificate.
std::string describeVerifyError(X509_STORE_CTX* context);

/// Returns the verdict and its text after the context's verification failed.
CertificateValidationResults resultForFailedVerification(X509_STORE_CTX* context);

} // namespace foundation::certificates
