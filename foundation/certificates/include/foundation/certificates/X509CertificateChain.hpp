#pragma once

#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/export.hpp>

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

class X509CertificateChainImpl;

/// An ordered list of certificates, as a value: intermediates for a validation, or the content of a
/// container.
///
/// The order is that of the input. The chain is not sorted, not linked by issuer, and may contain duplicates.
///
/// A chain whose content was taken by the move constructor is uninitialized. Only addCertificate, assignment
/// and destruction work on it. Every other operation, copying included, throws X509CertificateChainException
/// "Error: X509CertificateChain is uninitialized." The comments below do not repeat this failure.
///
/// Each object has its own lock. Unless noted otherwise, an operation holds the lock for the whole call.
/// Moving, assigning to and destroying an object take no lock on it. Do not do that while another thread uses
/// the object.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChain
{
public:
    /// Creates an empty chain.
    X509CertificateChain();

    /// Loads all certificates of a text of concatenated PEM blocks (`PEM_X509_INFO_read_bio`), in the order
    /// of the text. Skips text around the blocks, and blocks with other labels than those of certificates,
    /// keys and CRLs. A NUL character ends the text. Never asks for a passphrase. Refuses the whole text if
    /// it contains a damaged block, a key, a CRL, or a certificate that X509Certificate refuses. Clears
    /// OpenSSL's error queue first and leaves it empty after a failure. Empty input leaves the queue
    /// unchanged.
    /// @throws InvalidArgument "The provided certificate chain string has no content."
    /// @throws X509CertificateChainException "Error: Unable to parse X509 certificate inside X509
    ///     certificate chain." and what() of the certificate's failure
    /// @throws X509CertificateChainException "Error: Loading a certificate chain failed. Reason=" and
    ///     OpenSSL's reason
    X509CertificateChain(std::string const& pem);
    /// Loads from the rest of the stream. Reads through the stream's buffer and leaves its state flags
    /// unchanged.
    /// @throws InvalidArgument also "The input certificate chain data stream is invalid.", with nothing read,
    ///     if the stream is not good(); "The input X509 certificate chain data stream is invalid. Reason:"
    ///     and the cause, if reading fails
    X509CertificateChain(std::istream& stream);
    /// Refuses a `std::filesystem::path`, which would convert to a string: its characters are not a chain.
    template <typename Path, typename = detail::IfFilesystemPath<Path>>
    X509CertificateChain(Path const& file) = delete;

    /// Copies the list. The copies share the parsed certificates, as copies of X509Certificate do. Holds the
    /// source's lock during the copy.
    X509CertificateChain(X509CertificateChain const& other);
    /// Leaves the source uninitialized.
    X509CertificateChain(X509CertificateChain&& other) noexcept;
    ~X509CertificateChain();

    /// Copies, then exchanges. Holds the source's lock during the copy and takes no lock on this object.
    X509CertificateChain& operator=(X509CertificateChain const& other);
    /// Exchanges the contents. The source then holds what this object held.
    X509CertificateChain& operator=(X509CertificateChain&& other) noexcept;

    /// Appends a copy of the certificate. Checks neither its issuer nor whether it is already in the list.
    /// Makes an uninitialized chain usable again. Copies the certificate before it takes this chain's lock.
    /// @throws InvalidArgument "The provided certificate has no content."
    /// @throws X509CertificateException "Error: X509Certificate is uninitialized." for a moved-from
    ///     certificate
    void addCertificate(X509Certificate const& certificate);

    /// Whether the list holds no certificate.
    bool empty() const;
    /// Returns the number of certificates.
    std::size_t getNumCertificates() const;
    /// Returns a copy of the list.
    std::vector<X509Certificate> getCertificates() const;
    /// Returns a PEM bundle with each certificate's base64 on one line; an empty text for an empty chain.
    /// Takes the lock once for each step, so that the result may contain a part of another thread's change.
    /// @throws X509CertificateException as X509Certificate::getAsString does
    std::string getAsString() const;
    /// Writes a heading of two lines and the report of each certificate (X509Certificate::print). Holds the
    /// lock while it writes.
    /// @throws X509CertificateException as X509Certificate::print does
    void print(std::ostream& out) const;

    /// Removes and returns the first certificate that is not a CA (X509Certificate::isCACertificate), at any
    /// position. The others keep their order. A failure leaves the chain unchanged.
    /// @throws X509CertificateChainException "X509CertificateChain has no content."
    /// @throws X509CertificateChainException "Unable to find a leaf certificate in the given
    ///     certificate chain"
    X509Certificate popLeafCertificate();

    /// Whether both hold equal certificates in the same order. Locks one chain after the other, never both.
    /// @throws X509CertificateException as X509Certificate::operator== does
    bool operator==(X509CertificateChain const& other) const;
    /// Whether the two differ. Throws as operator== does.
    bool operator!=(X509CertificateChain const& other) const;

private:
    void swap(X509CertificateChain& other) noexcept;
    void throwIfImplEmpty() const;

    std::unique_ptr<X509CertificateChainImpl> impl;
    mutable std::mutex mutex;
};

/// Writes the chain's report (X509CertificateChain::print) and returns the stream.
FOUNDATION_CERTIFICATES_EXPORT std::ostream& operator<<(std::ostream& out, X509CertificateChain const& chain);

} // namespace foundation::certificates
