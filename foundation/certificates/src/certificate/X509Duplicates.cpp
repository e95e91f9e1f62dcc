#include "certificate/X509Duplicates.hpp"

#include "certificate/Extensions.hpp"
#include "certificate/X509Access.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/x509v3.h>

#include <utility>

namespace foundation::certificates {

namespace {

constexpr char const noContentText[] = "Error: X509Certificate has no content.";

bool hasEqualNamesOnly(X509* certificate)
{
    auto const flags = X509_get_extension_flags(certificate);
    return (flags & EXFLAG_SI) != 0 && (flags & EXFLAG_SS) == 0;
}

X509UPtr sharedOrDuplicated(X509Certificate const& certificate)
{
    auto shared = X509Access::share(certificate);
    return mayBeShared(shared.get()) ? std::move(shared) : x509FromDER(certificate.getAsBytes());
}

} // namespace

X509UPtr furtherReference(X509* certificate)
{
    return makeX509(X509_up_ref(certificate) == 1 ? certificate : nullptr);
}

X509UPtr x509FromDER(ByteArray const& der)
{
    if (!fitsInInt(der.size())) {
        return makeX509(nullptr);
    }
    unsigned char const* position = der.data();
    return makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
}

bool isReadCompletely(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return hasValidExtensions(certificate) && !hasEqualNamesOnly(certificate) &&
           EVP_PKEY_get_bits(X509_get0_pubkey(certificate)) > 0;
}

bool hasTrustSettings(X509* certificate)
{
    return X509_get0_trust_objects(certificate) != nullptr ||
           X509_get0_reject_objects(certificate) != nullptr;
}

bool mayBeShared(X509* certificate)
{
    return isReadCompletely(certificate) && !hasTrustSettings(certificate);
}

ByteArray encodingOf(X509* certificate)
{
    unsigned char* encoding = nullptr;
    int const length = i2d_X509(certificate, &encoding);
    auto const bytes = makeOpenSSLBytes(encoding);
    return length < 1 ? ByteArray() : ByteArray(encoding, encoding + length);
}

bool haveSameEncoding(X509* left, X509* right)
{
    if (left == right) {
        return true;
    }
    // The cheap comparison does not look at each byte of the signature.
    return X509_cmp(left, right) == 0 && encodingOf(left) == encodingOf(right);
}

X509UPtr forVerification(X509* certificate)
{
    return isReadCompletely(certificate) ? furtherReference(certificate) : makeX509(X509_dup(certificate));
}

X509UPtr readableX509Of(X509Certificate const& certificate)
{
    auto x509 = sharedOrDuplicated(certificate);
    RAIIOpenSSLErrorRemover const errors(true);
    throwIfNull<X509CertificateException>(x509.get(), noContentText);
    return x509;
}

X509StackUPtr stackOf(std::vector<X509Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        auto x509 = sharedOrDuplicated(certificate);
        if (x509 == nullptr || sk_X509_push(stack.get(), x509.get()) < 1) {
            throw X509CertificateException(noContentText);
        }
        static_cast<void>(x509.release()); // the stack owns it now; a failed push would not have
    }
    return stack;
}

} // namespace foundation::certificates
