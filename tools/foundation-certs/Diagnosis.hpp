#pragma once

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <string>
#include <vector>

namespace foundation::tools {

/// One fault of a server's chain.
struct Finding
{
    toolkit::Explanation explanation;
    /// Facts that help to mend the fault, one line each.
    std::vector<std::string> details;
};

struct Diagnosis
{
    /// The server's certificate and its issuers, as far as they are known.
    std::vector<toolkit::Certificate> chain;
    /// In the order in which they were found. Empty if TLS clients accept the chain.
    std::vector<Finding> findings;
};

/// Returns all faults of the chain that a TLS server sends. A validation stops at its first fault. So this
/// tolerates each fault that it finds and validates again.
///
/// @param given the server's certificate, then its intermediates; not empty
/// @param roots the trusted roots
/// @param options the host or address that the server must be; the rest is set as TLS clients do. OpenSSL's
///     security level is 2, the default of current systems
/// @throws InvalidArgument as PathValidator::validate does for a host or address
Diagnosis diagnose(
    std::vector<toolkit::Certificate> const& given, toolkit::PathValidator const& roots,
    toolkit::PathOptions options);

} // namespace foundation::tools
