#pragma once

#include "support/openssl/Handles.hpp"
#include "support/pki/TestPki.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace foundation::test {

struct RevokedEntry
{
    /// Decimal, or hexadecimal after "0x"; may be negative.
    std::string serialNumber;
    TimeSpec date = TimeSpec::fromNow(std::chrono::hours(-2));
    /// A CRLReason such as CRL_REASON_KEY_COMPROMISE.
    std::optional<int> reason = std::nullopt;
};

/// Returns an entry for the certificate's serial number.
RevokedEntry revoke(CertificateAndKey const& certificate);
RevokedEntry revoke(CertificateAndKey const& certificate, TimeSpec const& date);

struct CrlSpec
{
    CertificateAndKey issuer;
    /// Replaces the issuer's subject.
    std::optional<Name> issuerName;
    /// Replaces the issuer's key, so that the signature does not fit the issuer.
    KeyHandle signingKey;
    TimeSpec thisUpdate = TimeSpec::fromNow(std::chrono::hours(-1));
    /// Without a value, the CRL has no nextUpdate field.
    std::optional<TimeSpec> nextUpdate = TimeSpec::fromNow(std::chrono::hours(24 * 30));
    /// In the order of encoding. A hundred thousand entries take about a second.
    std::vector<RevokedEntry> revoked;
    /// The encoded value: 0 means version 1, 1 means version 2.
    long version = X509_CRL_VERSION_2;
    /// `crlSpec` fills in the authority key identifier and the CRL number.
    std::vector<ExtensionSpec> extensions;
    EVP_MD const* digest = EVP_sha256();
    bool damagedSignature = false;
};

CrlSpec crlSpec(CertificateAndKey const& issuer);
CrlHandle make(CrlSpec const& spec);

/// Makes a valid CRL of the issuer with the given entries, changed by the mutation.
CrlHandle makeCrl(
    CertificateAndKey const& issuer, std::vector<RevokedEntry> revoked = {},
    std::function<void(CrlSpec&)> const& mutate = {});

Bytes toDer(CrlHandle const& crl);
std::string toPem(CrlHandle const& crl);

} // namespace foundation::test
