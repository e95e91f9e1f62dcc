#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/toolkit/export.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct x509_st;

/// A companion to foundation::certificates for programs that need certificates with any key, host names,
/// purposes, the chain that a validation built, TLS peers, whole folders of certificates and certificates of
/// their own. Failures belong to the exceptions of foundation::certificates.
namespace foundation::toolkit {

struct CertificateAccess;

/// One of a certificate's subject alternative names.
struct AlternativeName
{
    /// What kind of name it is.
    enum class Kind : int
    {
        DNS = 0,       ///< a host name, which may be a pattern such as `*.example.org`
        IPAddress = 1, ///< an IPv4 or IPv6 address
        Email = 2,     ///< a mail address
        URI = 3,       ///< a uniform resource identifier
        Other = 4      ///< any other kind, and an address that is neither 4 nor 16 bytes long
    };

    /// What kind of name it is.
    Kind kind = Kind::DNS;
    /// The name. An IP address is written as `inet_ntop` writes it: "192.0.2.1", "2001:db8::1". Other is
    /// written as `GENERAL_NAME_print` writes it, with its prefix: "Registered ID:1.2.3.4". All others are
    /// the bytes of the certificate, unchanged, and may contain a NUL character.
    std::string value;
};

/// Whether both have the same kind and the same value.
FOUNDATION_TOOLKIT_EXPORT bool operator==(AlternativeName const& left, AlternativeName const& right);
/// Whether the two differ.
FOUNDATION_TOOLKIT_EXPORT bool operator!=(AlternativeName const& left, AlternativeName const& right);

/// One X.509 certificate with any key, as an immutable value.
///
/// Loading accepts every certificate that OpenSSL can read. It checks no signature, no date and no key:
/// PathValidator does. foundation::certificates::X509Certificate accepts only the keys that it supports; use
/// that class where it is wanted, and convert with toX509Certificate.
///
/// All copies share one parsed certificate, so that copying costs one reference. A move is a copy: there is
/// no empty certificate. Any number of threads may use one object and its copies at once, as long as none of
/// them assigns to the object or destroys it.
///
/// Each function throws X509CertificateException "Internal error: OpenSSL ran out of memory." or "Internal
/// error: Unable to read the certificate's extensions." if OpenSSL runs out of memory. The comments below do
/// not repeat that. Text in quotation marks is the exact what() of the exception. Every function except
/// toX509Certificate leaves OpenSSL's error queue as it was.
class FOUNDATION_TOOLKIT_EXPORT Certificate
{
public:
    /// Loads the first certificate of the PEM text: a block "CERTIFICATE", "X509 CERTIFICATE" or "TRUSTED
    /// CERTIFICATE". Skips all text and all other blocks before it, and ignores what follows. A damaged block
    /// does not hide a later one from this search, but if the first certificate's own block is damaged, no
    /// other is taken for it. OpenSSL's trust settings in a "TRUSTED CERTIFICATE" are ignored.
    /// @throws InvalidArgument "The text contains no certificate in PEM encoding."
    /// @throws InvalidArgument "The first certificate of the PEM text is damaged."
    static Certificate fromPEM(std::string_view text);
    /// Loads the certificate at the start of the bytes, and ignores what follows it.
    /// @throws InvalidArgument "The bytes are not a certificate in DER encoding."
    static Certificate fromDER(foundation::certificates::ByteArray const& der);
    /// Copies OpenSSL's certificate into an object of its own, without OpenSSL's trust settings.
    /// @throws InvalidArgument "The pointer to the certificate is null."
    /// @throws InvalidArgument "The certificate is not complete." if OpenSSL cannot encode it
    static Certificate fromX509(x509_st const* certificate);
    /// Shares the parsed certificate, without a copy. Holds the source's lock during the call.
    /// @throws X509CertificateException "Error: X509Certificate is uninitialized.", "Error: X509Certificate
    ///     has no content."
    explicit Certificate(foundation::certificates::X509Certificate const& certificate);

    /// Shares the parsed certificate.
    Certificate(Certificate const& other);
    /// Shares the parsed certificate.
    Certificate& operator=(Certificate const& other);
    ~Certificate();

    /// Returns the parsed certificate, never null. It belongs to this object and its copies. Do not change
    /// it, and do not use it longer than they exist.
    x509_st const* getX509() const;
    /// Returns a duplicate of the parsed certificate, never null. The caller owns it and may change it.
    std::unique_ptr<x509_st, void (*)(x509_st*)> duplicateX509() const;
    /// Loads the same certificate as the library's own class. Clears OpenSSL's error queue, as loading does.
    /// @throws CertificateException what the constructors of foundation::certificates::X509Certificate throw
    ///     for a key that the library does not support
    foundation::certificates::X509Certificate toX509Certificate() const;
    /// Returns the DER encoding.
    foundation::certificates::ByteArray getAsDER() const;
    /// Returns PEM text in lines of 64 characters, as OpenSSL writes it (`PEM_write_bio_X509`).
    std::string getAsPEM() const;

