#pragma once

/// @file
/// Private keys as text that is wiped. The text is PKCS#8 in PEM form, which OpenSSL and most servers read.
/// The functions leave OpenSSL's error queue as it was, but for OpenSSL 4.0: its own code for passphrases
/// (PBES2) removes earlier entries.

#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/toolkit/export.hpp>

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace foundation::toolkit {

/// A secret text, such as a private key. It can be moved and not copied, so that there is one copy in memory.
/// The destructor and an assignment overwrite the text with zeros before they release its memory.
///
/// There is no stream output, and no conversion to a string: a secret does not get into a log by mistake.
/// A moved-from object is empty. Any number of threads may read one object at the same time.
class FOUNDATION_TOOLKIT_EXPORT SecretString
{
public:
    /// Copies the text. The caller's copy stays as it is.
    explicit SecretString(std::string_view text);
    /// Takes the source's memory, so that no second copy of the text exists. The source is empty afterwards.
    SecretString(SecretString&& other) noexcept;
    /// Wipes this object's text, then takes the source's memory. The source is empty afterwards.
    SecretString& operator=(SecretString&& other) noexcept;
    SecretString(SecretString const&) = delete;
    SecretString& operator=(SecretString const&) = delete;
    ~SecretString();

    /// Returns the text. The view is valid as long as this object keeps its text. A copy of the view's
    /// characters is not wiped.
    std::string_view view() const noexcept;

private:
    void wipe() noexcept;

    std::unique_ptr<char[]> characters;
    std::size_t size = 0;
};

/// Not available: a secret is not written to a stream.
std::ostream& operator<<(std::ostream& out, SecretString const& secret) = delete;

/// Returns the bundle's private key as unencrypted PKCS#8 PEM text ("BEGIN PRIVATE KEY"). The bundle keeps
/// no passphrase, so it is opened once more.
/// @param bundle the bundle with the key
/// @param passphrase the passphrase that opens the bundle
/// @throws IncorrectPassphrase "Input passphrase is incorrect."
/// @throws InvalidArgument "The bundle has no content.", "The bundle holds no private key."
/// @throws PKCS12CertificateException "The bundle could not be decrypted."; as PKCS12Certificate::getAsBytes
///     does
FOUNDATION_TOOLKIT_EXPORT SecretString
privateKeyAsPEM(certificates::PKCS12Certificate const& bundle, std::string const& passphrase);

/// Returns the bundle's private key as encrypted PKCS#8 PEM text ("BEGIN ENCRYPTED PRIVATE KEY"): PBES2 with
/// AES-256 in CBC mode, and PBKDF2 with HMAC-SHA-256, a random salt of 128 bits and 600,000 rounds. The
/// rounds take about a quarter of a second.
/// @param bundle the bundle with the key
/// @param passphrase the passphrase that opens the bundle
/// @param newPassphrase the passphrase that encrypts the result: 1 to 1024 bytes, the most that OpenSSL's
///     readers accept
/// @throws InvalidArgument also "The new passphrase is empty.", "The new passphrase is longer than 1024
///     bytes."
/// @throws IncorrectPassphrase, PKCS12CertificateException, CertificateException as the function above
FOUNDATION_TOOLKIT_EXPORT SecretString privateKeyAsPEM(
    certificates::PKCS12Certificate const& bundle, std::string const& passphrase,
    SecretString const& newPassphrase);

} // namespace foundation::toolkit
