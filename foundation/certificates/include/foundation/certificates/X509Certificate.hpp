#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/export.hpp>

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <ratio>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace foundation::certificates {

class CertificateValidationOptions;
class CertificateValidationResults;
class TrustStore;
class X509CertificateChain;
class X509CertificateImpl;
struct X509Access;

namespace detail {

/// Names a type only if Path is `std::filesystem::path` itself. Recognizes it by its members, so that this
/// header needs no `<filesystem>`.
template <typename Path>
using IfFilesystemPath = std::enable_if_t<
    std::is_same_v<Path, decltype(std::declval<Path&>().make_preferred().filename())>, typename Path::format>;

} // namespace detail

/// One X.509 certificate, as a value: load it with a constructor, query its fields, validate it.
///
/// Loading detects by itself whether the input is PEM or DER. It accepts a certificate only if the library
/// supports its public key: RSA of at least 1024 bits, prime256v1 or Ed25519. It checks no signature and no
/// date. validateCertificate does.
///
/// A certificate is in one of three states:
/// - *loaded*: every operation works.
/// - *empty*, after default construction: it can be copied, and empty() returns true. Every other operation
///   throws X509CertificateException "Error: X509Certificate has no content."
/// - *uninitialized*, after the move constructor took its content: it can only be destroyed or assigned to.
///   Every other operation, copying included, throws X509CertificateException "Error: X509Certificate is
///   uninitialized."
///
/// The comments below do not repeat these two failures. Text in quotation marks is the exact what() of the
/// exception, or its beginning if a cause follows.
///
/// Copies share the parsed certificate, which nothing changes after loading, so that copying is cheap. No
/// answer is cached: each query asks OpenSSL again.
///
/// Each object has its own lock. Every read operation holds it for the whole call, so that several threads
/// may query one object. Moving, assigning to and destroying an object take no lock on it. Do not do that
/// while another thread uses the object.
///
/// A query does not clear OpenSSL's error queue. A query that fails may leave OpenSSL's own entries there.
class FOUNDATION_CERTIFICATES_EXPORT X509Certificate
{
public:
    /// The bits of the key usage extension (RFC 5280, 4.2.1.3), as SelfSignedCertBuilder takes them. The
    /// numbers are the positions of the bits.
    enum class KeyUsage : int
    {
        DigitalSignature = 0, ///< signs data other than certificates and CRLs
        NonRepudiation = 1,   ///< signs what the signer must not deny later; now called contentCommitment
        KeyEncipherment = 2,  ///< encrypts keys, as in TLS key exchange with RSA
        DataEncipherment = 3, ///< encrypts data directly, without a symmetric key
        KeyAgreement = 4,     ///< agrees on a key, as with Diffie-Hellman
        KeyCertSign = 5,      ///< signs certificates: a CA
        CRLSign = 6,          ///< signs CRLs
        EncipherOnly = 7,     ///< with KeyAgreement: the agreed key only encrypts
        DecipherOnly = 8      ///< with KeyAgreement: the agreed key only decrypts
    };

    /// A point in time of the system clock, in ticks of 100 ns since 1970-01-01 00:00:00 UTC.
    using TimePoint = std::chrono::time_point<
        std::chrono::system_clock, std::chrono::duration<long long, std::ratio<1, 10000000>>>;

    /// Creates an empty certificate.
    X509Certificate();

    /// Loads the first certificate in the bytes and ignores what follows it. Input that contains
    /// "-----BEGIN CERTIFICATE-----" anywhere is read as PEM (`PEM_read_bio_X509`), all other input as DER
    /// (`d2i_X509_bio`). Never asks for a passphrase: an encrypted PEM block fails like any other unreadable
    /// block. Clears OpenSSL's error queue first and leaves it empty after a failure. Empty input leaves the
    /// queue unchanged.
    /// @throws InvalidArgument "The input certificate has no content."
    /// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in
    ///     PEM encoding. Please verify the input data.", or the same text with DER for PEM in both places
    /// @throws X509CertificateException "Error: Loading a certificate failed. Reason=" and OpenSSL's reason
    /// @throws X509CertificateException "Internal error: The given certificate data could not be written
    ///     to a buffer." for 2 GiB and more, or if OpenSSL runs out of memory
    /// @throws X509CertificateException "RSA key size does not meet minimum cryptographic requirements"
    ///     below 1024 bits
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL runs out of memory
    /// @throws UnsupportedEllipticCurve "ECC-based key is not using supported ECC Curve. Curve: " and its
    ///     name, or "Key uses Ed448, which is not currently supported"
    /// @throws UnsupportedKeyType "Key is not currently supported. OpenSSL type id: " and the number
    /// @throws CertificateException if the key cannot be decoded: "Failed to sanity check EVP_PKEY.
    ///     Argument is nullptr"; for a curve without a name: "Expected EVP_PKEY to have group parameter since
    ///     it's an EVP_PKEY_EC"; for an RSA key with a zero: "Empty public exponent in public key", "Empty
    ///     modulus in public key"; for an elliptic-curve key without numbers, or if OpenSSL runs out of
    ///     memory for them: "Could not extract public key information from EVP_PKEY"
    X509Certificate(ByteArray const& data);
    /// Loads from the characters, taken as bytes: PEM text or raw DER. To load a file, open a stream.
    /// @throws InvalidArgument also "The input certificate data string is invalid. Reason:" and the cause
    X509Certificate(std::string const& data);
    /// Loads from the rest of the stream. Reads through the stream's buffer and leaves its state flags
    /// unchanged.
    /// @throws InvalidArgument also "The input certificate data stream is invalid.", with nothing read, if
    ///     the stream is not good(); the same text, " Reason:" and the cause, if reading fails
    X509Certificate(std::istream& stream);
    /// Refuses a `std::filesystem::path`, which would convert to a string: its characters are not a
    /// certificate.
    template <typename Path, typename = detail::IfFilesystemPath<Path>>
    X509Certificate(Path const& file) = delete;

    /// Shares the source's parsed certificate. Holds the source's lock during the copy.
    X509Certificate(X509Certificate const& other);
    /// Leaves the source uninitialized.
    X509Certificate(X509Certificate&& other) noexcept;
    /// For internal use: shares the implementation's certificate.
    X509Certificate(X509CertificateImpl& implementation);
    /// For internal use: takes the implementation's certificate.
    X509Certificate(X509CertificateImpl&& implementation);
    ~X509Certificate();

    /// Copies, then exchanges. Holds the source's lock during the copy and takes no lock on this object.
    X509Certificate& operator=(X509Certificate const& other);
    /// Exchanges the contents. The source then holds what this object held.
    X509Certificate& operator=(X509Certificate&& other) noexcept;

    /// Whether this object holds no certificate.
    bool empty() const;

    /// Returns the subject as RFC 2253 text (`X509_NAME_print_ex` with `XN_FLAG_RFC2253`): "CN=a,O=b,C=US".
    /// The attributes are in reverse order of their encoding, so that the most specific comes first. Bytes
    /// above 127 are escaped. A name that OpenSSL cannot print gives the part that was printed.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if OpenSSL
    ///     runs out of memory
    std::string getSubjectName() const;
    /// Returns the issuer in the form of getSubjectName. Throws as getSubjectName does.
    std::string getIssuerName() const;
    /// Returns the subject's attributes as UTF-8 (`ASN1_STRING_to_UTF8`), keyed by OpenSSL's short names:
    /// "CN", "O" and so on. Of several attributes with one name, the last in encoded order wins. Attributes
    /// unknown to OpenSSL share the key "UNDEF". Skips attributes that OpenSSL cannot convert.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if OpenSSL
    ///     runs out of memory
    std::unordered_map<std::string, std::string> getSubjectNameAsRDNs() const;
    /// Returns the issuer's attributes in the form of getSubjectNameAsRDNs. Throws as that does.
    std::unordered_map<std::string, std::string> getIssuerNameAsRDNs() const;
    /// Returns the subject's common name as UTF-8; of several, the last in encoded order. The text may
    /// contain a NUL character.
    /// @throws InvalidArgument "Subject name has no CN."
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." if OpenSSL
    ///     runs out of memory
    std::string getSubjectCommonName() const;
    /// Returns the issuer's common name in the form of getSubjectCommonName.
    /// @throws InvalidArgument "Issuer name has no CN."
    /// @throws X509CertificateException as getSubjectCommonName does
    std::string getIssuerCommonName() const;

    /// Returns the serial number in decimal digits (`BN_bn2dec`), with a minus sign if it is negative.
    ///
    /// The time grows with the square of the number's length: about half a second for 100 KB. RFC 5280
    /// allows 20 bytes, but loading does not limit the length. Limit the size of untrusted certificates.
    /// @throws X509CertificateException "Internal error: Unable to get serial number.", "Internal error:
    ///     Unable to get serial number from BN."
    std::string getSerialNumber() const;
    /// Returns the SHA-256 digest of the DER form (`X509_digest`) as 64 lower-case hexadecimal digits.
    /// @throws X509CertificateException "Internal error: Unable to compute the SHA256 fingerprint."
    std::string getSHA256Fingerprint() const;
    /// Returns OpenSSL's short name of the signature algorithm (`X509_get_signature_nid`), for example
    /// "RSA-SHA256"; "UNDEF" for an algorithm that OpenSSL does not know.
    /// @throws X509CertificateException "Internal error: Unable to fetch the signature algorithm"
    std::string getSignatureAlgorithm() const;

    /// Returns the start of validity as `ASN1_TIME_print` writes it: "Jan  2 03:04:05 2026 GMT".
    /// @throws X509CertificateException "Error: Certificate does not have validNotBefore field
    ///     correctly set.", "Error: printing the ASN1 time failed.", "Error: Could not get the ASN1
    ///     time in string format."
    std::string getValidNotBefore() const;
    /// Returns the end of validity in the form of getValidNotBefore.
    /// @throws X509CertificateException "Error: Certificate does not have validNotAfter field correctly
    ///     set.", or the other two texts of getValidNotBefore
    std::string getValidNotAfter() const;
    /// Returns the start of validity as a point in time (`ASN1_TIME_diff`); negative before 1970.
    /// @throws X509CertificateException "Error: Certificate does not have validNotBefore field correctly
    ///     set.", "Invalid time format used in the certificate."
    TimePoint getValidNotBeforeTimePoint() const;
    /// Returns the end of validity as a point in time. Throws exactly what getValidNotBeforeTimePoint throws:
    /// the text names validNotBefore here too.
    TimePoint getValidNotAfterTimePoint() const;

    /// Returns the size of the public key in bits (`EVP_PKEY_get_bits`), never 0: the length of an RSA
    /// modulus, 256 for prime256v1 and Ed25519. Old releases of OpenSSL 3 answer 253 for Ed25519.
    std::uint64_t getKeySize() const;
    /// Returns the RSA modulus, big-endian without leading zero bytes.
    /// @throws NotRSAKey "Cannot get the modulus from the key because it is not an RSA key"
    /// @throws X509CertificateException "Failed to get the modulus for the public key" if OpenSSL runs out of
    ///     memory
    ByteArray getModulus() const;
    /// Returns the RSA public exponent, big-endian without leading zero bytes.
    /// @throws NotRSAKey "Cannot get the public exponent from the key because it is not an RSA key"
    /// @throws X509CertificateException "Failed to get the public exponent for the public key" if OpenSSL
    ///     runs out of memory
    ByteArray getPublicExponent() const;
    /// Returns the numbers of the public key (`EVP_PKEY_todata`; for Ed25519
    /// `EVP_PKEY_get_octet_string_param`).
    /// @throws X509CertificateException as getModulus and getPublicExponent do
    /// @throws CertificateException for an elliptic-curve key if OpenSSL runs out of memory: "Could not
    ///     extract public key information from EVP_PKEY", "Failed to extract public point from public
    ///     EVP_PKEY", "Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL"
    PublicKeyInfo getPublicKeyInfo() const;

    /// Returns the extended key usages as dotted OIDs (`X509_get_ext_d2i`) in the extension's order, for
    /// example "1.3.6.1.5.5.7.3.1" for server authentication. Empty without a readable extension.
    /// @throws X509CertificateException "OID has invalid length: " and the length; "Could not convert OID
    ///     into text. Expected: " and a length, ". Got: " and another
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL runs out of memory
    std::vector<std::string> getExtendedKeyUsages() const;
    /// Returns the OIDs of the certificate policies in the form of getExtendedKeyUsages, without their
    /// qualifiers. Throws as getExtendedKeyUsages does.
    std::vector<std::string> getPolicies() const;

    /// Whether OpenSSL takes the certificate for a CA (`X509_check_ca`). That includes old forms without
    /// basic constraints, for example a self-signed certificate of version 1.
    bool isCACertificate() const;
    /// Whether issuer and subject have the same text (getIssuerName, getSubjectName). This compares names
    /// only and verifies no signature.
    /// @throws X509CertificateException as getSubjectName does
    bool isSelfSigned() const;
    /// Whether the extensions allow signing code and data. The key usage must be present and contain
    /// digitalSignature. The extended key usages, if present, must name code signing.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL runs out of memory
    bool isValidForDigitalSigning() const;

    /// Whether both have the same SHA-256 fingerprint, and so the same DER form. Locks one object after the
    /// other, never both. Comparing two empty certificates throws.
    /// @throws X509CertificateException as getSHA256Fingerprint does
    bool operator==(X509Certificate const& other) const;
    /// Whether the two differ. Throws as operator== does.
    bool operator!=(X509Certificate const& other) const;

    /// Returns the DER encoding (`i2d_X509_bio`).
    /// @throws X509CertificateException "Internal error: Could not serialize the X509 certificate.",
    ///     "Internal error: The DER serialized X509 data came up empty."
    ByteArray getAsBytes() const;
    /// Returns the DER encoding as base64 on one line, without markers. Throws as getAsBytes does.
    std::string getAsString() const;
    /// Returns PEM text: the markers, base64 in lines of 63 characters, and a line feed at the end of each
    /// line. Throws as getAsBytes does.
    std::string getAsPEMString() const;
    /// Writes a short report: subject, issuer, fingerprint, whether the certificate is self-signed and a CA,
    /// and an empty line. Then flushes the stream. Holds the lock while it writes.
    /// @throws X509CertificateException as getSubjectName and getIssuerName do, with nothing written; as
    ///     getSHA256Fingerprint does, after the names are written
    void print(std::ostream& out) const;

    /// Returns whether this certificate is valid, given intermediates, tolerances and trusted roots.
    ///
    /// @param chain the intermediates, with or without this certificate in front; may be empty
    /// @param options what is tolerated, how revocation is handled, and a second trust store to fall back on
    /// @param trustStore the trusted roots. If it is empty, those of the operating system, which are read
    ///     once per process.
    /// @return the verdict; with `Valid`, also the root of the chain that was built
    ///
    /// OpenSSL verifies the chain (`X509_verify_cert`). It reads the trust store as it is at the start, and
    /// changes nothing in it. Host names, purposes and OCSP are not checked. Holds the lock for the whole
    /// call, which includes waiting for CRL servers. May clear OpenSSL's error queue.
    /// @throws X509CertificateException if there is no verdict: "Internal error:" and the cause, if the
    ///     operating system's roots are needed and cannot be read; "Invalid certificate chain length.\n"
    ///     and further texts, if OpenSSL fails; with DownloadCRL::Required, if a CRL could not be fetched:
    ///     "CRL Download Error: ..." or "CRL Verification Error: ..."
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's name." or
    ///     "Internal error: Unable to read the certificate's extensions." if OpenSSL runs out of memory
    /// @throws X509CertificateException with DownloadCRL::BestEffort, too: "Invalid time format used in
    ///     the certificate." if a CRL's next update cannot be read, "Error: printing the ASN1 time failed."
    ///     if the date of the revocation that was found cannot
    /// @throws std::filesystem::filesystem_error with DownloadCRL::BestEffort, too, if the system has no
    ///     folder for temporary files
    /// @throws CertificateException if the chain verifies but the library refuses the key of its root, as
    ///     loading does
    /// @throws X509CertificateChainException "Error: X509CertificateChain is uninitialized." for a moved-from
    ///     chain
    /// @throws TrustStoreException if the trust store cannot be read: "Failed to create X509_STORE",
    ///     "Failed to read X509_STORE", "Failed to add CRL to store", "Failed to add certificate to store,
    ///     CN: " and the common name
    CertificateValidationResults validateCertificate(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;

    /// Returns the certificate at the top of this one's chain. This is a lookup, not a validation: the root
    /// may be in no trust store. The chain must verify, except that expired and self-signed certificates are
    /// tolerated. No CRL is fetched or applied. Takes the parameters of validateCertificate. Also holds the
    /// lock for the whole call, and throws the same exceptions if there is no verdict.
    /// @throws X509CertificateException "Error: Root CA X509Certificate has no content." if no chain verifies
    X509Certificate
    getRootCACertificate(X509CertificateChain const& chain, TrustStore const& trustStore) const;

private:
    friend struct X509Access;

    void swap(X509Certificate& other) noexcept;
    void throwIfImplEmpty() const;

    std::unique_ptr<X509CertificateImpl> impl;
    mutable std::mutex mutex;
};

/// Writes the certificate's report (X509Certificate::print) and returns the stream.
FOUNDATION_CERTIFICATES_EXPORT std::ostream&
operator<<(std::ostream& out, X509Certificate const& certificate);

} // namespace foundation::certificates
