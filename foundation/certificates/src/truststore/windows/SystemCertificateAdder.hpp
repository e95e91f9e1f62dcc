#pragma once

#include <foundation/certificates/TrustStore.hpp>

namespace foundation::certificates::windows {

/// Takes the roots from the current user's root store, which shows the machine's as well, or from the
/// machine's where the user's cannot be opened.
class SystemCertificateAdder : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override;
    /// Windows itself looks for the certificates that fit the usage: those that name one of its extended
    /// key usages, and those that are not restricted to any.
    /// @throws TrustStoreException "Failed to open system certificate store: (" and the code of Windows'
    ///     error in decimal, ") " and Windows' text for it, without line ends
    /// @throws TrustStoreException if rethrowOnFailure: what TrustStoreImpl::addDERCertificate throws
    void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) override;
};

} // namespace foundation::certificates::windows
