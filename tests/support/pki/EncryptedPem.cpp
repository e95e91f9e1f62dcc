#include "support/pki/EncryptedPem.hpp"

#include "support/Text.hpp"

#include <openssl/pem.h>

namespace foundation::test {

namespace {

template <class Object>
std::string encrypted(int (*encode)(Object const*, unsigned char**), char const* label, Object* object)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    std::string passphrase = "secret";
    require(PEM_ASN1_write_bio(
        reinterpret_cast<i2d_of_void*>(encode), label, bio.get(), object, EVP_aes_128_cbc(),
        reinterpret_cast<unsigned char*>(passphrase.data()), static_cast<int>(passphrase.size()), nullptr,
        nullptr));
    return asText(contentOf(bio));
}

} // namespace

std::string toEncryptedPem(X509Handle const& certificate)
{
    return encrypted(i2d_X509, PEM_STRING_X509, certificate.get());
}

std::string toEncryptedPem(Pkcs7Handle const& pkcs7)
{
    return encrypted(i2d_PKCS7, PEM_STRING_PKCS7, pkcs7.get());
}

} // namespace foundation::test
