#include "support/system/TemporaryFolder.hpp"

#include <fstream>
#include <random>
#include <system_error>

namespace foundation::test {

namespace {

/// Creates a directory with a name that is not in use.
std::filesystem::path makeDirectory()
{
    auto const parent = std::filesystem::temp_directory_path();
    std::random_device random;
    for (;;) {
        auto const made = parent / ("foundation-test-" + std::to_string(random()));
        if (std::filesystem::create_directory(made)) {
            std::filesystem::permissions(made, std::filesystem::perms::owner_all);
            return made;
        }
    }
}

} // namespace

TemporaryFolder::TemporaryFolder() : folder(makeDirectory()) {}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::filesystem::path TemporaryFolder::write(std::string const& name, std::string const& content) const
{
    auto path = folder / name;
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << content;
    file.close();
    return path;
}

std::filesystem::path TemporaryFolder::write(std::string const& name, Bytes const& content) const
{
    return write(name, std::string(content.begin(), content.end()));
}

} // namespace foundation::test
