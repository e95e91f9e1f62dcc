#pragma once

#include "support/openssl/Handles.hpp"
#include "support/operations/Operation.hpp"

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <string>
#include <vector>

/// @file
/// The table of the toolkit's operations: here, in IssuanceOperations.hpp and in SourceOperations.hpp. The
/// suites on allocation failure, threads and the error queue take their cases from here.
/// `ToolkitOperationTable` fails if an exported function has no row.

// Here, so that the templates of the table find them.
namespace foundation::toolkit {

std::string rendered(AlternativeName const& name);
/// The encoding.
std::string rendered(Certificate const& certificate);
std::string rendered(PathResult const& result);

} // namespace foundation::toolkit

namespace foundation::test {

/// Certificates that belong together: the leaf is valid under the root through the intermediate, whose key is
/// P-384. Their CRLs revoke nothing.
struct ToolkitMaterial
{
    Bytes leaf;
    Bytes intermediate;
    Bytes root;
    std::vector<Bytes> crls;
};

ToolkitMaterial const& toolkitMaterial();

std::vector<Operation<toolkit::Certificate>> const& toolkitCertificateOperations();
std::vector<Operation<toolkit::PathValidator>> const& pathValidatorOperations();
std::vector<Operation<toolkit::PathResult>> const& pathResultOperations();

/// What the toolkit throws when OpenSSL runs out of memory.
Failure toolkitOutOfMemory();

/// Renders an object whose operations change nothing.
inline std::string renderedValidator(toolkit::PathValidator const& /*validator*/)
{
    return "";
}

} // namespace foundation::test
