#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/KeyInfo.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/export.hpp>

#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace foundation::certificates {

class PKCS12CertificateImpl;

/// An opened PKCS#12 bundle, as a value: a private key, its certificate, and further certificates. Each part
/// may be missing.
///
/// The constructors open the bundle with its passphrase and do not keep the passphrase. The key is returned
/// as a record of its numbers. These numbers stay in memory, unwiped, as long as the object or a copy of a
/// record exists. Opening proves that the passphrase is correct and that the bundle has not changed since it
/// was protected. It checks no signature and no date.
///
/// After the move constructor, the source is uninitialized and may only be destroyed or assigned to. Every
/// other operation, copying included, throws PKCS12CertificateException
/// "Error: PKCS12Certificate is uninitialized." The comments below do not repeat this failure.
///
/// Copies share the parsed bundle, which does not change after loading. Each object has its own lock. Unless
/// noted otherwise, an operation holds the lock for the whole call. Moving, assigning to and destroying an
/// object take no lock on it. Do not do that while another thread uses the object.
class FOUNDATION_CERTIFICATES_EXPORT PKCS12Certificate
{
public:
    /// Creates an object without a bundle: empty() is true.
    PKCS12Certificate();

    /// Opens a bundle in DER form (`d2i_PKCS12_bio`). There is no PEM form. The bundle must have a MAC.
    ///
    /// The passphrase is UTF-8. The MAC check (`PKCS12_verify_mac`) uses its whole length, NUL characters
    /// included; decryption (`PKCS12_parse`) uses it up to its first NUL. A bundle that is protected with a
    /// passphrase that contains a NUL therefore fails at decryption. An empty passphrase differs from none:
    /// a bundle that is protected with no passphrase fails at the MAC check.
    ///
    /// After the MAC check, OpenSSL's "legacy" provider is loaded for the whole process and never unloaded,
    /// because many bundles use old ciphers. The bundle itself states its number of hash iterations, and this
    /// library sets no limit: an untrusted bundle can keep the calling thread busy for minutes. OpenSSL's
    /// error queue is cleared first and is empty afterwards. Empty input leaves the queue unchanged.
    ///
    /// The certificate that matches the private key becomes getCertificate(); all others become
    /// getCAChain(). Without a private key, all certificates become getCAChain().
    /// @throws InvalidArgument "The provided PKCS12 certificate bytearray has no content."
    /// @throws PKCS12CertificateException "Internal error: The given certificate data could not be written
    ///     to a buffer."
    /// @throws PKCS12CertificateException "Error: Loading PKSC12 certificate failed. Reason=" and
    ///     OpenSSL's reason
    /// @throws IncorrectPassphrase "Input passphrase is incorrect. OpenSSL error message=" and OpenSSL's
    ///     reason, which is often empty
    /// @throws PKCS12CertificateException "Error: Loading legacy provider failed." and OpenSSL's reason
    /// @throws PKCS12CertificateException "Error: Parsing PKSC12 certificate failed." and OpenSSL's reason
    /// @throws UnsupportedEllipticCurve "Unsupported elliptic curve in X509 Certificate in PKCS12: " and
    ///     what() of the certificate's failure
    /// @throws PKCS12CertificateException "Error: Unable to parse X509 certificate(s) inside PKCS12
    ///     certificate." and what() of the certificate's failure
    /// @throws UnsupportedKeyType, UnsupportedEllipticCurve for a private key of a kind that KeyInfo.hpp does
    ///     not list, with the texts of X509Certificate's constructors
    /// @throws CertificateException "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC" for
    ///     a private key on a curve without a name
    /// @throws PKCS12CertificateException "Failed to get the private exponent for the private key", "Error:
    ///     Unable to read private key from PKCS12 certificate." and OpenSSL's reason, "RSA key size does
    ///     not meet minimum cryptographic requirements"
    /// @throws CertificateException "Empty private exponent in private key.", "Empty private integer in
    ///     private key.", if the secret number is zero
    PKCS12Certificate(ByteArray const& bytes, std::string const& passphrase);
    /// Opens the rest of the stream. Reads through the stream's buffer and leaves its state flags unchanged.
    /// @throws InvalidArgument also "The input PKCS12 certificate data stream is invalid.", with nothing
    ///     read, if the stream is not good(); the same text, " Reason:" and the cause, if reading fails
    PKCS12Certificate(std::istream& stream, std::string const& passphrase);

    /// Shares the source's parsed bundle. Holds the source's lock during the copy.
    PKCS12Certificate(PKCS12Certificate const& other);
    /// Leaves the source uninitialized.
    PKCS12Certificate(PKCS12Certificate&& other) noexcept;
    ~PKCS12Certificate();

    /// Copies, then exchanges. Holds the source's lock during the copy and takes no lock on this object.
    PKCS12Certificate& operator=(PKCS12Certificate const& other);
    /// Exchanges the contents. The source then holds what this object held.
    PKCS12Certificate& operator=(PKCS12Certificate&& other) noexcept;

    /// Whether no bundle was loaded. A loaded bundle without certificates and key is not empty.
    bool empty() const;
    /// Returns the bundle in DER form (`i2d_PKCS12_bio`), protected by the passphrase that opened it. Returns
    /// no bytes if no bundle was loaded. Takes the lock twice: for empty(), and for the output.
    /// @throws PKCS12CertificateException "Unable to write out PKCS12 bytes."
    ByteArray getAsBytes() const;

    /// Returns the certificate that matches the private key; an empty one if there is no such certificate.
    X509Certificate getCertificate() const;
    /// Returns all other certificates, in OpenSSL's order.
    X509CertificateChain getCAChain() const;
    /// Returns the RSA private exponent, big-endian; no bytes without a private key.
    /// @throws NotRSAKey "Cannot get the private exponent from the key because it is not an RSA key."
    ByteArray getPrivateExponent() const;
    /// Returns the private key's numbers; no value without a private key.
    std::optional<PrivateKeyInfo> getPrivateKeyInfo() const;

    /// Writes a heading, the report of the certificate and the reports of the other certificates. Writes
    /// nothing of the private key. Holds the lock while writing.
    /// @throws X509CertificateException "Error: X509Certificate has no content.", after the heading is
    ///     written, if there is no certificate
    void print(std::ostream& out) const;

    /// Whether both objects have equal certificates, equal other certificates in the same order, and equal
    /// private keys or none. Does not compare the parsed bundles. Locks this object only: the caller must
    /// synchronize changes of the other object.
    /// @throws X509CertificateException "Error: X509Certificate has no content." if either has
    ///     no certificate
    bool operator==(PKCS12Certificate const& other) const;
    /// Whether the two differ. Throws as operator== does.
    bool operator!=(PKCS12Certificate const& other) const;

private:
    void swap(PKCS12Certificate& other) noexcept;
    void throwIfImplEmpty() const;

    std::unique_ptr<PKCS12CertificateImpl> impl;
    mutable std::mutex mutex;
};

/// Writes the bundle's report (PKCS12Certificate::print) and returns the stream.
FOUNDATION_CERTIFICATES_EXPORT std::ostream& operator<<(std::ostream& out, PKCS12Certificate const& bundle);

} // namespace foundation::certificates
