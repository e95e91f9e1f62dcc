#pragma once

#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/export.hpp>

#include <cstddef>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

/// The implementation of X509CertificateChain: the list itself. It has no lock and is called by its handle,
/// which holds its own; the operations are described there.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChainImpl
{
public:
    /// An empty list.
    X509CertificateChainImpl();
    /// Loads as X509CertificateChain does.
    X509CertificateChainImpl(std::string const& pem);
    /// Loads as X509CertificateChain does.
    X509CertificateChainImpl(std::istream& stream);
    /// The guard proves that the caller holds the lock of the source's handle.
    X509CertificateChainImpl(
        X509CertificateChainImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    /// Leaves the source empty.
    X509CertificateChainImpl(X509CertificateChainImpl&& other) noexcept;
    ~X509CertificateChainImpl();

    /// Copies the list.
    X509CertificateChainImpl& operator=(X509CertificateChainImpl const& other);
    /// Copies the source's certificates and empties the source, in this order: an object that is
    /// move-assigned to itself is empty afterwards.
    // NOLINTNEXTLINE(performance-noexcept-move-constructor): it copies
    X509CertificateChainImpl& operator=(X509CertificateChainImpl&& other);

    /// Appends a copy, an empty certificate too: the refusal of that is the handle's.
    void addCertificate(X509Certificate const& certificate);
    /// Whether the list holds no certificate.
    bool empty() const;
    /// The length of the list.
    std::size_t getNumCertificates() const;
    /// A copy of the list.
    std::vector<X509Certificate> getCertificates() const;
    /// See X509CertificateChain::print.
    void print(std::ostream& out) const;
    /// See X509CertificateChain::popLeafCertificate.
    X509Certificate popLeafCertificate();

    /// Refuses an empty list.
    /// @throws X509CertificateChainException "X509CertificateChain has no content."
    void throwIfEmpty() const;

private:
    void init(std::string const& text);

    std::vector<X509Certificate> certificates;
};

} // namespace foundation::certificates
