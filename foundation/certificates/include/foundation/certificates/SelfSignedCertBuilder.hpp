#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/export.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

struct asn1_string_st;

namespace foundation::certificates {

/// The length of an RSA modulus; each value is the number of bits.
enum class RSAPrivateKeySize : std::uint32_t
{
    Bits1024 = 1024, ///< the smallest that the library accepts; broken for anything that must last
    Bits2048 = 2048, ///< the default
    Bits3072 = 3072, ///< about as strong as prime256v1
    Bits4096 = 4096, ///< slower, with a wider margin
    Bits8192 = 8192  ///< takes a minute or more to make
};

/// Makes self-signed certificates, each with a fresh RSA key.
///
/// Set what differs from the defaults, then build:
///
///     auto [certificate, privateKey] = SelfSignedCertBuilder()
///                                          .withCommonName("build.example")
///                                          .withValidityPeriod(30)
///                                          .withPrivateKeyPassphrase(passphrase)
///                                          .build();
///
/// With no settings the certificate is for "localhost" and its loopback addresses, valid for 365 days from
/// now, has a key of 2048 bits, and may serve as a server, a client, a code-signing certificate and its own
/// CA. It is X.509 v3, signed with RSASSA-PSS over SHA-512 with the longest salt that the key allows. Its
/// subject and issuer are the common name, and fixed attributes for country, state, locality, organisation
/// and unit. Its extensions are, in this order: subject alternative names, basic constraints (critical, a
/// CA), key usage (critical) and extended key usage (critical).
///
/// A builder is a plain value without a lock, for one thread at a time. Building changes nothing in it: it
/// can be used again, and each build has a new key and, unless one was set, a new serial number. Settings
/// are not validated when they are set, except for the validity period; a setting that OpenSSL cannot use
/// makes the build fail.
class FOUNDATION_CERTIFICATES_EXPORT SelfSignedCertBuilder
{
public:
    /// A builder without settings.
    SelfSignedCertBuilder();
    /// A builder with the same settings.
    SelfSignedCertBuilder(SelfSignedCertBuilder const& other);
    /// Takes over the settings. The source is fit for assignment and destruction, and for nothing else.
    SelfSignedCertBuilder(SelfSignedCertBuilder&& other) noexcept;
    ~SelfSignedCertBuilder();

    /// Replaces all settings by those of the source.
    SelfSignedCertBuilder& operator=(SelfSignedCertBuilder const& other);
    /// Takes over the settings, and leaves the source as the moving constructor does.
    SelfSignedCertBuilder& operator=(SelfSignedCertBuilder&& other) noexcept;

    // Each setter replaces the value that was set before; nothing accumulates.

    /// The size of the RSA key; 2048 bits by default.
    SelfSignedCertBuilder& withPrivateKeySize(RSAPrivateKeySize size);
    /// Encrypts the private key that a build hands out; by default it is not encrypted. An empty passphrase
    /// is one as well. It ends at its first NUL character; for PEM text, only its first 1024 bytes count
    /// (`PEM_BUFSIZE`).
    SelfSignedCertBuilder& withPrivateKeyPassphrase(std::string passphrase);
    /// The subject's common name, in UTF-8, and the first alternative name, of the DNS type; "localhost" by
    /// default. Exactly that name gets the loopback addresses as further alternative names.
    ///
    /// X.509 allows 1 to 64 characters in a common name. A longer one becomes an alternative name only, and
    /// the subject has no common name. The build fails if the name holds a comma, a line end or a NUL, so
    /// that a name cannot add alternative names. It also fails if OpenSSL cannot use the name as the value of
    /// an alternative name.
    SelfSignedCertBuilder& withCommonName(std::string name);
    /// Adds alternative names, each with its type, in OpenSSL's extension syntax: "DNS:build.example",
    /// "IP:192.0.2.1".
    ///
    /// The entries reach OpenSSL unchanged. In its syntax a comma starts another name, and a line end or a
    /// NUL ends the list. An entry from a user must be checked before it is passed in.
    SelfSignedCertBuilder& withAdditionalSubjectAltNames(std::set<std::string> names);
    /// The lifetime in days, 1 to 397; 365 by default. The value set before stays after a failure.
    /// @throws X509CertificateException "Certificate validity period must be within the range of 1
    ///     and 397 days."
    SelfSignedCertBuilder& withValidityPeriod(std::uint32_t days);
    /// Shifts the start of validity by days from now; a negative number lies in the past. 0 by default.
    ///
    /// The start, and the end of validity that follows from it, can lie at most 24,855 days (68 years) from
    /// now in either direction; what lies beyond makes the build fail.
    SelfSignedCertBuilder& withValidityPeriodOffset(std::int32_t days);
    /// The serial number; 64 random bits by default.
    SelfSignedCertBuilder& withSerialNumber(std::uint64_t number);
    /// Key usages beside the default ones: digitalSignature, keyCertSign and cRLSign.
    SelfSignedCertBuilder& withAdditionalKeyUsage(std::set<X509Certificate::KeyUsage> usages);
    /// Extended key usages beside the default ones, serverAuth, clientAuth and codeSigning: names or
    /// dotted OIDs, as OpenSSL's extension syntax has them. "critical" among them has no effect, the
    /// extension always is.
    SelfSignedCertBuilder& withAdditionalExtendedKeyUsage(std::set<std::string> usages);

    /// Returns to the defaults, but keeps the validity period's offset: only
    /// withValidityPeriodOffset changes that.
    void resetToDefaults();

    /// The certificate, and its private key as PKCS#8 PEM text, encrypted with three-key 3DES if a
    /// passphrase is set. Most of the time goes into making the key.
    /// @throws std::runtime_error (no class of the library's family) "Failed to generate a certificate: "
    ///     and the code of the oldest entry in OpenSSL's error queue, in decimal; 0 if the queue is empty.
    ///     The queue is not cleared first, so an entry that was there before is what is named
    /// @throws X509CertificateException if the certificate that was made cannot be loaded: "RSA key size
    ///     does not meet minimum cryptographic requirements" for a key below 1024 bits
    std::pair<X509Certificate, std::string> build() const;
    /// The certificate, and a PKCS#12 bundle in DER form that holds the private key only, with the common
    /// name as its friendly name. Without a passphrase the bundle is protected with none at all, which
    /// PKCS12Certificate does not open. Fails as build() does, and for a common name that is no UTF-8 or has
    /// characters beyond the basic multilingual plane: no friendly name holds those.
    std::pair<X509Certificate, ByteArray> buildAndGetKeyBytesInPKCS12() const;

private:
    struct KeyAndCertificate;

    KeyAndCertificate synthesize() const;
    std::string effectiveCommonName() const;

    // The extensions' values, in OpenSSL's extension syntax.
    std::string makeBasicConstraints() const;
    std::string makeKeyUsage() const;
    std::string makeExtendedKeyUsage() const;
    std::string makeSubjectAlternativeName(std::string const& commonName) const;
    std::unique_ptr<asn1_string_st, void (*)(asn1_string_st*)> makeSerialNumber() const;

    std::optional<RSAPrivateKeySize> privateKeySize;
    std::optional<std::string> privateKeyPassphrase;
    std::optional<std::string> commonName;
    std::optional<std::set<std::string>> additionalSubjectAltNames;
    std::optional<std::uint32_t> validityPeriod;
    std::optional<std::int32_t> validityPeriodOffset;
    std::optional<std::uint64_t> serialNumber;
    std::optional<std::set<X509Certificate::KeyUsage>> additionalKeyUsage;
    std::optional<std::set<std::string>> additionalExtendedKeyUsage;
};

} // namespace foundation::certificates