    /// Returns the subject as RFC 2253 text: "CN=a,O=b,C=US", as X509Certificate::getSubjectName does.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if OpenSSL
    ///     runs out of memory
    std::string getSubject() const;
    /// Returns the issuer in the form of getSubject. Throws as getSubject does.
    std::string getIssuer() const;
    /// Returns the serial number as lower-case hexadecimal digits, two for each byte, with a minus sign if it
    /// is negative.
    std::string getSerialNumber() const;
    /// Returns the start of validity. A time that the clock cannot hold becomes `time_point::max()` or
    /// `time_point::min()`.
    /// @throws X509CertificateException "Invalid time format used in the certificate."
    std::chrono::system_clock::time_point getNotBefore() const;
    /// Returns the end of validity in the form of getNotBefore. Throws as getNotBefore does.
    std::chrono::system_clock::time_point getNotAfter() const;
    /// Returns the kind of the key: the name of an elliptic curve, such as "prime256v1" or "secp384r1", or
    /// OpenSSL's name of the type (`EVP_PKEY_get0_type_name`), such as "RSA", "RSA-PSS", "DSA", "ED25519" and
    /// "ED448". A curve without a name is "EC". A key that OpenSSL cannot decode has the short name of its
    /// algorithm, or its dotted OID.
    std::string getKeyKind() const;
    /// Returns the size of the key in bits (`EVP_PKEY_get_bits`), for example 384 for secp384r1; 0 for a
    /// key that OpenSSL cannot decode. For Ed25519, OpenSSL answers 256, and old releases of OpenSSL 3 253.
    int getKeyBits() const;
    /// Returns OpenSSL's short name of the signature algorithm, such as "RSA-SHA256" or "ecdsa-with-SHA384";
    /// "UNDEF" for an algorithm that OpenSSL does not know.
    std::string getSignatureAlgorithm() const;
    /// Returns the SHA-256 digest of the DER encoding as 64 lower-case hexadecimal digits.
    std::string getSHA256Fingerprint() const;
    /// Returns the subject key identifier as lower-case hexadecimal digits; empty without one.
    std::string getSubjectKeyIdentifier() const;
    /// Returns the key identifier of the authority key identifier in the form of getSubjectKeyIdentifier.
    std::string getAuthorityKeyIdentifier() const;
    /// Returns OpenSSL's short names of the key usages that are allowed, such as "digitalSignature" and
    /// "keyCertSign", in the order of their bits. Empty without a readable extension.
    std::vector<std::string> getKeyUsages() const;
    /// Returns the extended key usages as dotted OIDs in the extension's order, such as "1.3.6.1.5.5.7.3.1"
    /// for server authentication. Empty without a readable extension.
    /// @throws X509CertificateException "OID has invalid length: " and the length; "Could not convert OID
    ///     into text. Expected: " and a length, ". Got: " and another
    std::vector<std::string> getExtendedKeyUsages() const;
    /// Returns the subject alternative names in the certificate's order. Empty without a readable extension.
    std::vector<AlternativeName> getAlternativeNames() const;
    /// Returns the addresses of the issuer's certificate: the URIs that the authority information access
    /// names as "CA Issuers", in the certificate's order.
    std::vector<std::string> getIssuerURLs() const;
    /// Returns the URIs of the CRL distribution points in the certificate's order.
    std::vector<std::string> getCRLURLs() const;
    /// Whether OpenSSL takes the certificate for a CA (`X509_check_ca`). That includes old forms without
    /// basic constraints, for example a self-signed certificate of version 1.
    bool isCA() const;
    /// Whether the issuer signed this certificate: the names and the key identifiers match, and the issuer's
    /// key verifies the signature. Dates, and what the issuer is allowed to sign, are not checked.
    bool isIssuedBy(Certificate const& issuer) const;

    /// Whether a DNS name among the subject alternative names matches the host (`X509_check_host`). The
    /// common name is never used. A wildcard matches only as the whole leftmost label. Letters match in
    /// either case.
    /// @throws InvalidArgument "The host name is empty.", "The host name contains a NUL character.", "The
    ///     host name is not ASCII. Write an international name in its A-labels.", "The host name begins with
    ///     a dot."
    bool matchesHost(std::string const& host) const;
    /// Whether an IP address among the subject alternative names is the given one. IPv4 is written as four
    /// decimal numbers without leading zeros, IPv6 as RFC 4291 writes it, without brackets or zone.
    /// @throws InvalidArgument "The IP address is empty.", "The IP address contains a NUL character.", "The
    ///     IP address is not ASCII.", "The text is not an IP address."
    bool matchesAddress(std::string const& address) const;

private:
    friend struct CertificateAccess;

    explicit Certificate(std::shared_ptr<x509_st> certificate);

    std::shared_ptr<x509_st> x509;
};

/// Whether both have the same DER encoding.
FOUNDATION_TOOLKIT_EXPORT bool operator==(Certificate const& left, Certificate const& right);
/// Whether the two differ.
FOUNDATION_TOOLKIT_EXPORT bool operator!=(Certificate const& left, Certificate const& right);

/// A strict order of certificates by their DER encoding, for `std::set` and `std::map`.
struct CertificateLess
{
    /// Whether the left one comes first.
    FOUNDATION_TOOLKIT_EXPORT bool operator()(Certificate const& left, Certificate const& right) const;
};

/// A hash of certificates by their DER encoding, for `std::unordered_set` and `std::unordered_map`.
struct CertificateHash
{
    /// Returns the hash. Equal certificates have equal ones.
    FOUNDATION_TOOLKIT_EXPORT std::size_t operator()(Certificate const& certificate) const;
};

} // namespace foundation::toolkit
