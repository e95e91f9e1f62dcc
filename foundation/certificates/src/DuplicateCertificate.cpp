#include "DuplicateCertificate.hpp"

#include "OpenSSLResult.hpp"
#include "X509CertificateImpl.hpp"

namespace foundation::certificates {

X509UPtr duplicateX509Of(X509Certificate const& certificate)
{
    X509CertificateImpl const reread(certificate.getAsPEMString());
    auto duplicate = makeX509(reread.duplicateX509());
    throwIfNull<X509CertificateException>(duplicate.get(), "Error: X509Certificate has no content.");
    return duplicate;
}

} // namespace foundation::certificates
