#include <foundation/certificates/PKCS12Certificate.hpp>

#include "pkcs12/PKCS12CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <ostream>
#include <utility>

namespace foundation::certificates {

// Special members

PKCS12Certificate::PKCS12Certificate() : impl(std::make_unique<PKCS12CertificateImpl>()) {}

PKCS12Certificate::PKCS12Certificate(ByteArray const& bytes, std::string const& passphrase)
    : impl(std::make_unique<PKCS12CertificateImpl>(bytes, passphrase))
{}

PKCS12Certificate::PKCS12Certificate(std::istream& stream, std::string const& passphrase)
    : impl(std::make_unique<PKCS12CertificateImpl>(stream, passphrase))
{}

PKCS12Certificate::PKCS12Certificate(PKCS12Certificate const& other)
{
    std::lock_guard<std::mutex> const lock(other.mutex);
    other.throwIfImplEmpty();
    impl = std::make_unique<PKCS12CertificateImpl>(*other.impl, lock);
}

PKCS12Certificate::PKCS12Certificate(PKCS12Certificate&& other) noexcept : impl(std::move(other.impl)) {}

PKCS12Certificate::~PKCS12Certificate() = default;

PKCS12Certificate& PKCS12Certificate::operator=(PKCS12Certificate const& other)
{
    PKCS12Certificate copy(other);
    swap(copy);
    return *this;
}

PKCS12Certificate& PKCS12Certificate::operator=(PKCS12Certificate&& other) noexcept
{
    swap(other);
    return *this;
}

void PKCS12Certificate::swap(PKCS12Certificate& other) noexcept
{
    impl.swap(other.impl);
}

void PKCS12Certificate::throwIfImplEmpty() const
{
    if (impl == nullptr) {
        throw PKCS12CertificateException("Error: PKCS12Certificate is uninitialized.");
    }
}

// Read operations: lock, check, forward

bool PKCS12Certificate::empty() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->empty();
}

ByteArray PKCS12Certificate::getAsBytes() const
{
    if (empty()) {
        return {};
    }
    std::lock_guard<std::mutex> const lock(mutex);
    return impl->getAsBytes();
}

X509Certificate PKCS12Certificate::getCertificate() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getCertificate();
}

X509CertificateChain PKCS12Certificate::getCAChain() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getCAChain();
}

ByteArray PKCS12Certificate::getPrivateExponent() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getPrivateExponent();
}

std::optional<PrivateKeyInfo> PKCS12Certificate::getPrivateKeyInfo() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    return impl->getPrivateKeyInfo();
}

void PKCS12Certificate::print(std::ostream& out) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    impl->print(out);
}

// Takes one lock only. An object can be compared with itself, and two threads cannot block each other.
bool PKCS12Certificate::operator==(PKCS12Certificate const& other) const
{
    std::lock_guard<std::mutex> const lock(mutex);
    throwIfImplEmpty();
    other.throwIfImplEmpty();
    return *impl == *other.impl;
}

bool PKCS12Certificate::operator!=(PKCS12Certificate const& other) const
{
    return !(*this == other);
}

std::ostream& operator<<(std::ostream& out, PKCS12Certificate const& bundle)
{
    bundle.print(out);
    return out;
}

} // namespace foundation::certificates
