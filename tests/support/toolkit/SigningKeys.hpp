#pragma once

#include "support/pki/TestKeys.hpp"

#include <openssl/objects.h>

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

} // namespace foundation::test
