#include "revocation/TemporaryCRLFile.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <random>
#else
#include <stdlib.h> // NOLINT(modernize-deprecated-headers): mkstemp is not in <cstdlib>'s standard part
#include <unistd.h>
#endif

namespace foundation::certificates {

namespace {

#ifdef _WIN32

/// Replaces the last six characters by random ones. The runtime's `_mktemp_s` has only 26 names per process,
/// and returns the same name to concurrent threads.
void fillIn(std::string& pattern)
{
    constexpr char const characters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::generate(pattern.end() - 6, pattern.end(), [&] { return characters[random() % 36]; });
}

/// Creates the file. Returns EEXIST if it exists already.
errno_t createFile(std::string const& name)
{
    int descriptor = -1;
    auto const outcome =
        _sopen_s(&descriptor, name.c_str(), _O_RDWR | _O_CREAT | _O_EXCL, _SH_DENYRW, _S_IREAD | _S_IWRITE);
    if (outcome == 0) {
        _close(descriptor);
    }
    return outcome;
}

#endif

/// Replaces the pattern by the name of a new file, empty and closed. After a failure, the pattern's value
/// depends on the system.
void claimName(std::string& pattern)
{
#ifdef _WIN32
    constexpr int maxAttempts = 1000;
    errno_t outcome = EEXIST;
    for (int attempt = 0; outcome == EEXIST && attempt < maxAttempts; ++attempt) {
        fillIn(pattern);
        outcome = createFile(pattern);
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
    // Neither allocates nor throws. Ignored on purpose: a destructor cannot report a failure.
    static_cast<void>(std::remove(fileName.c_str()));
}

void TemporaryCRLFile::write(std::string const& content) const
{
    // Opened without truncation. On ext4, closing a truncated file starts to write it to the disk.
    std::ofstream file(fileName, std::ios::binary | std::ios::in);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
}

} // namespace foundation::certificates
