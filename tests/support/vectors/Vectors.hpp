#pragma once

#include "support/openssl/Handles.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace foundation::test {

/// The bytes of a file of the package python3-cryptography-vectors, whose test data are read where the
/// package has put them. Throws `std::runtime_error` that names the package if it is not there.
Bytes readVector(std::string const& name);

/// The names of the folder's files with that extension, sorted and with the folder in front. Throws as above.
std::vector<std::string> listVectors(std::string const& folder, std::string const& extension);

} // namespace foundation::test
