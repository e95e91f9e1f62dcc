#include "truststore/DefaultSystemCertificateAdder.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#ifdef _WIN32
#include "truststore/windows/SystemCertificateAdder.hpp"
#else
#include "truststore/posix/SystemCertificateAdder.hpp"
#endif

namespace foundation::certificates {

#ifdef _WIN32

std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder()
{
    return std::make_unique<windows::SystemCertificateAdder>();
}

std::string getSystemCertificatesFile()
{
    return {};
}

std::string getSystemCertificatesFolder()
{
    return {};
}

#else

std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder()
{
    return std::make_unique<posix::SystemCertificateAdder>();
}

std::string getSystemCertificatesFile()
{
    return posix::SystemCertificateAdder().file();
}

std::string getSystemCertificatesFolder()
{
    return posix::SystemCertificateAdder().folder();
}

#endif

} // namespace foundation::certificates
