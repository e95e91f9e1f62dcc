#pragma once

#include "support/openssl/Handles.hpp"

#include <vector>

/// DER without OpenSSL, for encodings that OpenSSL does not write.
namespace foundation::test {

constexpr int sequenceTag = 0x30;
constexpr int setTag = 0x31;
constexpr int context0Tag = 0xA0;
constexpr int octetStringTag = 0x04;
constexpr int bitStringTag = 0x03;

inline Bytes joined(std::vector<Bytes> const& parts)
{
    Bytes whole;
    for (auto const& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

/// Returns one element: the tag, the content's length in the shortest form, and the content.
inline Bytes derElement(int tag, Bytes const& content)
{
    Bytes length;
    for (auto rest = content.size(); rest != 0; rest >>= 8) {
        length.insert(length.begin(), static_cast<unsigned char>(rest));
    }
    if (content.empty()) {
        length = {0};
    } else if (content.size() >= 0x80) {
        length.insert(length.begin(), static_cast<unsigned char>(0x80 + length.size()));
    }
    return joined({{static_cast<unsigned char>(tag)}, length, content});
}

} // namespace foundation::test
