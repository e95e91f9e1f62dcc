#include "support/vectors/Vectors.hpp"

#include "support/Text.hpp"

#include <algorithm>
#include <stdexcept>

namespace foundation::test {

namespace {

std::filesystem::path const& vectors()
{
    static std::filesystem::path const folder(FOUNDATION_CERTIFICATES_VECTORS);
    return folder;
}

/// The path, if it is there.
std::filesystem::path find(std::string const& name)
{
    auto found = vectors() / name;
    if (!std::filesystem::exists(found)) {
        throw std::runtime_error(
            "There is no " + found.string() +
            ". This test reads the data of the Debian package python3-cryptography-vectors: install it, or "
            "name the folder that holds them with -DFOUNDATION_CERTIFICATES_VECTORS=...");
    }
    return found;
}

} // namespace

Bytes readVector(std::string const& name)
{
    return asBytes(contentOfFile(find(name)));
}

std::vector<std::string> listVectors(std::string const& folder, std::string const& extension)
{
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(find(folder))) {
        if (extension.empty() || entry.path().extension() == extension) {
            names.push_back(folder + "/" + entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace foundation::test
