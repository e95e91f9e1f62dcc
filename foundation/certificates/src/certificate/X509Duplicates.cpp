#include "certificate/X509Duplicates.hpp"

#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

namespace foundation::certificates {

namespace {

constexpr char const noContentText[] = "Error: X509Certificate has no content.";

} // namespace

X509UPtr x509FromDER(ByteArray const& der)
{
    if (!fitsInInt(der.size())) {
        return makeX509(nullptr);
    }
    unsigned char const* position = der.data();
    return makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
}

X509UPtr duplicateX509Of(X509Certificate const& certificate)
{
    ByteArray const der = certificate.getAsBytes();
    RAIIOpenSSLErrorRemover const errors(true);
    auto duplicate = x509FromDER(der);
    throwIfNull<X509CertificateException>(duplicate.get(), noContentText);
    return duplicate;
}

X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        // Not duplicateX509Of, which would clear the error queue.
        auto duplicate = x509FromDER(certificate.getAsBytes());
        if (duplicate == nullptr || sk_X509_push(stack.get(), duplicate.get()) == 0) {
            throw X509CertificateException(noContentText);
        }
        static_cast<void>(duplicate.release()); // the stack owns it now; a failed push would not have
    }
    return stack;
}

} // namespace foundation::certificates
