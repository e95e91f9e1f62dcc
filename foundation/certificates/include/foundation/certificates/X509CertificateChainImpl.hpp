#pragma once

#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/export.hpp>

#include <cstddef>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::certificates {

/// The implementation of X509CertificateChain: the list itself. Has no lock; the handle calls it under the
/// handle's lock. X509CertificateChain documents the operations.
class FOUNDATION_CERTIFICATES_EXPORT X509CertificateChainImpl
{
public:
    /// Creates an empty list.
    X509CertificateChainImpl();
    /// Loads as X509CertificateChain does.
    X509CertificateChainImpl(std::string const& pem);
    /// Loads as X509CertificateChain does.
    X509CertificateChainImpl(std::istream& stream);
    /// Refuses a `std::filesystem::path`, as X509CertificateChain does.
    template <typename Path, typename = detail::IfFilesystemPath<Path>>
    X509CertificateChainImpl(Path const& file) = delete;
    /// Copies the list. The guard proves that the caller holds the lock of the source's handle.
    X509CertificateChainImpl(
        X509CertificateChainImpl const& other, std::lock_guard<std::mutex> const& sourceLock);
    /// Leaves the source empty.
    X509CertificateChainImpl(X509CertificateChainImpl&& other) noexcept;
    ~X509CertificateChainImpl();

    /// Copies the list.
    X509CertificateChainImpl& operator=(X509CertificateChainImpl const& other);
    /// Copies the source's certificates and then empties the source. An object that is move-assigned to
    /// itself is therefore empty afterwards.
    // NOLINTNEXTLINE(performance-noexcept-move-constructor): it copies
    X509CertificateChainImpl& operator=(X509CertificateChainImpl&& other);

    /// Appends a copy, even of an empty certificate: the handle refuses those.
    void addCertificate(X509Certificate const& certificate);
    /// Whether the list holds no certificate.
    bool empty() const;
    /// Returns the number of certificates.
    std::size_t getNumCertificates() const;
    /// Returns a copy of the list.
    std::vector<X509Certificate> getCertificates() const;
    /// See X509CertificateChain::print.
    void print(std::ostream& out) const;
    /// See X509CertificateChain::popLeafCertificate.
    X509Certificate popLeafCertificate();

    /// Throws if the list is empty.
    /// @throws X509CertificateChainException "X509CertificateChain has no content."
    void throwIfEmpty() const;

private:
    void init(std::string const& text);

    std::vector<X509Certificate> certificates;
};

} // namespace foundation::certificates
