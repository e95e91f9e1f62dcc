#include "certificate/Extensions.hpp"

#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <algorithm>

namespace foundation::certificates {

namespace {

/// Whether OpenSSL found issuer and subject equal, but does not take the certificate for self-signed. That is
/// correct if the keys or algorithms differ, and wrong if OpenSSL ran out of memory while it compared them.
bool isSelfIssuedOnly(X509* certificate)
{
    auto const flags = X509_get_extension_flags(certificate);
    return (flags & EXFLAG_SI) != 0 && (flags & EXFLAG_SS) == 0;
}

} // namespace

void* extensionOf(X509 const* certificate, int nid)
{
    void* value = nullptr;
    bool const lacksMemory = lacksMemoryFor([&] {
        int finding = 0;
        value = X509_get_ext_d2i(certificate, nid, &finding, nullptr);
        // Below 0, there is nothing to decode: the extension is absent or present more than once.
        return value != nullptr || finding < 0;
    });
    if (lacksMemory) {
        throw X509CertificateException(unreadableExtensionsText);
    }
    return value;
}

ASN1_BIT_STRINGUPtr keyUsageOf(X509 const* certificate)
{
    return makeASN1_BIT_STRING(static_cast<ASN1_BIT_STRING*>(extensionOf(certificate, NID_key_usage)));
}

ASN1_OBJECTStackUPtr extendedKeyUsagesOf(X509 const* certificate)
{
    return makeASN1_OBJECTStack(
        static_cast<STACK_OF(ASN1_OBJECT)*>(extensionOf(certificate, NID_ext_key_usage)));
}

bool namesAnyOf(STACK_OF(ASN1_OBJECT) const* purposes, std::vector<int> const& wantedNIDs)
{
    for (int index = 0; index < sk_ASN1_OBJECT_num(purposes); ++index) {
        int const purpose = OBJ_obj2nid(sk_ASN1_OBJECT_value(purposes, index));
        if (std::find(wantedNIDs.begin(), wantedNIDs.end(), purpose) != wantedNIDs.end()) {
            return true;
        }
    }
    return false;
}

bool extendedKeyUsageAllowsAnyOf(X509 const* certificate, std::vector<int> const& wantedNIDs)
{
    auto const usages = extendedKeyUsagesOf(certificate);
    return usages == nullptr || namesAnyOf(usages.get(), wantedNIDs);
}

bool hasValidExtensions(X509* certificate)
{
    constexpr int noPurpose = -1;
    RAIIOpenSSLErrorRemover const errors(false);
    return X509_check_purpose(certificate, noPurpose, 0) == 1;
}

void parseExtensions(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (hasValidExtensions(certificate) && !isSelfIssuedOnly(certificate)) {
        return;
    }
    // OpenSSL caches what it found, even if it ran out of memory. A duplicate is parsed again.
    auto const duplicate = makeX509(X509_dup(certificate));
    bool const lacksMemory =
        duplicate == nullptr
            ? i2d_X509(certificate, nullptr) > 0 // what can be encoded can be copied, if there is memory
            : X509_get_extension_flags(duplicate.get()) != X509_get_extension_flags(certificate);
    if (lacksMemory) {
        throw X509CertificateException(unreadableExtensionsText);
    }
}

} // namespace foundation::certificates
