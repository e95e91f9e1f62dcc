#include "support/TemporaryFolder.hpp"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>

namespace foundation::test {

TemporaryFolder::TemporaryFolder()
{
    auto pattern = (std::filesystem::temp_directory_path() / "foundation-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) {
        throw std::system_error(errno, std::generic_category(), "Cannot make a temporary folder");
    }
    folder = pattern;
}

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
