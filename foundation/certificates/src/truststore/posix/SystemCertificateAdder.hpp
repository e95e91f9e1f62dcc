#pragma once

/// @file
/// The operating system's root certificates on Unix systems: PEM files in locations that differ from system
/// to system.
///
/// If the environment variable SSL_CERT_FILE or SSL_CERT_DIR is set and not empty, the adder reads only the
/// locations that the two name. It reads the file first, then all files of each folder. Folders are separated
/// by colons. Folders that do not exist are skipped, unless none of them exists. A privileged process ignores
/// the variables. Each operation reads them again.
///
/// Otherwise the adder reads the first well-known bundle that exists, or else the first well-known folder
/// that exists. It reads no other location: a system that has several has the same certificates in each. A
/// location to which access is denied does not count.
///
/// If a location exists and cannot be read, the run ends with an exception. Otherwise other roots, or no
/// roots, would replace the system's.
///
/// Each PEM block is handled by itself. A block that is damaged, is truncated, or holds no certificate does
/// not affect the other blocks. It is handled like a certificate that the trust store refuses: it is logged,
/// or ends the run if the caller asked for that.
///
/// A certificate is delivered if it fits the usage. It fits if it is not restricted to any extended key
/// usages, or if one of them belongs to the usage. A block labeled TRUSTED CERTIFICATE holds a certificate
/// and trust settings (openssl-x509, -addtrust and -addreject). The certificate is delivered without the
/// settings, but they count as restrictions. Purposes that it is trusted for count like its extended key
/// usages. If it is rejected for a purpose of the usage, it is not delivered.

#include "truststore/posix/SystemCertificateLocations.hpp"

#include <foundation/certificates/TrustStore.hpp>

#include <optional>
#include <string>

namespace foundation::certificates::posix {

class SystemCertificateAdder : public ISystemCertificateAdder
{
public:
    /// Reads the locations that the environment names, or else the well-known ones.
    SystemCertificateAdder();
    /// Reads the given locations. The environment has no influence.
    explicit SystemCertificateAdder(SystemCertificateLocations locationsInOrder);

    ISystemCertificateAdder* clone() const override;
    /// @throws TrustStoreException "Failed to open system certificate store: " and all locations, if none of
    ///     the well-known ones exists; or the named folders, if none of them exists
    /// @throws TrustStoreException "Failed to read " and the bundle or the folder, if it cannot be read
    /// @throws TrustStoreException if rethrowOnFailure: "Unusable PEM block in " and the file, ": " and the
    ///     block's label; "Failed to read " and a file of the folder; and what
    ///     TrustStoreImpl::addDERCertificate throws
    void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage usage, bool rethrowOnFailure) override;

    /// Returns SSL_CERT_FILE if the environment names the locations. Otherwise returns the bundle that is
    /// used at present, or an empty string.
    std::string file() const;
    /// Returns SSL_CERT_DIR if the environment names the locations. Otherwise returns the folder that is used
    /// at present, or an empty string: if there is a bundle, no folder is used.
    std::string folder() const;

private:
    SystemCertificateLocations locations() const;
    std::optional<NamedCertificateLocations> namedLocations() const;

    std::optional<SystemCertificateLocations> fixedLocations;
};

} // namespace foundation::certificates::posix
