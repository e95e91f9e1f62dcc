#include "KeyTexts.hpp"

#include "IssuanceHandles.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/NoPassphrase.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/pem.h>
#include <openssl/rand.h>

#include <array>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr int keyDerivationRounds = 600000;
constexpr int saltSize = 16;

constexpr char const notWrittenText[] = "Internal error: The private key could not be written.";

template <typename T>
T* written(T* pointer)
{
    return throwIfNull<CertificateException>(pointer, notWrittenText);
}

void requireWritten(int result)
{
    throwIfNotOne<CertificateException>(result, notWrittenText);
}

OpenSSLHandle<X509_SIG> encrypted(PKCS8_PRIV_KEY_INFO* key, std::string_view passphrase)
{
    std::array<unsigned char, saltSize> salt{};
    requireWritten(RAND_bytes(salt.data(), saltSize));
    // A digest in place of an algorithm selects PBES2 with PBKDF2 and that digest.
    return makeX509_SIG(written(PKCS8_encrypt(
        NID_hmacWithSHA256, EVP_aes_256_cbc(), passphrase.data(), static_cast<int>(passphrase.size()),
        salt.data(), saltSize, keyDerivationRounds, key)));
}

} // namespace

bool hasSize(EVP_PKEY const* key)
{
    return key != nullptr && EVP_PKEY_get_bits(key) > 0;
}

EVP_PKEYUPtr privateKeyFromPEM(SecretString const& text)
{
    auto key = makeEVP_PKEY(nullptr);
    auto const read = [&] {
        // The BIO reads the caller's memory, so that no copy has to be wiped.
        auto const bio = makeBIO(BIO_new_mem_buf(text.view().data(), static_cast<int>(text.view().size())));
        key = makeEVP_PKEY(
            bio == nullptr ? nullptr
                           : PEM_read_bio_PrivateKey(bio.get(), nullptr, refusePassphrase, nullptr));
        return hasSize(key.get());
    };
    bool const isText = !text.view().empty() && fitsInInt(text.view().size());
    if (isText) {
        throwIfLacksMemoryFor<CertificateException>(
            read, "Internal error: The private key could not be read.");
    }
    throwIfNull<InvalidArgument>(
        key.get(), "The text holds no private key that can be read without a passphrase.");
    return key;
}

SecretString privateKeyToPEM(EVP_PKEY* key, SecretString const* passphrase)
{
    auto const structure = makePKCS8_PRIV_KEY_INFO(written(EVP_PKEY2PKCS8(key)));
    // OpenSSL wipes the memory of such a BIO when the BIO grows and when it is released.
    auto const bio = makeMemoryBIO();
    written(bio.get());
    if (passphrase == nullptr) {
        requireWritten(PEM_write_bio_PKCS8_PRIV_KEY_INFO(bio.get(), structure.get()));
    } else {
        requireWritten(PEM_write_bio_PKCS8(bio.get(), encrypted(structure.get(), passphrase->view()).get()));
    }
    char* characters = nullptr; // owned by the BIO
    auto const size = BIO_get_mem_data(bio.get(), &characters);
    return SecretString(std::string_view(characters, static_cast<std::size_t>(size)));
}

} // namespace foundation::toolkit
