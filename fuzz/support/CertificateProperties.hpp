#pragma once

#include <foundation/certificates/X509Certificate.hpp>

namespace foundation::fuzz {

/// Everything that must hold of a certificate that was loaded, wherever it came from: its queries answer or
/// fail with an exception of the family and agree with each other, and what it writes loads and is equal.
/// Aborts for anything else. Leaves OpenSSL's error queue empty.
void checkCertificate(certificates::X509Certificate const& certificate);

/// The last part alone: DER, base64 and PEM text load and give an equal certificate.
void checkOutputLoads(certificates::X509Certificate const& certificate);

} // namespace foundation::fuzz
