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

/// An entry for the certificate's own serial number.
RevokedEntry revoke(CertificateAndKey const& certificate);
RevokedEntry revoke(CertificateAndKey const& certificate, TimeSpec const& date);

struct CrlSpec
{
    CertificateAndKey issuer;
    /// Instead of the issuer's subject.
    std::optional<Name> issuerName;
    /// Instead of the issuer's key: the CRL is signed by a stranger.
    KeyHandle signingKey;
    TimeSpec thisUpdate = TimeSpec::fromNow(std::chrono::hours(-1));
    /// Absent: the CRL names no next update.
    std::optional<TimeSpec> nextUpdate = TimeSpec::fromNow(std::chrono::hours(24 * 30));
    /// In the order of encoding. A hundred thousand of them are a matter of a second.
    std::vector<RevokedEntry> revoked;
    /// As encoded: 0 is version 1, 1 is version 2.
    long version = X509_CRL_VERSION_2;
    /// Beside the authority key identifier and the CRL number, which every version 2 CRL gets unless cleared.
    std::vector<ExtensionSpec> extensions;
    EVP_MD const* digest = EVP_sha256();
    bool damagedSignature = false;
};

CrlSpec crlSpec(CertificateAndKey const& issuer);
CrlHandle make(CrlSpec const& spec);

/// A good CRL of the issuer with the given entries, after the mutation.
CrlHandle makeCrl(
    CertificateAndKey const& issuer, std::vector<RevokedEntry> revoked = {},
    std::function<void(CrlSpec&)> const& mutate = {});

Bytes toDer(CrlHandle const& crl);
std::string toPem(CrlHandle const& crl);

} // namespace foundation::test
