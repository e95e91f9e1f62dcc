#include <foundation/certificates/X509CertificateChain.hpp>

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include <ostream>
#include <utility>

namespace foundation::certificates {

// Special members

X509CertificateChain::X509CertificateChain() : impl(std::make_unique<X509CertificateChainImpl>()) {}

X509CertificateChain::X509CertificateChain(std::string const& pem)
    : impl(std::make_unique<X509CertificateChainImpl>(pem))
{}

X509CertificateChain::X509CertificateChain(std::istream& stream)
    : impl(std::make_unique<X509CertificateChainImpl>(stream))
{}

X509CertificateChain::X509CertificateChain(X509CertificateChain const& other)
{
    std::lock_guard<std::mutex> const lock(other.mutex);
    other.throwIfImplEmpty();
    impl = std::make_unique<X509CertificateChainImpl>(*other.impl, lock);
}

X509CertificateChain::X509CertificateChain(X509CertificateChain&& other) noexcept
    : impl(std::move(other.impl))
{}

X509CertificateChain::~X509CertificateChain() = default;

X509CertificateChain& X509CertificateChain::operator=(X509CertificateChain const& other)
{
    X509CertificateChain copy(other);
    swap(copy);
    return *this;
}

X509CertificateChain& X509CertificateChain::operator=(X509CertificateChain&& other) noexcept
{
    swap(other);
    return *this;
}

void X509CertificateChain::swap(X509CertificateChain& other) noexcept
{
    impl.swap(other.impl);
}

void X509CertificateChain::throwIfImplEmpty() const
{
    if (impl == nullptr) {
        throw X509CertificateChainException("Error: X509CertificateChain is uninitialized.");
    }
}

void X509CertificateChain::addCertificate(X509Certificate const& certificate)
{
    if (certificate.empty()) {
        throw InvalidArgument("The provided certificate has no content.");
    }
    // Validation takes this lock while it holds the certificate's. To avoid a deadlock, this operation never
    // holds both.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy takes the certificate's lock
    X509Certificate const copy(certificate);
    std::lock_guard<std::mutex> const lock(mutex);
    if (impl == nullptr) {
        impl = std::make_unique<X509CertificateChainImpl>();
    }
    impl->addCertificate(copy);
}

// Read operations: lock, check, forward

bool X509CertificateChain::empty() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->empty();
}

std::size_t X509CertificateChain::getNumCertificates() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getNumCertificates();
}

std::vector<X509Certificate> X509CertificateChain::getCertificates() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getCertificates();
}

void X509CertificateChain::print(std::ostream& out) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    impl->print(out);
}

X509Certificate X509CertificateChain::popLeafCertificate()
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->popLeafCertificate();
}

// Operations built on those above, which lock one object at a time

std::string X509CertificateChain::getAsString() const
{
    std::string bundle;
    if (empty()) {
        return bundle;
    }
    for (X509Certificate const& certificate : getCertificates()) {
        bundle += "-----BEGIN CERTIFICATE-----\n";
        bundle += certificate.getAsString();
        bundle += "\n-----END CERTIFICATE-----\n";
    }
    return bundle;
}

bool X509CertificateChain::operator==(X509CertificateChain const& other) const
{
    std::vector<X509Certificate> const theirs = other.getCertificates();
    return getCertificates() == theirs;
}

bool X509CertificateChain::operator!=(X509CertificateChain const& other) const
{
    return !(*this == other);
}

std::ostream& operator<<(std::ostream& out, X509CertificateChain const& chain)
{
    chain.print(out);
    return out;
}

} // namespace foundation::certificates
