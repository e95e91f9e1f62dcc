#include "certificate/DuplicateCertificate.hpp"

#include "certificate/Extensions.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

namespace foundation::certificates {

X509UPtr duplicateX509Of(X509Certificate const& certificate)
{
    ByteArray const der = certificate.getAsBytes();
    RAIIOpenSSLErrorRemover const errors(true);
    auto duplicate = x509FromDER(der);
    throwIfNull<X509CertificateException>(duplicate.get(), "Error: X509Certificate has no content.");
    return duplicate;
}

} // namespace foundation::certificates
