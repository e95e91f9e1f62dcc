#pragma once

#include "support/DerElements.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/Der.hpp"

/// A signature that is good, whatever it is that was signed.
namespace foundation::fuzz {

/// The signature of the bytes under a P-256 key: ECDSA with SHA-256.
inline Bytes signatureOf(Bytes const& bytes, test::KeyHandle const& key)
{
    auto const context = test::own(EVP_MD_CTX_new());
    test::require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()));
    std::size_t size = 0;
    test::require(EVP_DigestSign(context.get(), nullptr, &size, bytes.data(), bytes.size()));
    Bytes signature(size);
    test::require(EVP_DigestSign(context.get(), signature.data(), &size, bytes.data(), bytes.size()));
    signature.resize(size);
    return signature;
}

/// What is signed in the CRL, under a new signature. Bytes that hold no element within an element stay as
/// they are.
inline Bytes crlInNewEnvelope(Bytes const& crl, test::KeyHandle const& key)
{
    constexpr int sequenceTag = 0x30;
    constexpr int bitStringTag = 0x03;
    static Bytes const ecdsaWithSha256 = {0x30, 0x0A, 0x06, 0x08, 0x2A, 0x86,
                                          0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
    auto const whole = firstElementIn(crl.data(), crl.size());
    auto const* const content = crl.data() + (whole ? whole->headerSize : 0);
    auto const inner = whole ? firstElementIn(content, whole->contentSize) : std::nullopt;
    if (!inner) {
        return crl;
    }
    Bytes const signedPart(content, content + inner->size());
    auto const signature = test::derElement(bitStringTag, test::joined({{0}, signatureOf(signedPart, key)}));
    return test::derElement(sequenceTag, test::joined({signedPart, ecdsaWithSha256, signature}));
}

} // namespace foundation::fuzz
