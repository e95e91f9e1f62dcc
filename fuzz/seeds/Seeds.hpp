#pragma once

#include "support/openssl/Handles.hpp"

#include <map>
#include <string>

namespace foundation::fuzz {

/// The inputs of a fuzz target by file name.
using Seeds = std::map<std::string, test::Bytes>;

// One function for each fuzz target.
Seeds builderSeeds();
Seeds certificateReaderSeeds();
Seeds certificateSeeds();
Seeds chainSeeds();
Seeds crlSeeds();
Seeds distributionPointsSeeds();
Seeds encodingsSeeds();
Seeds hierarchySeeds();
Seeds httpSeeds();
Seeds pathSeeds();
Seeds pkcs12Seeds();
Seeds pkcs7Seeds();
Seeds requestSeeds();
Seeds textsSeeds();
Seeds trustStoreSeeds();

/// Returns DER certificates with different keys, names, times, serial numbers and extensions. Some are
/// damaged.
Seeds certificatesOfManyKinds();

inline test::Bytes bytesOf(std::string const& text)
{
    return test::Bytes(text.begin(), text.end());
}

} // namespace foundation::fuzz
