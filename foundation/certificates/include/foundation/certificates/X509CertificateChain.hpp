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

/// An ordered list of certificates, as a value: intermediates for a validation, or what a container held.
///
/// The order is that of input; nothing is sorted, linked by issuer or removed as a duplicate.
///
/// A chain that was moved from by the move constructor is uninitialized: every operation but
/// addCertificate, assignment and destruction throws X509CertificateChainException "Error:
/// X509CertificateChain is uninitialized." This failure is not repeated below.
///
/// Each object has a lock of its own. Unless said otherwise an operation holds it for its whole run;
/// moving, assigning to and destroying an object take no lock on it.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChain
{
public:
    /// An empty chain.
    X509CertificateChain();

    /// Loads all certificates of a text of concatenated PEM blocks (`PEM_X509_INFO_read_bio`), in the
    /// text's order; text around the blocks is skipped, and so are blocks that hold neither certificate, key
    /// nor CRL; a NUL character ends the text. Never asks for a passphrase. One damaged block, one
    /// certificate that X509Certificate refuses, one key or one CRL refuses the whole text.
    /// @throws InvalidArgument "The provided certificate chain string has no content."
    /// @throws X509CertificateChainException "Error: Unable to parse X509 certificate inside X509
    ///     certificate chain." and what() of the certificate's failure
    /// @throws X509CertificateChainException "Error: Loading a certificate chain failed. Reason=" and
    ///     OpenSSL's reason
    X509CertificateChain(std::string const& pem);
    /// Loads from the rest of the stream, read through its buffer: the stream's state flags
    /// stay as they are.
    /// @throws InvalidArgument also "The input certificate chain data stream is invalid." if the stream is
    ///     not good, and "The input X509 certificate chain data stream is invalid. Reason:" and the cause
    ///     if reading fails
    X509CertificateChain(std::istream& stream);

    /// Holds the source's lock for the whole copy.
    X509CertificateChain(X509CertificateChain const& other);
    /// Leaves the source uninitialized.
    X509CertificateChain(X509CertificateChain&& other) noexcept;
    ~X509CertificateChain();

    /// Copies, then exchanges: holds the source's lock during the copy, and takes none on this object.
    X509CertificateChain& operator=(X509CertificateChain const& other);
    /// Exchanges the two lists: the source is left holding what this object held.
    X509CertificateChain& operator=(X509CertificateChain&& other) noexcept;

    /// Appends a copy of the certificate, whatever it is. An uninitialized chain becomes usable again
    /// through this. The copy is made before this chain's lock is taken.
    /// @throws InvalidArgument "The provided certificate has no content."
    void addCertificate(X509Certificate const& certificate);

    /// Whether the list holds no certificate.
    bool empty() const;
    /// The length of the list.
    std::size_t getNumCertificates() const;
    /// A copy of the list.
    std::vector<X509Certificate> getCertificates() const;
    /// A PEM bundle in which each certificate's base64 stands on one line; empty for an empty chain. Takes
    /// the lock once for each of its steps.
    std::string getAsString() const;
    /// Writes a heading and the report of each certificate, with the lock held.
    void print(std::ostream& out) const;

    /// Removes and returns the first certificate that is not a CA's (X509Certificate::isCACertificate),
    /// wherever it stands; the others keep their order. The chain is unchanged after a failure.
    /// @throws X509CertificateChainException "X509CertificateChain has no content."
    /// @throws X509CertificateChainException "Unable to find a leaf certificate in the given
    ///     certificate chain"
    X509Certificate popLeafCertificate();

    /// Whether both hold equal certificates in the same order. Never holds the locks of both.
    bool operator==(X509CertificateChain const& other) const;
    /// The opposite of operator==. Fails as that does.
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
