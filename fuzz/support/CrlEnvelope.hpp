#pragma once

#include "support/DerElements.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/Signing.hpp"

/// A signature that is good, whatever it is that was signed.
namespace foundation::fuzz {

/// What is signed in the CRL, under a new signature. Bytes that hold no element within an element stay as
/// they are.
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
