#pragma once

/// @file
/// The smallest RSA key that the library accepts. Certificates and PKCS#12 bundles refuse a smaller one with
/// the same text and with their own exceptions.

#include <openssl/evp.h>

#include <cstdint>

namespace foundation::certificates {

constexpr std::uint64_t minimumRSAKeySize = 1024; ///< bits of the modulus

/// Refuses a modulus of fewer bits.
/// @throws Exception "RSA key size does not meet minimum cryptographic requirements"
template <typename Exception>
void throwIfWeakRSAKey(std::uint64_t bits)
{
    if (bits < minimumRSAKeySize) {
        throw Exception("RSA key size does not meet minimum cryptographic requirements");
    }
}

/// Whether it is certain, without reading the key's numbers, that the library accepts the key. False for
/// null.
inline bool isStrongRSAKey(EVP_PKEY const* key)
{
    return key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA &&
           EVP_PKEY_get_bits(key) >= static_cast<int>(minimumRSAKeySize);
}

} // namespace foundation::certificates
