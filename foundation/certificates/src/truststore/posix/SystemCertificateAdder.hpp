#pragma once

/// @file
/// The operating system's root certificates on Unix systems: PEM files in places that differ from
/// system to system.
///
/// The adder reads the first bundle that exists, or else the first folder that exists, and nothing more: a
/// system that has several has the same certificates in each. No environment variable and no configuration
/// changes that.
///
/// A bundle or folder exists unless it is missing or access to it is denied. If it exists and cannot be read,
/// the run ends with an exception. Other roots, or none, would take the place of the system's.
///
/// Each PEM block counts by itself. A block that is damaged, is cut short, or holds no certificate takes
/// none of its neighbours with it, and is handled as a certificate that the trust store refuses: it is
/// logged, or ends the run if the caller asked for that.
///
/// A certificate is delivered if it fits the usage: it is not restricted to any extended key usages, or to
/// some of which the usage wants one. A block labelled TRUSTED CERTIFICATE holds a certificate and further
/// settings beside it (openssl-x509, -addtrust and -addreject). The certificate is delivered without them,
/// but they count as restrictions: purposes that it is trusted for like its extended key usages, and a
/// purpose that it is rejected for keeps it out.

#include "truststore/posix/SystemCertificateLocations.hpp"

#include <foundation/certificates/TrustStore.hpp>

#include <string>

namespace foundation::certificates::posix {

class SystemCertificateAdder : public ISystemCertificateAdder
{
public:
    /// Looks where the known systems have their roots.
    SystemCertificateAdder();
    explicit SystemCertificateAdder(SystemCertificateLocations locationsInOrder);

    ISystemCertificateAdder* clone() const override;
    /// @throws TrustStoreException "Failed to open system certificate store: " and all locations, if there
    ///     is nothing at any of them
    /// @throws TrustStoreException "Failed to read " and the bundle or the folder, if it exists and cannot be
    ///     read
    /// @throws TrustStoreException if rethrowOnFailure: "Unusable PEM block in " and the file, ": " and the
    ///     block's label; "Failed to read " and a file of the folder; and what
    ///     TrustStoreImpl::addDERCertificate throws
    void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) override;

    /// The bundle file that is taken at present, or an empty string.
    std::string file() const;
    /// The folder that is taken at present, or an empty string: it is not looked at where there is a
    /// bundle.
    std::string folder() const;

private:
    SystemCertificateLocations locations;
};

} // namespace foundation::certificates::posix
