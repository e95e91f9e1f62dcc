#pragma once

#include "support/DerElements.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/Signing.hpp"

/// Valid signatures for mutated CRLs.
namespace foundation::fuzz {

/// Returns the signed part of the CRL with a new, valid signature. Returns bytes without a nested element
/// unchanged.
inline Bytes crlInNewEnvelope(Bytes const& crl, test::KeyHandle const& key)
{
    static Bytes const ecdsaWithSha256 = {0x30, 0x0A, 0x06, 0x08, 0x2A, 0x86,
                                          0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
    auto const whole = firstElementIn(crl.data(), crl.size());
    auto const* const content = crl.data() + (whole ? whole->headerSize : 0);
    auto const inner = whole ? firstElementIn(content, whole->contentSize) : std::nullopt;
    if (!inner) {
        return crl;
    }
    Bytes const signedPart(content, content + inner->size());
    auto const signature = test::signatureOf(signedPart, test::startSigning(key, EVP_sha256()));
    auto const bits = test::derElement(test::bitStringTag, test::joined({{0}, signature}));
    return test::derElement(test::sequenceTag, test::joined({signedPart, ecdsaWithSha256, bits}));
}

} // namespace foundation::fuzz
