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

/// One opened PKCS#12 bundle, as a value: a private key, its certificate, and further certificates.
///
/// A bundle is opened by a constructor, with its passphrase, which is not kept. Any of the parts may be
/// missing. The key is given out as a record of its numbers, and those stay in memory, unwiped, as long as
/// the object or a copy of a record lives. Opening proves that the passphrase is right and the bundle
/// unchanged since it was protected; it proves no signature and no date.
///
/// A bundle that was moved from by the move constructor is uninitialized: every operation, copying
/// included, throws PKCS12CertificateException "Error: PKCS12Certificate is uninitialized.", and it may
/// only be destroyed or assigned to. This failure is not repeated below.
///
/// Copies share the parsed bundle, which nothing changes after loading. Each object has a lock of its own;
/// unless said otherwise an operation holds it for its whole run. Moving, assigning to and destroying an
/// object take no lock on it: the caller keeps those apart from other uses.
class FOUNDATION_CERTIFICATES_EXPORT PKCS12Certificate
{
public:
    /// Nothing loaded: empty() is true.
    PKCS12Certificate();

    /// Opens a bundle in DER form (`d2i_PKCS12_bio`); there is no PEM form. The bundle must carry a MAC.
    ///
    /// The passphrase is UTF-8, and its whole length is held against the MAC (`PKCS12_verify_mac`), a NUL
    /// character included; decryption (`PKCS12_parse`) takes it up to its first NUL only, so that a bundle
    /// protected with such a passphrase fails there. An empty passphrase is not the same as none: a bundle
    /// that was protected with no passphrase at all fails at the MAC.
    ///
    /// Once the passphrase has proved right, OpenSSL's "legacy" provider is loaded for the whole process
    /// and never unloaded, since many bundles are encrypted with old ciphers. The bundle itself says how
    /// often its passphrase is to be hashed, and nothing here bounds that: a stranger's bundle can keep the
    /// calling thread busy for minutes. OpenSSL's error queue is cleared first, and is empty afterwards;
    /// input without content leaves it alone.
    ///
    /// Of the certificates in the bundle, the one that the private key fits becomes getCertificate(), all
    /// others getCAChain(); without a key all of them are in the latter.
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
    /// @throws UnsupportedKeyType, UnsupportedEllipticCurve for a private key of any other kind than those
    ///     of KeyInfo.hpp, with the texts of X509Certificate's loading
    /// @throws CertificateException "Expected EVP_PKEY to have group parameter since it's an EVP_PKEY_EC" for
    ///     a private key on a curve without a name
    /// @throws PKCS12CertificateException "Failed to get the private exponent for the private key", "Error:
    ///     Unable to read private key from PKCS12 certificate." and OpenSSL's reason, "RSA key size does
    ///     not meet minimum cryptographic requirements"
    /// @throws CertificateException "Empty private exponent in private key.", "Empty private integer in
    ///     private key.", for a secret number of zero
    PKCS12Certificate(ByteArray const& bytes, std::string const& passphrase);
    /// Opens the rest of the stream, read through its buffer: the stream's state flags stay as they are.
    /// @throws InvalidArgument also "The input PKCS12 certificate data stream is invalid.", with nothing
    ///     read, if the stream is not good(); the same text and " Reason:" and the cause, if reading fails
    PKCS12Certificate(std::istream& stream, std::string const& passphrase);

    /// Shares the source's parsed bundle; holds the source's lock meanwhile.
    PKCS12Certificate(PKCS12Certificate const& other);
    /// Leaves the source uninitialized.
    PKCS12Certificate(PKCS12Certificate&& other) noexcept;
    ~PKCS12Certificate();

    /// Copies, then exchanges: holds the source's lock during the copy, and takes none on this object.
    PKCS12Certificate& operator=(PKCS12Certificate const& other);
    /// Exchanges the two contents: the source is left holding what this object held.
    PKCS12Certificate& operator=(PKCS12Certificate&& other) noexcept;

    /// Whether no bundle was loaded. A bundle without any certificate or key is not empty.
    bool empty() const;
    /// The DER form of the bundle (`i2d_PKCS12_bio`), protected by the passphrase it was opened with; no
    /// bytes if no bundle was loaded. Takes the lock twice, for empty() and for the bytes.
    /// @throws PKCS12CertificateException "Unable to write out PKCS12 bytes."
    ByteArray getAsBytes() const;

    /// The certificate that the private key fits; an empty one if there is none.
    X509Certificate getCertificate() const;
    /// All other certificates, in the order in which OpenSSL hands them out.
    X509CertificateChain getCAChain() const;
    /// The RSA private exponent, big-endian; no bytes without a private key.
    /// @throws NotRSAKey "Cannot get the private exponent from the key because it is not an RSA key."
    ByteArray getPrivateExponent() const;
    /// The private key's numbers; absent without a private key.
    std::optional<PrivateKeyInfo> getPrivateKeyInfo() const;

    /// Writes a heading, the certificate's report and that of the other certificates, and nothing of the
    /// private key. The lock is held while writing.
    /// @throws X509CertificateException "Error: X509Certificate has no content.", with the heading written,
    ///     if there is no certificate
    void print(std::ostream& out) const;

    /// Whether both have equal certificates, equal further certificates in the same order, and equal
    /// private keys or none. The parsed bundles are not compared. Locks this object only: the caller keeps
    /// changes to the other one apart.
    /// @throws X509CertificateException "Error: X509Certificate has no content." if either has
    ///     no certificate
    bool operator==(PKCS12Certificate const& other) const;
    /// The opposite of operator==. Fails as that does.
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
