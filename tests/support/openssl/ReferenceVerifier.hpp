#pragma once

#include "support/openssl/Handles.hpp"

#include <openssl/x509_vfy.h>

#include <ctime>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

/// Verification of a certificate with the bare OpenSSL API, as the reference for the library's own.
namespace foundation::test {

/// Which failures a verification ignores.
struct Tolerances
{
    bool selfSigned = false;
    bool expired = false;
    bool revoked = false;
};

std::ostream& operator<<(std::ostream& out, Tolerances const& tolerances);

/// Returns the tolerance of all three failures.
Tolerances everyTolerance();
/// Returns all eight combinations.
std::vector<Tolerances> allTolerances();

struct ReferenceOutcome
{
    /// The result of `X509_verify_cert`: 1 for success.
    int result = -1;
    int code = X509_V_OK;
    int depth = 0;
    /// The subject of the certificate that the verification looked at last.
    std::string subject;
    /// Leaf first; empty unless the verification succeeded.
    std::vector<X509Handle> chain;
};

/// The input of a verification. The defaults are the flags and tolerances that the library uses by default.
struct ReferenceVerifier
{
    X509Handle leaf;
    std::vector<X509Handle> untrusted;
    std::vector<X509Handle> trusted;
    std::vector<CrlHandle> crls;
    unsigned long flags = X509_V_FLAG_ALLOW_PROXY_CERTS | X509_V_FLAG_X509_STRICT |
                          X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;
    Tolerances tolerances;
    /// The present if not given.
    std::optional<std::time_t> time;

    ReferenceOutcome verify() const;
};

/// Returns the subject in the format of RFC 2253.
std::string subjectOf(X509 const* certificate);

} // namespace foundation::test
