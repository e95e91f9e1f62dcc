#include <foundation/toolkit/PrivateKeys.hpp>

#include "IssuanceHandles.hpp"
#include "KeyTexts.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/crypto.h>

#include <algorithm>
#include <utility>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

/// The longest passphrase that OpenSSL's PEM readers accept (`PEM_BUFSIZE`).
constexpr std::size_t longestPassphrase = 1024;

constexpr char const notDecryptedText[] = "The bundle could not be decrypted.";

PKCS12UPtr parsed(ByteArray const& bytes)
{
    auto bundle = makePKCS12(nullptr);
    auto const parse = [&] {
        auto const* position = bytes.data();
        bundle = makePKCS12(d2i_PKCS12(nullptr, &position, static_cast<long>(bytes.size())));
        return bundle != nullptr;
    };
    throwIfLacksMemoryFor<PKCS12CertificateException>(parse, notDecryptedText);
    throwIfNull<PKCS12CertificateException>(bundle.get(), notDecryptedText);
    return bundle;
}

void requirePassphrase(PKCS12* bundle, std::string const& passphrase)
{
    bool matches = false;
    auto const verify = [&] {
        matches = fitsInInt(passphrase.size()) &&
                  PKCS12_verify_mac(bundle, passphrase.c_str(), static_cast<int>(passphrase.size())) == 1;
        return matches;
    };
    throwIfLacksMemoryFor<PKCS12CertificateException>(verify, notDecryptedText);
    if (!matches) {
        throw IncorrectPassphrase("Input passphrase is incorrect.");
    }
}

EVP_PKEYUPtr privateKeyOf(PKCS12Certificate const& bundle, std::string const& passphrase)
{
    auto const bytes = bundle.getAsBytes();
    if (bytes.empty()) {
        throw InvalidArgument("The bundle has no content.");
    }
    auto const structure = parsed(bytes);
    requirePassphrase(structure.get(), passphrase);
    EVP_PKEY* pointer = nullptr;
    int const result = PKCS12_parse(structure.get(), passphrase.c_str(), &pointer, nullptr, nullptr);
    auto key = makeEVP_PKEY(pointer);
    throwIfNotOne<PKCS12CertificateException>(result, notDecryptedText);
    throwIfNull<InvalidArgument>(key.get(), "The bundle holds no private key.");
    return key;
}

} // namespace

SecretString::SecretString(std::string_view text)
    : characters(text.empty() ? nullptr : std::make_unique<char[]>(text.size())),
      size(text.size())
{
    std::copy(text.begin(), text.end(), characters.get());
}

SecretString::SecretString(SecretString&& other) noexcept
    : characters(std::move(other.characters)),
      size(std::exchange(other.size, 0))
{}

SecretString& SecretString::operator=(SecretString&& other) noexcept
{
    if (this != &other) {
        wipe();
        characters = std::move(other.characters);
        size = std::exchange(other.size, 0);
    }
    return *this;
}

SecretString::~SecretString()
{
    wipe();
}

std::string_view SecretString::view() const noexcept
{
    return {characters.get(), size};
}

void SecretString::wipe() noexcept
{
    if (characters != nullptr) {
        OPENSSL_cleanse(characters.get(), size); // a compiler does not remove this call, unlike std::fill
    }
}

SecretString privateKeyAsPEM(PKCS12Certificate const& bundle, std::string const& passphrase)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return privateKeyToPEM(privateKeyOf(bundle, passphrase).get());
}

SecretString privateKeyAsPEM(
    PKCS12Certificate const& bundle, std::string const& passphrase, SecretString const& newPassphrase)
{
    if (newPassphrase.view().empty()) {
        throw InvalidArgument("The new passphrase is empty.");
    }
    if (newPassphrase.view().size() > longestPassphrase) {
        throw InvalidArgument("The new passphrase is longer than 1024 bytes.");
    }
    RAIIOpenSSLErrorRemover const errors(false);
    return privateKeyToPEM(privateKeyOf(bundle, passphrase).get(), &newPassphrase);
}

} // namespace foundation::toolkit
