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
#include <unordered_map>
#include <vector>

namespace foundation::certificates {

class CertificateValidationOptions;
class CertificateValidationResults;
class TrustStore;
class X509CertificateChain;
class X509CertificateImpl;

/// One X.509 certificate, as a value.
///
/// A certificate is loaded by a constructor, which finds out by itself whether its input is PEM or DER, and
/// refuses a certificate whose public key the library cannot work with: a certificate that exists has an
/// RSA key of at least 1024 bits, a prime256v1 key or an Ed25519 key. Loading proves neither a signature
/// nor a date; validateCertificate does.
///
/// A default-constructed certificate is empty: it can be copied, empty() is true, and every other operation
/// throws X509CertificateException "Error: X509Certificate has no content." A certificate that was moved
/// from by the move constructor is uninitialized: every operation, copying included, throws
/// X509CertificateException "Error: X509Certificate is uninitialized.", and it may only be destroyed or
/// assigned to. These two failures are not repeated below.
///
/// Copies share the parsed certificate, which nothing changes after loading, so copying is cheap. Each
/// object has a lock of its own, held by every read operation for the whole call. Moving, assigning to and
/// destroying an object take no lock on it: the caller keeps those apart from other uses.
class FOUNDATION_CERTIFICATES_EXPORT X509Certificate
{
public:
    /// The bits of the X.509 key usage extension (RFC 5280, 4.2.1.3), as SelfSignedCertBuilder takes them.
    enum class KeyUsage : int
    {
        DigitalSignature = 0, ///< signatures on anything but certificates and CRLs
        NonRepudiation = 1,   ///< signatures that bind their maker; contentCommitment in newer texts
        KeyEncipherment = 2,  ///< encryption of keys, as in old TLS key exchanges with RSA
        DataEncipherment = 3, ///< encryption of data without a key between
        KeyAgreement = 4,     ///< agreement on a key, as with Diffie-Hellman
        KeyCertSign = 5,      ///< signatures on certificates: a CA
        CRLSign = 6,          ///< signatures on CRLs
        EncipherOnly = 7,     ///< with KeyAgreement: the key agreed on serves encryption alone
        DecipherOnly = 8      ///< with KeyAgreement: the key agreed on serves decryption alone
    };

    /// A point in time of the system clock, in ticks of 100 ns since 1970-01-01 00:00:00 UTC.
    using TimePoint = std::chrono::time_point<
        std::chrono::system_clock, std::chrono::duration<long long, std::ratio<1, 10000000>>>;

    /// An empty certificate.
    X509Certificate();

    /// Loads the first certificate of the bytes; whatever follows it is ignored. Input that holds
    /// "-----BEGIN CERTIFICATE-----" anywhere is read as PEM (`PEM_read_bio_X509`), all other as DER
    /// (`d2i_X509_bio`). Never asks for a passphrase: an encrypted PEM block fails as any other that cannot
    /// be read. OpenSSL's error queue is cleared first, and is empty after a failure; input without content
    /// leaves it alone.
    /// @throws InvalidArgument "The input certificate has no content."
    /// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in
    ///     PEM encoding. Please verify the input data.", and the same text with DER for PEM in both places
    /// @throws X509CertificateException "Error: Loading a certificate failed. Reason=" and OpenSSL's reason
    /// @throws X509CertificateException "Internal error: The given certificate data could not be written
    ///     to a buffer."
    /// @throws X509CertificateException "RSA key size does not meet minimum cryptographic requirements"
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL has no memory for it
    /// @throws UnsupportedEllipticCurve "ECC-based key is not using supported ECC Curve. Curve: " and its
    ///     name, or "Key uses Ed448, which is not currently supported"
    /// @throws UnsupportedKeyType "Key is not currently supported. OpenSSL type id: " and the number
    /// @throws CertificateException if the key cannot be decoded: "Failed to sanity check EVP_PKEY.
    ///     Argument is nullptr"; for a curve without a name: "Expected EVP_PKEY to have group parameter since
    ///     it's an EVP_PKEY_EC"; for an RSA key with a zero: "Empty public exponent in public key", "Empty
    ///     modulus in public key"; for an elliptic-curve key without numbers, and if OpenSSL has no memory
    ///     for them: "Could not extract public key information from EVP_PKEY"
    X509Certificate(ByteArray const& data);
    /// Loads from the characters, taken as bytes: PEM text or raw DER.
    /// @throws InvalidArgument also "The input certificate data string is invalid. Reason:" and the cause
    X509Certificate(std::string const& data);
    /// Loads from the rest of the stream, read through its buffer: the stream's state flags
    /// stay as they are.
    /// @throws InvalidArgument also "The input certificate data stream is invalid.", with nothing read, if
    ///     the stream is not good(); the same text and " Reason:" and the cause, if reading fails
    X509Certificate(std::istream& stream);

