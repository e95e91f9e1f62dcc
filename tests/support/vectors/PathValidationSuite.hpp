#pragma once

#include "support/openssl/Handles.hpp"

#include <ctime>
#include <string>
#include <vector>

/// NIST's Public Key Interoperability Test Suite (PKITS): 224 certification paths, each with the verdict of a
/// validation by RFC 3280.
namespace foundation::test::pkits {

enum class Verdict
{
    Valid,
    Invalid
};

/// The suite covers the years 2010 to 2030.
constexpr std::time_t aMomentOfValidity = 1577880000; // 2020-01-01 12:00:00 UTC

/// One of the suite's tests. Certificates and CRLs have the names of their files, without extension.
struct Case
{
    /// The section of the suite's description.
    std::string number;
    /// The name of its signed message.
    std::string name;
    /// With the suite's default settings: any policy is accepted, none is required.
    Verdict verdict;
    /// From the certificate below the trust anchor down to the end entity.
    std::vector<std::string> path;
    /// In addition to the CRL of the trust anchor.
    std::vector<std::string> crls;
    /// The certificate of a CRL issuer that is not on the path; may be empty.
    std::string crlIssuer = {};
};

std::vector<Case> const& cases();

/// Whether the certificates have DSA keys, which the library refuses.
bool hasDsaKeys(Case const& test);
/// Returns all other cases.
std::vector<Case> casesWithoutDsaKeys();

/// Returns the certificate as bare OpenSSL parses it.
X509Handle certificate(std::string const& name);
X509Handle trustAnchor();
CrlHandle crl(std::string const& name);

X509Handle endEntityOf(Case const& test);
/// Returns the certificates between, from the end entity's issuer up to the one below the trust anchor.
std::vector<X509Handle> intermediatesOf(Case const& test);
/// Returns the case's CRLs, beginning with the trust anchor's CRL.
std::vector<CrlHandle> crlsOf(Case const& test);

/// Signed data with detached content.
struct Message
{
    Pkcs7Handle signedData;
    Bytes content;
};

/// Returns the test's S/MIME message. The end entity signed it, and it holds the path and the CRLs.
Message messageOf(Case const& test);

} // namespace foundation::test::pkits
