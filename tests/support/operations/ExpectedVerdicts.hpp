#pragma once

#include "support/openssl/ReferenceVerifier.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <memory>
#include <string>

/// The options, verdicts and texts of validations. Uses no test framework.
namespace foundation::test {

using Options = certificates::CertificateValidationOptions;
using Status = certificates::CertificateChainStatus;

Options optionsWith(
    Tolerances const& tolerances, Options::CheckCRL check = Options::CheckCRL::None,
    Options::DownloadCRL download = Options::DownloadCRL::None,
    std::shared_ptr<certificates::TrustStore const> fallback = nullptr);

/// Adds the certificate to the underlying OpenSSL store, also one that `TrustStore` would refuse.
void addUnchecked(certificates::TrustStore& store, X509Handle const& certificate);

/// Returns the library's report of a verification error. The sentence at its end is OpenSSL's own.
std::string report(int code, int depth, std::string const& subject);

/// Returns the verdict for an error code of OpenSSL.
Status expectedStatus(int code);

/// Returns the whole text for an error code of OpenSSL.
std::string expectedText(int code, int depth, std::string const& subject);

} // namespace foundation::test