    /// Shares the source's parsed certificate; holds the source's lock meanwhile.
    X509Certificate(X509Certificate const& other);
    /// Leaves the source uninitialized.
    X509Certificate(X509Certificate&& other) noexcept;
    /// For the library's own use: a handle on a copy of the implementation.
    X509Certificate(X509CertificateImpl& implementation);
    /// For the library's own use: a handle on the content of the implementation.
    X509Certificate(X509CertificateImpl&& implementation);
    ~X509Certificate();

    /// Copies, then exchanges: holds the source's lock during the copy, and takes none on this object.
    X509Certificate& operator=(X509Certificate const& other);
    /// Exchanges the two contents: the source is left holding what this object held.
    X509Certificate& operator=(X509Certificate&& other) noexcept;

    /// Whether there is no certificate in this object.
    bool empty() const;

    /// The subject as RFC 2253 text (`X509_NAME_print_ex` with `XN_FLAG_RFC2253`): attributes in
    /// reverse order of their encoding, most specific first, separated by commas without blanks; bytes
    /// above 127 are escaped.
    std::string getSubjectName() const;
    /// The issuer, in the form of getSubjectName.
    std::string getIssuerName() const;
    /// The subject's attributes as UTF-8 (`X509_NAME_get_entry`, `ASN1_STRING_to_UTF8`), by OpenSSL's
    /// short names ("CN", "O", ...). Of several attributes of one name the last in encoded order
    /// survives; attributes unknown to OpenSSL fall under one key, "UNDEF"; those that cannot become
    /// UTF-8 are passed over.
    std::unordered_map<std::string, std::string> getSubjectNameAsRDNs() const;
    /// The issuer's attributes, in the form of getSubjectNameAsRDNs.
    std::unordered_map<std::string, std::string> getIssuerNameAsRDNs() const;
    /// The subject's common name, in UTF-8 and whole even if it holds a NUL; of several, the last.
    /// @throws InvalidArgument "Subject name has no CN."
    std::string getSubjectCommonName() const;
    /// The issuer's common name, in the form of getSubjectCommonName.
    /// @throws InvalidArgument "Issuer name has no CN."
    std::string getIssuerCommonName() const;

    /// The serial number in decimal digits (`BN_bn2dec`), with a minus sign if it is negative.
    /// @throws X509CertificateException "Internal error: Unable to get serial number.", "Internal error:
    ///     Unable to get serial number from BN."
    std::string getSerialNumber() const;
    /// SHA-256 of the DER form (`X509_digest`), as 64 lower-case hexadecimal digits.
    /// @throws X509CertificateException "Internal error: Unable to compute the SHA256 fingerprint."
    std::string getSHA256Fingerprint() const;
    /// OpenSSL's short name of the signature algorithm (`X509_get_signature_nid`), such as "RSA-SHA256".
    /// @throws X509CertificateException "Internal error: Unable to fetch the signature algorithm"
    std::string getSignatureAlgorithm() const;

    /// The start of validity as `ASN1_TIME_print` writes it: "Jan  2 03:04:05 2026 GMT".
    /// @throws X509CertificateException "Error: Certificate does not have validNotBefore field
    ///     correctly set.", "Error: printing the ASN1 time failed.", "Error: Could not get the ASN1
    ///     time in string format."
    std::string getValidNotBefore() const;
    /// The end of validity, in the form of getValidNotBefore.
    /// @throws X509CertificateException "Error: Certificate does not have validNotAfter field correctly
    ///     set." and the others of getValidNotBefore
    std::string getValidNotAfter() const;
    /// The start of validity (`ASN1_TIME_diff` from 1970 on); negative before 1970.
    /// @throws X509CertificateException "Error: Certificate does not have validNotBefore field correctly
    ///     set.", "Invalid time format used in the certificate."
    TimePoint getValidNotBeforeTimePoint() const;
    /// The end of validity. Its failures are those of getValidNotBeforeTimePoint, to the letter.
    TimePoint getValidNotAfterTimePoint() const;

    /// The size of the public key in bits (`EVP_PKEY_get_bits`), which is never 0.
    std::uint64_t getKeySize() const;
    /// The RSA modulus, big-endian without leading zero bytes.
    /// @throws NotRSAKey "Cannot get the modulus from the key because it is not an RSA key"
    ByteArray getModulus() const;
    /// The RSA public exponent, big-endian without leading zero bytes.
    /// @throws NotRSAKey "Cannot get the public exponent from the key because it is not an RSA key"
    ByteArray getPublicExponent() const;
    /// The public key's numbers (`EVP_PKEY_get_bn_param` for RSA, `EVP_PKEY_todata` for the other kinds).
    PublicKeyInfo getPublicKeyInfo() const;

