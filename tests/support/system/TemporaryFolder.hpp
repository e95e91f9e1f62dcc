#pragma once

#include "support/openssl/Handles.hpp"

#include <filesystem>
#include <string>

namespace foundation::test {

/// A new folder in the system's temporary directory. It is removed with its content at the end of the scope.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    std::filesystem::path const& path() const { return folder; }
    /// Writes a file into the folder. Returns its path.
    std::filesystem::path write(std::string const& name, std::string const& content) const;
    std::filesystem::path write(std::string const& name, Bytes const& content) const;

private:
    std::filesystem::path folder;
};

} // namespace foundation::test
