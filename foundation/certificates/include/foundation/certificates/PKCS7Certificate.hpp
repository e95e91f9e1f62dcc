#pragma once

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/export.hpp>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

class PKCS7CertificateImpl;

/// The two forms in which signed data comes.
enum class CertificateEncoding : int
{
    PEM = 0, ///< text between "-----BEGIN PKCS7-----" and its end line
    DER = 1  ///< the binary encoding
};

/// PKCS#7 signed data (RFC 2315), as a value: a signature over some content, which lies inside or apart,
/// with the certificates that travel with it.
///
/// Signed data is loaded by a constructor, which finds out by itself whether its input is PEM or DER.
/// Loading proves nothing about the signature; verifySignature does.
///
/// An object is empty when it has no certificates, whatever else it holds: signed data without certificates
/// loads, is empty, gives nothing from getAsBytes, and can still be verified.
///
/// Signed data that was moved from by the move constructor is uninitialized: every operation but
/// addCertificate, assignment and destruction, copying it included, throws PKCS7CertificateException
/// "Error: PKCS7Certificate is uninitialized." This failure is not repeated below.
///
/// Each object has a lock of its own. Unless said otherwise an operation holds it for its whole run;
/// moving, assigning to and destroying an object take no lock on it. Where locks nest, signed data comes
/// before trust store, chain and certificate.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7Certificate
{
public:
    /// No signed data and no certificates.
    PKCS7Certificate();

    /// Loads the first structure of the bytes. Input that holds "-----BEGIN PKCS7-----" anywhere is read as
    /// PEM (`PEM_read_bio_PKCS7`), all other as DER (`d2i_PKCS7_bio`). Both signed content types are taken,
    /// signedData and signedAndEnvelopedData. Never asks for a passphrase: an encrypted PEM block fails as
    /// any other that cannot be read. OpenSSL's error queue is cleared first, and is empty afterwards; input
    /// without content leaves it alone.
    /// @throws InvalidArgument "The provided PKCS7 certificate has no content."
    /// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in
    ///     PEM encoding. Please verify the input data.", and the same text with DER for PEM in both places
    /// @throws InvalidArgument "Input PKCS7 certificate is corrupt. It doesn't have the right type field."
    ///     for any other content type
    /// @throws PKCS7CertificateException "Error: Loading a certificate failed. Reason=" and
    ///     OpenSSL's reason
    /// @throws PKCS7CertificateException "Error: Unable to parse X509 certificate(s) inside PKCS7
    ///     certificate." and what() of the failure, if X509Certificate refuses an embedded certificate
    /// @throws PKCS7CertificateException "Internal error: The given certificate data could not be written
    ///     to a buffer."
    PKCS7Certificate(ByteArray const& data);
    /// Loads from the characters, taken as bytes: PEM text or raw DER.
    /// @throws InvalidArgument also "The input PKCS7 certificate data string is invalid. Reason:"
    ///     and the cause
    PKCS7Certificate(std::string const& data);
    /// Loads from the rest of the stream, read through its buffer: the stream's state flags
    /// stay as they are.
    /// @throws InvalidArgument also "The input PKCS7 certificate data stream is invalid.", with nothing
    ///     read, if the stream is not good(); the same text and " Reason:" and the cause, if reading fails
    PKCS7Certificate(std::istream& stream);

    /// A separate copy of the structure (`PKCS7_dup`); the certificates are shared, as copies of
    /// X509Certificate are. Holds the source's lock meanwhile.
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL has no memory for it
    PKCS7Certificate(PKCS7Certificate const& other);
    /// Leaves the source uninitialized.
    PKCS7Certificate(PKCS7Certificate&& other) noexcept;
    ~PKCS7Certificate();

    /// Copies, then exchanges: holds the source's lock during the copy, and takes none on this object.
    PKCS7Certificate& operator=(PKCS7Certificate const& other);
    /// Exchanges the two contents: the source is left holding what this object held.
    PKCS7Certificate& operator=(PKCS7Certificate&& other) noexcept;

    /// Whether there are no certificates, loaded or added.
    bool empty() const;
    /// The signed data as PEM text (`PEM_write_bio_PKCS7`), also if it was loaded from DER. Nothing if the
    /// object is empty. Takes the lock once for that test and once for the rest.
    /// @throws PKCS7CertificateException "Unable to write out the PKCS7 data", for an object that has
    ///     certificates but was never loaded, too
    ByteArray getAsBytes() const;
    /// The text of getAsBytes. Fails as it does.
    std::string getAsString() const;

    /// The embedded certificates in their order, then those added.
    std::vector<X509Certificate> getCertificates() const;
    /// How many certificates getCertificates gives.
    std::uint64_t getNumCertificates() const;
    /// The content that was signed, if it lies inside and its signature verifies against the embedded
    /// certificates (`PKCS7_verify`; no chain is built); nothing otherwise. OpenSSL's reasons stay in
    /// its error queue.
    ByteArray getSignedData() const;
    /// The signers' certificates in the order of the signatures (`PKCS7_get0_signers`), as far as they are
    /// embedded: no signer at all if one of them is not. Says nothing about their signatures. OpenSSL's
    /// reasons stay in its error queue.
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL has no memory for it
    X509CertificateChain getSignerCerts() const;

    /// Says whether the signature over the content is sound, and whether the signer's chain leads to
    /// something trusted (`PKCS7_verify`).
    ///
    /// @param intermediates help to build the chain; may be empty
    /// @param trustStore the trusted roots; if it is empty, the operating system's. Never modified
    /// @param data the content, where it lies apart from the signature; empty where it lies inside. If
    ///     there are both, these bytes are verified and the content inside is not
    /// @return the verdict on the signature, the one on the chain, and a text
    ///
    /// The outcomes:
    /// - The signature is sound and OpenSSL trusts all signers: true, `Valid`, no text.
    /// - The signature is not sound, or there is nothing to verify, or no signer: false, `Failed`, and
    ///   OpenSSL's reason.
    /// - The signature is sound, and OpenSSL refuses a chain: true, and what validateCertificate says of
    ///   the first signer's chain, with its text; if it passes that chain, `Valid` and "certificate
    ///   verify error".
    ///
    /// A text need not be empty where the chain is valid: go by the two verdicts, or by
    /// PKCS7CertificateValidationResults::isValidSignature.
    ///
    /// The intermediates count as trusted in OpenSSL's own check of the chain, and as intermediates alone
    /// in validateCertificate. OpenSSL checks every signer, validateCertificate the first.
    ///
    /// OpenSSL's reason is the oldest entry of its error queue, which is not cleared before: an entry that
    /// an earlier call left there (a getSignedData that gave nothing, for one) stands in for the reason,
    /// and a chain that failed is then reported as a signature that is not sound.
    ///
    /// The lock is held for the whole call. A trust store that cannot be read or copied is not reported:
    /// what was got of it is used.
    /// @throws PKCS7CertificateException "Internal error: The given input data bytes could not be written
    ///     to a buffer."
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL has no memory for it
    /// @throws CertificateException whatever X509Certificate::validateCertificate throws
    PKCS7CertificateValidationResults verifySignature(
        X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const;

    /// Writes a heading and the report of each certificate, with the lock held.
    void print(std::ostream& out) const;

    /// Appends a copy of the certificate to those of getCertificates. The signed data stays as it is: the
    /// certificate does not show in getAsBytes, and takes no part in signatures. An uninitialized object
    /// becomes usable again through this. The copy is made before this object's lock is taken.
    /// @throws InvalidArgument "The provided certificate has no content."
    void addCertificate(X509Certificate const& certificate);

    /// Whether both have equal certificates in the same order; signatures and contents are not compared.
    /// Locks one object after the other.
    bool operator==(PKCS7Certificate const& other) const;
    /// The opposite of operator==. Fails as that does.
    bool operator!=(PKCS7Certificate const& other) const;

private:
    void swap(PKCS7Certificate& other) noexcept;
    void throwIfImplEmpty() const;

    std::unique_ptr<PKCS7CertificateImpl> impl;
    mutable std::mutex mutex;
};

/// Writes the report of the signed data (PKCS7Certificate::print) and returns the stream.
FOUNDATION_CERTIFICATES_EXPORT std::ostream&
operator<<(std::ostream& out, PKCS7Certificate const& certificate);

} // namespace foundation::certificates
