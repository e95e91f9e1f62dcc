#pragma once

#include <foundation/certificates/TrustStore.hpp>

#include <memory>

namespace foundation::certificates {

/// Returns a new adder of the platform that the library is built for.
std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder();

} // namespace foundation::certificates
