#include "DuplicateCertificate.hpp"

#include "OpenSSLResult.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

namespace foundation::certificates {

X509UPtr duplicateX509Of(X509Certificate const& certificate)
{
    ByteArray const der = certificate.getAsBytes();
    RAIIOpenSSLErrorRemover const errors(true);
    unsigned char const* position = der.data();
    auto duplicate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    throwIfNull<X509CertificateException>(duplicate.get(), "Error: X509Certificate has no content.");
    return duplicate;
}

} // namespace foundation::certificates
