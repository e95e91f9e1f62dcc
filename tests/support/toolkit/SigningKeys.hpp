#pragma once

#include "support/Text.hpp"
#include "support/openssl/Encoding.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/objects.h>
#include <openssl/pem.h>

#include <algorithm>
#include <string>
#include <vector>

namespace foundation::test {

/// A key, and the signature algorithm that the toolkit uses with it.
struct SigningKey
{
    std::string name;
    KeyHandle key;
    int signature = NID_undef;
};

/// Returns a key of each kind that signs requests and certificates.
inline std::vector<SigningKey> signingKeys()
{
    return {{"RSA", rsaKey(), NID_sha256WithRSAEncryption}, {"P-256", p256Key(), NID_ecdsa_with_SHA256},
            {"P-384", p384Key(), NID_ecdsa_with_SHA384},    {"P-521", p521Key(), NID_ecdsa_with_SHA512},
            {"Ed25519", ed25519Key(), NID_ED25519},         {"Ed448", ed448Key(), NID_ED448},
            {"RSA-PSS", rsaPssKey(), NID_rsassaPss}};
}

/// Returns PEM text of a damaged private key: it has the public half of another key. What it signs, its
/// public half does not verify.
inline std::string damagedKeyPem()
{
    constexpr std::ptrdiff_t pointSize = 65;
    auto const own = publicKeyDer(p256Key("own half"));
    auto const other = publicKeyDer(p256Key("other half"));
    auto der = privateKeyDer(p256Key("own half"));
    auto const point = std::search(der.begin(), der.end(), own.end() - pointSize, own.end());
    std::copy(other.end() - pointSize, other.end(), point);
    return asText(writtenBy(PEM_write_bio, "PRIVATE KEY", "", der.data(), static_cast<long>(der.size())));
}

} // namespace foundation::test
