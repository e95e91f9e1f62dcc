#include "ASN1Decoding.hpp"

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
