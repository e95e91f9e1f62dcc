#include <foundation/certificates/TrustStore.hpp>

#include "certificate/X509Access.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <utility>

namespace foundation::certificates {

ISystemCertificateAdder::~ISystemCertificateAdder() = default;

// Special members

TrustStore::TrustStore() : impl(std::make_unique<TrustStoreImpl>()) {}

TrustStore::TrustStore(std::unique_ptr<ISystemCertificateAdder> adder)
    : impl(std::make_unique<TrustStoreImpl>(std::move(adder)))
{}

TrustStore::TrustStore(TrustStore const& other)
{
    std::lock_guard<std::mutex> const lock(other.mutex);
    if (other.impl == nullptr) {
        throw TrustStoreException("Error: TrustStore is uninitialized.");
    }
    impl = std::make_unique<TrustStoreImpl>(*other.impl, lock);
}

TrustStore::TrustStore(TrustStore&& other) noexcept : impl(std::move(other.impl)) {}

TrustStore::~TrustStore() = default;

TrustStore& TrustStore::operator=(TrustStore const& other)
{
    TrustStore copy(other);
    swap(copy);
    return *this;
}

TrustStore& TrustStore::operator=(TrustStore&& other) noexcept
{
    swap(other);
    return *this;
}

void TrustStore::swap(TrustStore& other) noexcept
{
    impl.swap(other.impl);
}

void TrustStore::ensureImpl()
{
    if (impl == nullptr) {
        impl = std::make_unique<TrustStoreImpl>();
    }
}

// The adding operations make an uninitialized trust store usable again

void TrustStore::addCertificate(X509Certificate const& certificate)
{
    if (certificate.empty()) {
        throw TrustStoreException("Input certificate is empty.");
    }
    // Validation takes this lock while it holds the certificate's. To avoid a deadlock, this operation never
    // holds both.
    auto const shared = X509Access::share(certificate);
    std::lock_guard<std::mutex> const lock(mutex);
    ensureImpl();
    impl->addCertificate(shared.get());
}

void TrustStore::addCertificates(X509CertificateChain const& chain)
{
    if (chain.empty()) {
        return;
    }
    std::lock_guard<std::mutex> const lock(mutex);
    ensureImpl();
    impl->addCertificates(chain);
}

void TrustStore::addSystemCertificates(Usage usage, bool rethrowOnFailure)
{
    std::lock_guard<std::mutex> const lock(mutex);
    ensureImpl();
    impl->addSystemCertificates(usage, rethrowOnFailure);
}

// The reading operations treat an uninitialized trust store as empty

bool TrustStore::empty() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    return impl == nullptr || impl->empty();
}

std::size_t TrustStore::size() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    return impl == nullptr ? 0 : impl->size();
}

X509CertificateChain TrustStore::getCertificates() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    return impl == nullptr ? X509CertificateChain() : impl->getCertificates();
}

std::vector<std::string> TrustStore::getPEMStrings() const
{
    std::lock_guard<std::mutex> const lock(mutex);
    return impl == nullptr ? std::vector<std::string>() : impl->getPEMStrings();
}

} // namespace foundation::certificates
