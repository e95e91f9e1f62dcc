#pragma once

#include <foundation/certificates/TrustStore.hpp>

namespace foundation::certificates::windows {

/// Reads the roots from the current user's root store, which includes the machine's. If that cannot be
/// opened, reads the machine's.
class SystemCertificateAdder : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override;
    /// Windows selects the certificates that fit the usage: those that name one of its extended key usages,
    /// and those without a restriction.
    /// @throws TrustStoreException "Failed to open system certificate store: (" and the decimal
    ///     code of Windows' error, ") " and Windows' text for it, without line breaks
    /// @throws TrustStoreException if rethrowOnFailure: what TrustStoreImpl::addDERCertificate throws
    void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) override;
};

} // namespace foundation::certificates::windows
