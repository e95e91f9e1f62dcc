#pragma once

#include <string>

namespace foundation::certificates {

/// A new file "certCRL_XXXXXX" in the system's temporary directory, with a random character for each X. It
/// exists as long as this object. On systems with file modes, only its owner has access.
///
/// A failure to create, write or remove the file is not reported: the reader detects missing data.
class TemporaryCRLFile
{
public:
    /// @throws std::filesystem::filesystem_error if the system has no temporary directory
    TemporaryCRLFile();
    ~TemporaryCRLFile();
    TemporaryCRLFile(TemporaryCRLFile const&) = delete;
    TemporaryCRLFile& operator=(TemporaryCRLFile const&) = delete;

    /// Returns the whole path in the system's narrow encoding.
    std::string const& name() const { return fileName; }
    /// Writes the content into the empty file. Must be called at most once.
    void write(std::string const& content) const;

private:
    std::string fileName;
};

} // namespace foundation::certificates
