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

/// The encodings of signed data.
enum class CertificateEncoding : int
{
    PEM = 0, ///< text between "-----BEGIN PKCS7-----" and its end line
    DER = 1  ///< the binary encoding
};

/// PKCS#7 signed data (RFC 2315), as a value: one or more signatures over some content, and the certificates
/// that come with them. The content is embedded or detached.
///
/// The constructors load signed data and detect whether the input is PEM or DER. Loading does not check any
/// signature; verifySignature does.
///
/// An object without certificates counts as empty. Signed data without certificates loads, is empty, returns
/// nothing from getAsBytes, and can still be verified.
///
/// After the move constructor, the source is uninitialized. Only addCertificate, assignment and destruction
/// work on it. Every other operation, copying included, throws PKCS7CertificateException
/// "Error: PKCS7Certificate is uninitialized." The comments below do not repeat this failure.
///
/// Each object has its own lock. Unless noted otherwise, an operation holds the lock for the whole call.
/// Moving, assigning to and destroying an object take no lock on it. Do not do that while another thread uses
/// the object. Locks nest in this order: signed data, trust store, chain, certificate.
class FOUNDATION_CERTIFICATES_EXPORT PKCS7Certificate
{
public:
    /// Creates an object without signed data and certificates.
    PKCS7Certificate();

    /// Loads the first structure in the bytes. Input that contains "-----BEGIN PKCS7-----" anywhere is read
    /// as PEM (`PEM_read_bio_PKCS7`), all other input as DER (`d2i_PKCS7_bio`). Both signed content types
    /// load: signedData and signedAndEnvelopedData. Loading never asks for a passphrase; an encrypted PEM
    /// block fails like any other unreadable block. OpenSSL's error queue is cleared first and is empty
    /// afterwards. Empty input leaves the queue unchanged.
    /// @throws InvalidArgument "The provided PKCS7 certificate has no content."
    /// @throws InvalidArgument "Input certificate data was autodetected to be PEM-encoded, but is not in
    ///     PEM encoding. Please verify the input data.", or the same text with DER for PEM in both places
    /// @throws InvalidArgument "Input PKCS7 certificate is corrupt. It doesn't have the right type field."
    ///     for any other content type
    /// @throws PKCS7CertificateException "Error: Loading a certificate failed. Reason=" and
    ///     OpenSSL's reason
    /// @throws PKCS7CertificateException "Error: Unable to parse X509 certificate(s) inside PKCS7
    ///     certificate." and what() of the failure, if X509Certificate refuses an embedded certificate. It
    ///     does so too if OpenSSL runs out of memory; it accepts invalid extensions
    /// @throws PKCS7CertificateException "Internal error: The given certificate data could not be written
    ///     to a buffer."
    PKCS7Certificate(ByteArray const& data);
    /// Loads from the characters, taken as bytes: PEM text or raw DER.
    /// @throws InvalidArgument also "The input PKCS7 certificate data string is invalid. Reason:"
    ///     and the cause
    PKCS7Certificate(std::string const& data);
    /// Loads from the rest of the stream. Reads through the stream's buffer and leaves its state flags
    /// unchanged.
    /// @throws InvalidArgument also "The input PKCS7 certificate data stream is invalid.", with nothing
    ///     read, if the stream is not good(); the same text, " Reason:" and the cause, if reading fails
    PKCS7Certificate(std::istream& stream);
    /// Refuses a `std::filesystem::path`, which would convert to a string: its characters are not signed
    /// data.
    template <typename Path, typename = detail::IfFilesystemPath<Path>>
    PKCS7Certificate(Path const& file) = delete;

    /// Copies the structure (`PKCS7_dup`). The copies share the parsed certificates, as copies of
    /// X509Certificate do. Holds the source's lock during the copy.
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL runs out of memory
    PKCS7Certificate(PKCS7Certificate const& other);
    /// Leaves the source uninitialized.
    PKCS7Certificate(PKCS7Certificate&& other) noexcept;
    ~PKCS7Certificate();

    /// Copies, then exchanges. Holds the source's lock during the copy and takes no lock on this object.
    PKCS7Certificate& operator=(PKCS7Certificate const& other);
    /// Exchanges the contents. The source then holds what this object held.
    PKCS7Certificate& operator=(PKCS7Certificate&& other) noexcept;