    /// The extended key usages as dotted OIDs (`X509_get_ext_d2i`), in the extension's order; empty without
    /// a readable extension.
    /// @throws X509CertificateException "OID has invalid length: " and the length; "Could not convert OID
    ///     into text. Expected: " and a length, ". Got: " and another
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL has no memory for it
    std::vector<std::string> getExtendedKeyUsages() const;
    /// The certificate policies as dotted OIDs (`X509_get_ext_d2i`), in the extension's order; empty
    /// without a readable extension. Fails as getExtendedKeyUsages does.
    std::vector<std::string> getPolicies() const;

    /// Whether `X509_check_ca` takes the certificate for a CA's, old forms without basic
    /// constraints included.
    bool isCACertificate() const;
    /// Whether issuer and subject have the same text. A comparison of names and nothing else: no
    /// signature is verified.
    bool isSelfSigned() const;
    /// Whether the key usage extension is there and has digitalSignature, and the extended key usages, if
    /// there are any, name code signing.
    /// @throws X509CertificateException "Internal error: Unable to read the certificate's extensions." if
    ///     OpenSSL has no memory for it
    bool isValidForDigitalSigning() const;

    /// Whether both have the same SHA-256 fingerprint, that is, the same DER form. Locks one object after
    /// the other. Two empty certificates are not equal but a failure.
    bool operator==(X509Certificate const& other) const;
    /// The opposite of operator==. Fails as that does.
    bool operator!=(X509Certificate const& other) const;

    /// The DER encoding (`i2d_X509_bio`).
    /// @throws X509CertificateException "Internal error: Could not serialize the X509 certificate.",
    ///     "Internal error: The DER serialized X509 data came up empty."
    ByteArray getAsBytes() const;
    /// The DER encoding in base64 on one line, without markers. Fails as getAsBytes does.
    std::string getAsString() const;
    /// PEM text with markers and a final line feed, its base64 in lines of 63 characters. Fails as
    /// getAsBytes does.
    std::string getAsPEMString() const;
    /// Writes a short report for people: names, fingerprint, and whether self-signed and a CA; a blank line
    /// closes it. The lock is held while writing.
    void print(std::ostream& out) const;

    /// Says whether this certificate may be believed, given intermediates, tolerances and trusted roots.
    ///
    /// @param chain the intermediates, with or without this certificate in front; may be empty
    /// @param options what is tolerated, how revocation is handled, and a second trust store to
    ///     fall back on
    /// @param trustStore the trusted roots; if it is empty, the operating system's, which are read once in
    ///     the life of the process
    /// @return the verdict; after `Valid`, the root of the chain that was built
    ///
    /// Host names, purposes and OCSP are not looked at. The lock is held for the whole call, waits for CRL
    /// servers included. The work is OpenSSL's `X509_verify_cert` on a private copy of the trust store.
    /// @throws X509CertificateException if no verdict can be had: "Internal error:" and the cause, if the
    ///     operating system's roots are wanted and cannot be read; "Invalid certificate chain length.\n"
    ///     and further texts, if OpenSSL fails; with DownloadCRL::Required, if a CRL could not be obtained:
    ///     "CRL Download Error: ..." or "CRL Verification Error: ..."
    /// @throws X509CertificateException with DownloadCRL::BestEffort as well: "Invalid time format used in
    ///     the certificate." if a CRL's next update cannot be read, "Error: printing the ASN1 time failed."
    ///     if the date of the revocation that was found cannot
    /// @throws std::filesystem::filesystem_error with DownloadCRL::BestEffort as well, if the system has no
    ///     folder for temporary files
    /// @throws CertificateException if the chain verifies and the library refuses the key of its root: as
    ///     loading does
    /// @throws X509CertificateChainException "Error: X509CertificateChain is uninitialized." for a moved-from
    ///     chain
    /// @throws TrustStoreException if the trust store cannot be copied: "Failed to create X509_STORE",
    ///     "Failed to add CRL to store", "Failed to add certificate to store, CN: " and the common name
    CertificateValidationResults validateCertificate(
        X509CertificateChain const& chain, CertificateValidationOptions const& options,
        TrustStore const& trustStore) const;

    /// The certificate at the top of this one's chain: a lookup, not a validation. The chain must verify,
    /// but for expiry and self-signed certificates, which are tolerated, so that the answer need not be in
    /// any trust store; no CRL is fetched or applied. Parameters, lock and what prevents a verdict as for
    /// validateCertificate.
    /// @throws X509CertificateException "Error: Root CA X509Certificate has no content." if no
    ///     chain verifies
    X509Certificate
    getRootCACertificate(X509CertificateChain const& chain, TrustStore const& trustStore) const;

private:
    void swap(X509Certificate& other) noexcept;
    void throwIfImplEmpty() const;

    std::unique_ptr<X509CertificateImpl> impl;
    mutable std::mutex mutex;
};

/// Writes the certificate's report (X509Certificate::print) and returns the stream.
FOUNDATION_CERTIFICATES_EXPORT std::ostream&
operator<<(std::ostream& out, X509Certificate const& certificate);

} // namespace foundation::certificates
