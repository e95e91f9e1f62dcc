#include "truststore/posix/SystemCertificateLocations.hpp"

namespace foundation::certificates::posix {

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

} // namespace foundation::certificates::posix
