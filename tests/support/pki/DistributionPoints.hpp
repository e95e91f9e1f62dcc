#pragma once

#include "support/Text.hpp"
#include "support/pki/Der.hpp"

#include <string>

/// Distribution points as DER, also in forms that no authority issues.
namespace foundation::test {

constexpr int utf8Tag = 0x0C;
constexpr int dnsTag = 0x82;
constexpr int uriTag = 0x86;
/// The tags within a distribution point. Within its name, [0] is the full name and [1] the relative name.
constexpr int pointNameTag = 0xA0;
constexpr int pointReasonsTag = 0x81;
constexpr int pointIssuerTag = 0xA2;
constexpr int fullNameTag = 0xA0;
constexpr int relativeNameTag = 0xA1;

inline Bytes distributionPoint(int kindOfName, Bytes const& name)
{
    return derElement(sequenceTag, derElement(pointNameTag, derElement(kindOfName, name)));
}

/// Returns CN=value as an attribute of a relative name.
inline Bytes commonNameAttribute(std::string const& value)
{
    Bytes const type = {0x06, 0x03, 0x55, 0x04, 0x03};
    return derElement(sequenceTag, joined({type, derElement(utf8Tag, asBytes(value))}));
}

} // namespace foundation::test
