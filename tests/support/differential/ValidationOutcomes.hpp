#pragma once

#include "support/openssl/ReferenceValidator.hpp"
#include "support/openssl/ReferenceVerifier.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <vector>

/// The outcomes of both libraries and of bare OpenSSL in one form, so that they can be compared. An exception
/// is an outcome, too. Uses no test framework.
namespace foundation::test {

/// Validates with the library.
ReferenceVerdict verdictOf(
    certificates::X509Certificate const& leaf, certificates::X509CertificateChain const& chain,
    certificates::CertificateValidationOptions const& options, certificates::TrustStore const& store);

/// Validates with the toolkit. The text of a valid outcome is the chain in hexadecimal digits.
ReferenceVerdict verdictOf(
    toolkit::PathValidator const& validator, toolkit::Certificate const& leaf,
    std::vector<toolkit::Certificate> const& intermediates, toolkit::PathOptions const& options);

/// Returns the outcome that the toolkit has to have.
ReferenceVerdict verdictOf(ReferenceOutcome const& outcome);

} // namespace foundation::test
