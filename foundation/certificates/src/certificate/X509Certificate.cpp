#include <foundation/certificates/X509Certificate.hpp>

#include "certificate/X509CertificateImpl.hpp"

#include <ostream>
#include <utility>

namespace foundation::certificates {

// Special members

X509Certificate::X509Certificate() : impl(std::make_unique<X509CertificateImpl>()) {}

X509Certificate::X509Certificate(ByteArray const& data) : impl(std::make_unique<X509CertificateImpl>(data)) {}

X509Certificate::X509Certificate(std::string const& data) : impl(std::make_unique<X509CertificateImpl>(data))
{}

X509Certificate::X509Certificate(std::istream& stream) : impl(std::make_unique<X509CertificateImpl>(stream))
{}

X509Certificate::X509Certificate(X509Certificate const& other)
{
    std::lock_guard<std::mutex> const lock(other.mutex);
    other.throwIfImplEmpty();
    impl = std::make_unique<X509CertificateImpl>(*other.impl, lock);
}

X509Certificate::X509Certificate(X509Certificate&& other) noexcept : impl(std::move(other.impl)) {}

X509Certificate::X509Certificate(X509CertificateImpl& implementation)
{
    std::lock_guard<std::mutex> const lock(mutex);
    impl = std::make_unique<X509CertificateImpl>(implementation, lock);
}

X509Certificate::X509Certificate(X509CertificateImpl&& implementation)
    : impl(std::make_unique<X509CertificateImpl>(std::move(implementation)))
{}

X509Certificate::~X509Certificate() = default;

X509Certificate& X509Certificate::operator=(X509Certificate const& other)
{
    X509Certificate copy(other);
    swap(copy);
    return *this;
}

X509Certificate& X509Certificate::operator=(X509Certificate&& other) noexcept
{
    swap(other);
    return *this;
}

void X509Certificate::swap(X509Certificate& other) noexcept
{
    impl.swap(other.impl);
}

void X509Certificate::throwIfImplEmpty() const
{
    if (impl == nullptr) {
        throw X509CertificateException("Error: X509Certificate is uninitialized.");
    }
}

// Read operations: lock, check, forward

bool X509Certificate::empty() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->empty();
}

std::string X509Certificate::getSubjectName() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSubjectName();
}

std::string X509Certificate::getIssuerName() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getIssuerName();
}

std::unordered_map<std::string, std::string> X509Certificate::getSubjectNameAsRDNs() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSubjectNameAsRDNs();
}

std::unordered_map<std::string, std::string> X509Certificate::getIssuerNameAsRDNs() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getIssuerNameAsRDNs();
}

std::string X509Certificate::getSubjectCommonName() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSubjectCommonName();
}

std::string X509Certificate::getIssuerCommonName() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getIssuerCommonName();
}

std::string X509Certificate::getSerialNumber() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSerialNumber();
}

std::string X509Certificate::getSHA256Fingerprint() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSHA256Fingerprint();
}

std::string X509Certificate::getSignatureAlgorithm() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSignatureAlgorithm();
}

std::string X509Certificate::getValidNotBefore() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getValidNotBefore();
}

std::string X509Certificate::getValidNotAfter() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getValidNotAfter();
}

X509Certificate::TimePoint X509Certificate::getValidNotBeforeTimePoint() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getValidNotBeforeTimePoint();
}

X509Certificate::TimePoint X509Certificate::getValidNotAfterTimePoint() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getValidNotAfterTimePoint();
}

std::uint64_t X509Certificate::getKeySize() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getKeySize();
}

ByteArray X509Certificate::getModulus() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->hasRSAKey() ? impl->getModulus() : impl->getPublicKeyInfo().getRSAModulus();
}

ByteArray X509Certificate::getPublicExponent() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->hasRSAKey() ? impl->getPublicExponent() : impl->getPublicKeyInfo().getRSAPublicExponent();
}

PublicKeyInfo X509Certificate::getPublicKeyInfo() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getPublicKeyInfo();
}

std::vector<std::string> X509Certificate::getExtendedKeyUsages() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getExtendedKeyUsages();
}

std::vector<std::string> X509Certificate::getPolicies() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getPolicies();
}

bool X509Certificate::isCACertificate() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->isCACertificate();
}

bool X509Certificate::isSelfSigned() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->isSelfSigned();
}

bool X509Certificate::isValidForDigitalSigning() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->isValidForDigitalSigning();
}

ByteArray X509Certificate::getAsBytes() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getAsBytes();
}

std::string X509Certificate::getAsString() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getAsString();
}

std::string X509Certificate::getAsPEMString() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getAsPEMString();
}

void X509Certificate::print(std::ostream& out) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    impl->print(out);
}

CertificateValidationResults X509Certificate::validateCertificate(
    X509CertificateChain const& chain, CertificateValidationOptions const& options,
    TrustStore const& trustStore) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->validateCertificate(chain, options, trustStore);
}

X509Certificate
X509Certificate::getRootCACertificate(X509CertificateChain const& chain, TrustStore const& trustStore) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getRootCACertificate(chain, trustStore);
}

// Operations built on those above, which lock one object at a time

bool X509Certificate::operator==(X509Certificate const& other) const
{
    auto const encodingOf = [](X509Certificate const& certificate) {
        std::lock_guard<std::mutex> const lock(certificate.mutex);
        certificate.throwIfImplEmpty();
        return certificate.impl->encoding();
    };
    ByteArray const theirs = encodingOf(other);
    ByteArray const mine = encodingOf(*this);
    if (!theirs.empty() && !mine.empty()) {
        return mine == theirs;
    }
    // The failure that follows is that of the fingerprint.
    std::string const otherFingerprint = other.getSHA256Fingerprint();
    return getSHA256Fingerprint() == otherFingerprint;
}

bool X509Certificate::operator!=(X509Certificate const& other) const
{
    return !(*this == other);
}

std::ostream& operator<<(std::ostream& out, X509Certificate const& certificate)
{
    certificate.print(out);
    return out;
}

} // namespace foundation::certificates
