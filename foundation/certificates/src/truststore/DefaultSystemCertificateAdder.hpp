#pragma once

#include <foundation/certificates/TrustStore.hpp>

#include <memory>

namespace foundation::certificates {

/// The adder of the platform that the library is built for.
std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder();

} // namespace foundation::certificates