    /// Whether there are no certificates, loaded or added.
    bool empty() const;
    /// Returns the signed data as PEM text (`PEM_write_bio_PKCS7`), also if it was loaded from DER. Returns
    /// nothing if the object is empty. Takes the lock twice: for that test, and for the output.
    /// @throws PKCS7CertificateException "Unable to write out the PKCS7 data", also for an object with
    ///     added certificates that was never loaded
    ByteArray getAsBytes() const;
    /// Returns the text of getAsBytes. Throws as getAsBytes does.
    std::string getAsString() const;

    /// Returns the embedded certificates in their order, then the added ones.
    std::vector<X509Certificate> getCertificates() const;
    /// Returns the number of certificates in getCertificates.
    std::uint64_t getNumCertificates() const;
    /// Returns the embedded content if all signatures verify against the embedded certificates
    /// (`PKCS7_verify`), and nothing otherwise. Builds no chain, so it does not prove who signed. OpenSSL's
    /// reasons stay in its error queue.
    ByteArray getSignedData() const;
    /// Returns the signers' certificates (`PKCS7_get0_signers`) in DER order, which can differ from the
    /// order of signing. Returns an empty chain if the certificate of any signer is not embedded. Checks no
    /// signature. OpenSSL's reasons stay in its error queue.
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL runs out of memory
    X509CertificateChain getSignerCerts() const;

    /// Checks the signatures over the content, and whether the signer's chain leads to a trusted root
    /// (`PKCS7_verify`).
    ///
    /// @param intermediates certificates that help to build the chain; may be empty. Pass only certificates
    ///     that you trust, and no embedded ones: a self-signed one counts as a root in OpenSSL's own check.
    ///     X509Certificate::isSelfSigned() does not find all of them, because OpenSSL ignores case and
    ///     repeated blanks in names
    /// @param trustStore the trusted roots; the operating system's if it is empty. Never modified
    /// @param data the detached content; empty for embedded content. If the content is embedded and given,
    ///     the given bytes are verified and the embedded ones are not
    /// @return the verdict on the signatures, the verdict on the chain, and a text
    ///
    /// The outcomes:
    /// - All signatures are valid and OpenSSL trusts all signers: true, `Valid`, no text.
    /// - A signature is invalid, or there is no content, signature or signer: false, `Failed`, OpenSSL's
    ///   reason.
    /// - The signatures are valid and OpenSSL rejects a chain: true, and the verdict and text of
    ///   X509Certificate::validateCertificate on the first signer of getSignerCerts. If that passes: true,
    ///   `Valid`, "certificate verify error".
    /// - A certificate in a chain has an invalid signature: false, `Failed`, OpenSSL's reason.
    ///
    /// The text can be present although the chain is valid. Use the two verdicts or
    /// PKCS7CertificateValidationResults::isValidSignature.
    ///
    /// The intermediates count as trusted in OpenSSL's own check, and only as intermediates in
    /// validateCertificate. Embedded certificates help only in OpenSSL's own check, and are not trusted
    /// there. OpenSSL checks every signer; validateCertificate checks the first one and looks at no purpose.
    ///
    /// OpenSSL's reason is the oldest entry in its error queue, which this operation does not clear. An entry
    /// from an earlier call, such as a getSignedData that returned nothing, replaces the reason. A failed
    /// chain is then reported as an invalid signature. So is a chain with invalid extensions in an embedded
    /// certificate, but only once: OpenSSL queues their errors in the first verification that needs them.
    ///
    /// Holds the lock for the whole call. A trust store that cannot be read or copied is not reported; the
    /// roots read before the failure are used.
    /// @throws PKCS7CertificateException "Internal error: The given input data bytes could not be written
    ///     to a buffer."
    /// @throws PKCS7CertificateException "Internal error: The PKCS7 structure could not be copied." if
    ///     OpenSSL runs out of memory
    /// @throws CertificateException as X509Certificate::validateCertificate does
    PKCS7CertificateValidationResults verifySignature(
        X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const;

    /// Writes a heading and the report of each certificate. Holds the lock while writing.
    void print(std::ostream& out) const;

    /// Appends a copy of the certificate to getCertificates. The signed data does not change: the certificate
    /// is not part of getAsBytes and takes no part in signature checks. An uninitialized object becomes
    /// usable again. Copies the certificate before it takes this object's lock.
    /// @throws InvalidArgument "The provided certificate has no content."
    void addCertificate(X509Certificate const& certificate);

    /// Whether both objects have equal certificates in the same order. Does not compare signatures and
    /// contents. Locks one object after the other.
    bool operator==(PKCS7Certificate const& other) const;
    /// Whether the two differ. Throws as operator== does.
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
