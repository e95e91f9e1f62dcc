#pragma once

#include "support/openssl/Handles.hpp"

#include <map>
#include <string>
#include <vector>

namespace foundation::test {

/// What the validations of a group found out.
struct Verdicts
{
    int compared = 0;
    /// How often each verdict was given: a `CertificateChainStatus` by its number.
    std::map<int, int> counts;
    /// A line for each verdict that differs from that of bare OpenSSL.
    std::vector<std::string> differences;
};

/// Validates each certificate of the group against those that issued themselves, with all others as
/// intermediates. Compares the library with bare OpenSSL.
Verdicts compareVerdicts(std::vector<X509Handle> const& certificates, std::vector<CrlHandle> const& crls);

} // namespace foundation::test
