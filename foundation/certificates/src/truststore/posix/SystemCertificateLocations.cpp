#include "truststore/posix/SystemCertificateLocations.hpp"

#include <cstdlib>
#include <sstream>

#include <unistd.h>

namespace foundation::certificates::posix {

namespace {

/// Returns the variable's value; an empty string if it is unset, and in a privileged process.
std::string trustworthyVariable(char const* name)
{
#ifdef __linux__
    char const* const value = secure_getenv(name);
#else
    // NOLINTNEXTLINE(concurrency-mt-unsafe): a program that changes its environment has no other threads
    char const* const value = issetugid() != 0 ? nullptr : std::getenv(name);
#endif
    return value == nullptr ? "" : value;
}

} // namespace

SystemCertificateLocations wellKnownLocations()
{
    SystemCertificateLocations locations;
    locations.files = {
        "/etc/ssl/certs/ca-certificates.crt",                // Debian, Ubuntu, Alpine, Arch
        "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", // Fedora, RHEL
        "/etc/pki/tls/certs/ca-bundle.crt",                  // Fedora, RHEL, older releases
        "/var/lib/ca-certificates/ca-bundle.pem",            // openSUSE
        "/etc/ssl/ca-bundle.pem",                            // openSUSE, older releases
        "/etc/ca-certificates/extracted/tls-ca-bundle.pem",  // Arch
        "/usr/local/share/certs/ca-root-nss.crt",            // FreeBSD, from its package
        "/etc/ssl/cert.pem",                                 // macOS, FreeBSD, Alpine
    };
    locations.folders = {
        "/etc/ssl/certs",                       // Debian, Ubuntu, openSUSE, Alpine, Arch, FreeBSD
        "/etc/pki/tls/certs",                   // Fedora, RHEL
        "/var/lib/ca-certificates/pem",         // openSUSE
        "/etc/ca-certificates/extracted/cadir", // Arch
        "/usr/share/certs/trusted",             // FreeBSD
    };
    return locations;
}

std::optional<NamedCertificateLocations> locationsFromEnvironment()
{
    NamedCertificateLocations named;
    named.file = trustworthyVariable("SSL_CERT_FILE");
    named.folders = trustworthyVariable("SSL_CERT_DIR");
    if (named.file.empty() && named.folders.empty()) {
        return std::nullopt;
    }
    return named;
}

std::vector<std::string> splitFolders(std::string const& list)
{
    std::vector<std::string> folders;
    std::istringstream input(list);
    for (std::string folder; std::getline(input, folder, ':');) {
        if (!folder.empty()) {
            folders.push_back(folder);
        }
    }
    return folders;
}

} // namespace foundation::certificates::posix
