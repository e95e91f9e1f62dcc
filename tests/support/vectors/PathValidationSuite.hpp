#pragma once

#include "support/openssl/Handles.hpp"

#include <ctime>
#include <string>
#include <vector>

/// NIST's Public Key Interoperability Test Suite (PKITS): 224 certification paths, each with the verdict that
/// a validation by RFC 3280 comes to.
namespace foundation::test::pkits {

enum class Verdict
{
    Valid,
    Invalid
};

/// The suite is meant for the years from 2010 to 2030.
constexpr std::time_t aMomentOfValidity = 1577880000; // 2020-01-01 12:00:00 UTC

/// One of the suite's tests. Certificates and CRLs are named as their files are, without extension.
struct Case
{
    /// The section of the suite's description.
    std::string number;
    /// As its signed message is named.
    std::string name;
    /// With the settings that the suite calls default: any policy will do, none is required.
    Verdict verdict;
    /// From what the trust anchor issued down to the end entity.
    std::vector<std::string> path;
    /// Beside the trust anchor's own CRL.
    std::vector<std::string> crls;
    /// The certificate of one who issued a CRL and is not on the path; may be empty.
    std::string crlIssuer = {};
};

std::vector<Case> const& cases();

/// The certificates have DSA keys, which the library does not take.
bool hasDsaKeys(Case const& test);
/// All others.
std::vector<Case> casesWithoutDsaKeys();

/// Reads the certificate as bare OpenSSL reads it.
X509Handle certificate(std::string const& name);
X509Handle trustAnchor();
CrlHandle crl(std::string const& name);

X509Handle endEntityOf(Case const& test);
/// The certificates between, from the end entity's issuer up to what the trust anchor issued.
std::vector<X509Handle> intermediatesOf(Case const& test);
/// With the trust anchor's in front.
std::vector<CrlHandle> crlsOf(Case const& test);

/// Signed data whose content lies apart.
struct Message
{
    Pkcs7Handle signedData;
    Bytes content;
};

/// The test's S/MIME message, which the end entity signed and which carries the path and the CRLs.
Message messageOf(Case const& test);

} // namespace foundation::test::pkits
