#include <foundation/certificates/Exceptions.hpp>

namespace foundation::certificates {

CertificateException::CertificateException(std::string const& message) : std::runtime_error(message) {}

CertificateException::~CertificateException() = default;

TrustStoreException::TrustStoreException(std::string const& message) : std::runtime_error(message) {}

TrustStoreException::~TrustStoreException() = default;

} // namespace foundation::certificates
