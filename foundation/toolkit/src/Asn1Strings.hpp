#pragma once

#include <foundation/certificates/ByteArray.hpp>

#include <openssl/asn1.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace foundation::toolkit {

/// Returns the content of the string unchanged; empty for a string without content.
inline std::string asText(ASN1_STRING const* value)
{
    auto const size = static_cast<std::size_t>(std::max(ASN1_STRING_length(value), 0));
    unsigned char const* const data = ASN1_STRING_get0_data(value);
    return data == nullptr ? std::string() : std::string(data, data + size);
}

/// Returns the content of the string; no bytes for a null pointer.
inline foundation::certificates::ByteArray asBytes(ASN1_STRING const* value)
{
    std::string const text = value == nullptr ? std::string() : asText(value);
    return {text.begin(), text.end()};
}

} // namespace foundation::toolkit
