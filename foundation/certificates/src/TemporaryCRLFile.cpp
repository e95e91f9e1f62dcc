#include "TemporaryCRLFile.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#else
#include <stdlib.h> // NOLINT(modernize-deprecated-headers): mkstemp is not in <cstdlib>'s standard part
#include <unistd.h>
#endif

namespace foundation::certificates {

namespace {

/// Turns the pattern into the name of a file that did not exist before and exists now, empty and closed. What
/// the pattern holds after a failure is the system's affair.
void claimName(std::string& pattern)
{
#ifdef _WIN32
    if (_mktemp_s(pattern.data(), pattern.size() + 1) == 0) {
        int descriptor = -1;
        if (_sopen_s(
                &descriptor, pattern.c_str(), _O_RDWR | _O_CREAT | _O_EXCL, _SH_DENYRW,
                _S_IREAD | _S_IWRITE) == 0) {
            _close(descriptor);
        }
    }
#else
    int const descriptor = mkstemp(pattern.data());
    if (descriptor != -1) {
        close(descriptor);
    }
#endif
}

std::string namePattern()
{
    auto pattern = std::filesystem::temp_directory_path();
    pattern /= "certCRL_XXXXXX";
    return pattern.string();
}

} // namespace

TemporaryCRLFile::TemporaryCRLFile() : fileName(namePattern())
{
    claimName(fileName);
}

TemporaryCRLFile::~TemporaryCRLFile()
{
    // Of the ways to remove a file this one neither allocates nor throws. A failure could be told to nobody.
    static_cast<void>(std::remove(fileName.c_str()));
}

void TemporaryCRLFile::write(std::string const& content) const
{
    std::ofstream file(fileName, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
}

} // namespace foundation::certificates
