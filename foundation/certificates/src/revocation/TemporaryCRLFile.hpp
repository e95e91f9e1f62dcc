#pragma once

#include <string>

namespace foundation::certificates {

/// A file "certCRL_XXXXXX" of its own in the system's temporary directory, with six other characters in the
/// place of the X, which is there for as long as this object lives. Its name is claimed exclusively, and on
/// systems with file modes the file is its owner's alone.
///
/// A failure to claim, to write or to remove is not reported: who reads the file finds what is there.
class TemporaryCRLFile
{
public:
    /// @throws std::filesystem::filesystem_error if the system has no temporary directory
    TemporaryCRLFile();
    ~TemporaryCRLFile();
    TemporaryCRLFile(TemporaryCRLFile const&) = delete;
    TemporaryCRLFile& operator=(TemporaryCRLFile const&) = delete;

    /// The whole path, in the system's narrow encoding.
    std::string const& name() const { return fileName; }
    /// Replaces what the file holds.
    void write(std::string const& content) const;

private:
    std::string fileName;
};

} // namespace foundation::certificates
