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

/// The length of an RSA modulus. Each value is the number of bits.
enum class RSAPrivateKeySize : std::uint32_t
{
    Bits1024 = 1024, ///< the smallest size that the library accepts; too weak for lasting use
    Bits2048 = 2048, ///< the default
    Bits3072 = 3072, ///< about as strong as prime256v1
    Bits4096 = 4096, ///< slower, with a wider margin
    Bits8192 = 8192  ///< key generation takes a minute or more
};

/// Builds self-signed certificates, each with a new RSA key.
///
/// Set what differs from the defaults, then build:
///
///     auto [certificate, privateKey] = SelfSignedCertBuilder()
///                                          .withCommonName("build.example")
///                                          .withValidityPeriod(30)
///                                          .withPrivateKeyPassphrase(passphrase)
///                                          .build();
///
/// By default the certificate is for "localhost" and its loopback addresses, is valid for 365 days from now,
/// and has a key of 2048 bits. Every certificate is an X.509 v3 CA certificate, and may also serve as a
/// server, a client and a code-signing certificate. It is signed with RSASSA-PSS over SHA-512 with the
/// longest salt that the key allows.
///
/// Subject and issuer consist of the common name and fixed values: C=US, ST=Ostravale, L=Bexhollow,
/// O="Corvane, Inc.", OU="Corvane, Inc." The extensions are, in this order: subject alternative names, basic
/// constraints (critical), key usage (critical) and extended key usage (critical). There are no key
/// identifiers: a chain below such a certificate fails OpenSSL's strict checks.
///
/// A builder is a plain value without a lock, for one thread at a time. It can build more than once. Building
/// does not change it. Each build creates a new key and, unless one is set, a new serial number. Only the
/// validity period is checked when it is set. Any other setting that OpenSSL cannot use makes the build fail.
class FOUNDATION_CERTIFICATES_EXPORT SelfSignedCertBuilder
{
public:
    /// Creates a builder without settings.
    SelfSignedCertBuilder();
    /// Copies the settings.
    SelfSignedCertBuilder(SelfSignedCertBuilder const& other);
    /// Moves the settings. The source may only be assigned to or destroyed.
    SelfSignedCertBuilder(SelfSignedCertBuilder&& other) noexcept;
    ~SelfSignedCertBuilder();

    /// Replaces all settings with those of the source.
    SelfSignedCertBuilder& operator=(SelfSignedCertBuilder const& other);
    /// Moves the settings. The source may only be assigned to or destroyed.
    SelfSignedCertBuilder& operator=(SelfSignedCertBuilder&& other) noexcept;

    // Each setter replaces the earlier value; nothing accumulates.

    /// Sets the size of the RSA key; 2048 bits by default.
    SelfSignedCertBuilder& withPrivateKeySize(RSAPrivateKeySize size);
    /// Sets the passphrase that encrypts the private key; by default the key is not encrypted. An empty
    /// passphrase counts as a passphrase. The passphrase ends at its first NUL character. For PEM text only
    /// its first 1024 bytes count (`PEM_BUFSIZE`).
    SelfSignedCertBuilder& withPrivateKeyPassphrase(std::string passphrase);
    /// Sets the subject's common name, in UTF-8; "localhost" by default. It is also an alternative name of
    /// type DNS. Exactly "localhost" adds the loopback addresses as alternative names. Write an international
    /// domain name in punycode.
    ///
    /// X.509 allows 1 to 64 characters in a common name. A longer one becomes an alternative name only, and
    /// the subject has no common name. The build fails if the name holds a comma, a line end or a NUL, so
    /// that a name cannot add alternative names. It also fails if OpenSSL cannot use the name as the value of
    /// an alternative name.
    SelfSignedCertBuilder& withCommonName(std::string name);
    /// Sets further alternative names, each with its type, in OpenSSL's extension syntax:
    /// "DNS:build.example", "IP:192.0.2.1".
    ///
    /// The entries reach OpenSSL unchanged. In its syntax a comma starts another name, and a line end or a
    /// NUL ends the list. Check an entry that comes from a user before you pass it.
    SelfSignedCertBuilder& withAdditionalSubjectAltNames(std::set<std::string> names);
    /// Sets the lifetime in days, 1 to 397; 365 by default. A failure keeps the earlier value.
    /// @throws X509CertificateException "Certificate validity period must be within the range of 1
    ///     and 397 days."
    SelfSignedCertBuilder& withValidityPeriod(std::uint32_t days);
    /// Shifts the start of validity by days from now, into the past if negative; 0 by default.
    ///
    /// Start and end of validity can be at most 24,855 days (68 years) from now in either direction. Beyond
    /// that the build fails.
    SelfSignedCertBuilder& withValidityPeriodOffset(std::int32_t days);
    /// Sets the serial number; 64 random bits by default.
    SelfSignedCertBuilder& withSerialNumber(std::uint64_t number);
    /// Sets key usages in addition to the defaults: digitalSignature, keyCertSign and cRLSign.
    SelfSignedCertBuilder& withAdditionalKeyUsage(std::set<X509Certificate::KeyUsage> usages);
    /// Sets extended key usages in addition to the defaults: serverAuth, clientAuth and codeSigning. Each is
    /// a name or a dotted OID in OpenSSL's extension syntax. The entry "critical" has no effect: the
    /// extension is always critical.
    SelfSignedCertBuilder& withAdditionalExtendedKeyUsage(std::set<std::string> usages);

    /// Resets all settings to the defaults except the offset of the validity period.
    void resetToDefaults();

    /// Returns the certificate, and its private key as PKCS#8 PEM text. The key is encrypted with three-key
    /// 3DES if a passphrase is set. Generating the key takes most of the time.
    /// @throws std::runtime_error (not a class of the library's family) "Failed to generate a certificate: "
    ///     and the code of the oldest entry in OpenSSL's error queue, in decimal; 0 if the queue is empty. An
    ///     entry from an earlier call is reported too, because the queue is not cleared first
    /// @throws X509CertificateException if the new certificate cannot be loaded: "RSA key size does not meet
    ///     minimum cryptographic requirements" for a key below 1024 bits
    std::pair<X509Certificate, std::string> build() const;
    /// Returns the certificate, and a PKCS#12 bundle in DER form that holds only the private key. The common
    /// name is the key's friendly name. Without a passphrase the bundle is protected with none, and
    /// PKCS12Certificate does not open it.
    /// @throws std::runtime_error, X509CertificateException as build() does, also for a common name that is
    ///     not UTF-8 or has characters beyond the basic multilingual plane: no friendly name can hold those
    std::pair<X509Certificate, ByteArray> buildAndGetKeyBytesInPKCS12() const;

private:
    struct KeyAndCertificate;

    KeyAndCertificate synthesize() const;
    std::string effectiveCommonName() const;

    // These return the values of the extensions, in OpenSSL's extension syntax.
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
