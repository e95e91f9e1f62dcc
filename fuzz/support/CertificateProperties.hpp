#pragma once

#include <foundation/certificates/X509Certificate.hpp>

namespace foundation::fuzz {

/// Checks a loaded certificate. Its queries must succeed, or fail with one of the library's exceptions. They
/// must agree with each other. What it writes must load as an equal certificate. Leaves OpenSSL's error queue
/// empty.
void checkCertificate(certificates::X509Certificate const& certificate);

/// Checks that the written DER, base64 and PEM load as an equal certificate.
void checkOutputLoads(certificates::X509Certificate const& certificate);

} // namespace foundation::fuzz
