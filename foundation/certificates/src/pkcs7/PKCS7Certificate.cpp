#include <foundation/certificates/PKCS7Certificate.hpp>

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <ostream>
#include <utility>

namespace foundation::certificates {

// Special members

PKCS7Certificate::PKCS7Certificate() : impl(std::make_unique<PKCS7CertificateImpl>()) {}

PKCS7Certificate::PKCS7Certificate(ByteArray const& data) : impl(std::make_unique<PKCS7CertificateImpl>(data))
{}

PKCS7Certificate::PKCS7Certificate(std::string const& data)
    : impl(std::make_unique<PKCS7CertificateImpl>(data))
{}

PKCS7Certificate::PKCS7Certificate(std::istream& stream)
    : impl(std::make_unique<PKCS7CertificateImpl>(stream))
{}

PKCS7Certificate::PKCS7Certificate(PKCS7Certificate const& other)
{
    std::lock_guard<std::mutex> const lock(other.mutex);
    other.throwIfImplEmpty();
    impl = std::make_unique<PKCS7CertificateImpl>(*other.impl, lock);
}

PKCS7Certificate::PKCS7Certificate(PKCS7Certificate&& other) noexcept : impl(std::move(other.impl)) {}

PKCS7Certificate::~PKCS7Certificate() = default;

PKCS7Certificate& PKCS7Certificate::operator=(PKCS7Certificate const& other)
{
    PKCS7Certificate copy(other);
    swap(copy);
    return *this;
}

PKCS7Certificate& PKCS7Certificate::operator=(PKCS7Certificate&& other) noexcept
{
    swap(other);
    return *this;
}

void PKCS7Certificate::swap(PKCS7Certificate& other) noexcept
{
    impl.swap(other.impl);
}

void PKCS7Certificate::throwIfImplEmpty() const
{
    if (impl == nullptr) {
        throw PKCS7CertificateException("Error: PKCS7Certificate is uninitialized.");
    }
}

// Read operations: lock, check, forward

bool PKCS7Certificate::empty() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->empty();
}

std::vector<X509Certificate> PKCS7Certificate::getCertificates() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getCertificates();
}

std::uint64_t PKCS7Certificate::getNumCertificates() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getNumCertificates();
}

ByteArray PKCS7Certificate::getSignedData() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSignedData();
}

X509CertificateChain PKCS7Certificate::getSignerCerts() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getSignerCerts();
}

PKCS7CertificateValidationResults PKCS7Certificate::verifySignature(
    X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->verifySignature(intermediates, trustStore, data);
}

void PKCS7Certificate::print(std::ostream& out) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    impl->print(out);
}

// These lock the object twice: for the test of emptiness, and for the output

ByteArray PKCS7Certificate::getAsBytes() const
{
    if (empty()) {
        return {};
    }
    std::lock_guard<std::mutex> const lock(mutex);
    return impl->getAsBytes();
}

std::string PKCS7Certificate::getAsString() const
{
    if (empty()) {
        return {};
    }
    std::lock_guard<std::mutex> const lock(mutex);
    return impl->getAsString();
}

// The only operation that changes the object. It also makes a moved-from object usable again.

void PKCS7Certificate::addCertificate(X509Certificate const& certificate)
{
    if (certificate.empty()) {
        throw InvalidArgument("The provided certificate has no content.");
    }
    // The copy locks the certificate before this object's lock is taken, so that the two locks never nest.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): see above
    X509Certificate const copy(certificate);
    std::lock_guard<std::mutex> const lock(mutex);
    if (impl == nullptr) {
        impl = std::make_unique<PKCS7CertificateImpl>();
    }
    impl->addCertificate(copy);
}

// Uses the operations above, each of which locks its own object

bool PKCS7Certificate::operator==(PKCS7Certificate const& other) const
{
    auto const otherCertificates = other.getCertificates();
    return getCertificates() == otherCertificates;
}

bool PKCS7Certificate::operator!=(PKCS7Certificate const& other) const
{
    return !(*this == other);
}

std::ostream& operator<<(std::ostream& out, PKCS7Certificate const& certificate)
{
    certificate.print(out);
    return out;
}

} // namespace foundation::certificates
