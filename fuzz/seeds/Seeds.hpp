#pragma once

#include "support/openssl/Handles.hpp"

#include <map>
#include <string>

namespace foundation::fuzz {

/// Inputs for a fuzz target, by file name.
using Seeds = std::map<std::string, test::Bytes>;

// One function for each fuzz target.
Seeds builderSeeds();
Seeds certificateSeeds();
Seeds chainSeeds();
Seeds crlSeeds();
Seeds distributionPointsSeeds();
Seeds encodingsSeeds();
Seeds httpSeeds();
Seeds pkcs12Seeds();
Seeds pkcs7Seeds();
Seeds trustStoreSeeds();

/// Certificates in DER that differ in keys, names, times, serial numbers and extensions, damaged ones among
/// them.
Seeds certificatesOfManyKinds();

/// The characters of a text as the bytes of a seed.
inline test::Bytes bytesOf(std::string const& text)
{
    return test::Bytes(text.begin(), text.end());
}

} // namespace foundation::fuzz
