#pragma once

#include "support/Dice.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/CertificateValidation.hpp>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Random hierarchies of certificates with random faults.
namespace foundation::test {

/// Returns changes of a certificate that a validation notices.
std::vector<Mutation> const& certificateFaults();

/// All that a validation gets to see.
struct Hierarchy
{
    /// From the leaf to the root.
    std::vector<CertificateAndKey> members;
    std::vector<CertificateAndKey> chain;
    std::vector<CertificateAndKey> anchors;
    std::vector<CrlHandle> trustedCrls;
    /// By the path under which they are served.
    std::map<std::string, CrlHandle> served;
    Tolerances tolerances;
    certificates::CertificateValidationOptions::CheckCRL check =
        certificates::CertificateValidationOptions::CheckCRL::None;
    certificates::CertificateValidationOptions::DownloadCRL download =
        certificates::CertificateValidationOptions::DownloadCRL::None;
};

Hierarchy makeHierarchy(Dice& dice);

/// Returns the path under which the CRL of the certificate at that level is served.
std::string pathOfCrl(std::size_t level);

} // namespace foundation::test
