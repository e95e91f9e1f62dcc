#include "certificate/Extensions.hpp"

#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <limits>

namespace foundation::certificates {

X509UPtr x509FromDER(ByteArray const& der)
{
    if (der.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return makeX509(nullptr);
    }
    unsigned char const* position = der.data();
    return makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
}

void* extensionOf(X509 const* certificate, int nid)
{
    void* value = nullptr;
    bool const lacksMemory = lacksMemoryFor([&] {
        int finding = 0;
        value = X509_get_ext_d2i(certificate, nid, &finding, nullptr);
        // Below 0, there is nothing to decode: the extension is not there, or more than once.
        return value != nullptr || finding < 0;
    });
    if (lacksMemory) {
        throw X509CertificateException("Internal error: Unable to read the certificate's extensions.");
    }
    return value;
}

bool hasValidExtensions(X509* certificate)
{
    constexpr int noPurpose = -1;
    return X509_check_purpose(certificate, noPurpose, 0) == 1;
}

std::optional<std::string> asUTF8(ASN1_STRING const* value)
{
    unsigned char* buffer = nullptr;
    int const length = value == nullptr ? -1 : ASN1_STRING_to_UTF8(&buffer, value);
    auto const bytes = makeOpenSSLBytes(buffer);
    if (length < 0 || bytes == nullptr) {
        return std::nullopt;
    }
    return std::string(bytes.get(), bytes.get() + length);
}

} // namespace foundation::certificates
