#pragma once

#include "support/openssl/Handles.hpp"

#include <vector>

/// A little DER, by hand.
namespace foundation::test {

inline Bytes joined(std::vector<Bytes> const& parts)
{
    Bytes whole;
    for (auto const& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}

/// One value: the tag, the content's length in as few bytes as will do, and the content.
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
