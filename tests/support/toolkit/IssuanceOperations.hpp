#pragma once

#include "support/operations/Operation.hpp"

#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/toolkit/Issuance.hpp>

#include <string>
#include <vector>

/// @file
/// The rows of the toolkit's table for keys, requests and new certificates.

namespace foundation::toolkit {

std::string rendered(SecretString const& secret);
std::string rendered(CertificateRequest const& request);

} // namespace foundation::toolkit

namespace foundation::test {

toolkit::CertificateRequest newRequest();
toolkit::EndEntityCertificateBuilder newBuilder();
/// Returns a bundle with a key, whose passphrase takes one round.
certificates::PKCS12Certificate newBundle();

std::vector<Operation<toolkit::CertificateRequest>> const& certificateRequestOperations();
std::vector<Operation<toolkit::EndEntityCertificateBuilder>> const& endEntityBuilderOperations();
std::vector<Operation<certificates::PKCS12Certificate>> const& privateKeyOperations();

/// Renders a builder by what it builds.
std::string renderedBuilder(toolkit::EndEntityCertificateBuilder const& builder);

} // namespace foundation::test
