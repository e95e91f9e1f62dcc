#include "revocation/TemporaryCRLFile.hpp"

#include "support/Text.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/system/InParallel.hpp"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

class TemporaryCRLFileTest : public LeavesNoTrace
{};

} // namespace

TEST_F(TemporaryCRLFileTest, IsEmptyFileInTemporaryDirectory)
{
    TemporaryCRLFile const file;

    std::filesystem::path const path = file.name();
    // Windows ends the name of a directory with a separator, too.
    EXPECT_EQ(path.parent_path() / "", std::filesystem::temp_directory_path() / "");
    EXPECT_TRUE(std::regex_match(path.filename().string(), std::regex("certCRL_[A-Za-z0-9]{6}")))
        << path.filename();
    EXPECT_NE(path.filename(), "certCRL_XXXXXX");
    EXPECT_EQ(std::filesystem::symlink_status(path).type(), std::filesystem::file_type::regular);
    EXPECT_EQ(std::filesystem::file_size(path), 0u);
    EXPECT_EQ(temporaryFiles().size(), 1u);
}

TEST_F(TemporaryCRLFileTest, IsAccessibleOnlyToOwner)
{
    TemporaryCRLFile const file;

    EXPECT_EQ(
        std::filesystem::status(file.name()).permissions(),
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(TemporaryCRLFileTest, HasUniqueName)
{
    TemporaryCRLFile const first;
    TemporaryCRLFile const second;

    EXPECT_NE(first.name(), second.name());
    EXPECT_EQ(temporaryFiles().size(), 2u);
}

TEST_F(TemporaryCRLFileTest, IsNotSharedBetweenThreads)
{
    constexpr int numThreads = 8;
    constexpr int numFilesEach = 20;
    std::vector<std::deque<TemporaryCRLFile>> files(numThreads);
    inParallel(numThreads, [&](int number) {
        for (int file = 0; file < numFilesEach; ++file) {
            files[static_cast<std::size_t>(number)].emplace_back();
        }
    });

    EXPECT_EQ(temporaryFiles().size(), static_cast<std::size_t>(numThreads * numFilesEach));
}

TEST_F(TemporaryCRLFileTest, HoldsEachByteThatIsWritten)
{
    std::string const everyByte = [] {
        std::string bytes;
        for (int value = 0; value < 256; ++value) {
            bytes.push_back(static_cast<char>(value));
        }
        return bytes;
    }();
    for (auto const& content : {everyByte + everyByte, everyByte, std::string(), std::string("\r\n")}) {
        TemporaryCRLFile const file;
        file.write(content);
        EXPECT_EQ(contentOfFile(file.name()), content);
    }
}

TEST_F(TemporaryCRLFileTest, IsRemovedAfterException)
{
    try {
        TemporaryCRLFile const file;
        file.write("content");
        throw std::runtime_error("on the way out");
    } catch (std::runtime_error const&) {
        EXPECT_TRUE(temporaryFiles().empty());
    }
}

TEST_F(TemporaryCRLFileTest, MayBeRemovedByOthers)
{
    TemporaryCRLFile const file;
    EXPECT_TRUE(std::filesystem::remove(file.name()));
}

TEST_F(TemporaryCRLFileTest, NeedsTemporaryDirectory)
{
    ScopedVariable const nowhere(temporaryDirectoryVariable(), "/nonexistent/directory");

    EXPECT_THROW(TemporaryCRLFile(), std::filesystem::filesystem_error);
}

TEST_F(TemporaryCRLFileTest, IgnoresFailureToCreateFile)
{
    ScopedVariable const unwritable(temporaryDirectoryVariable(), "/proc");
    TemporaryCRLFile const file;

    file.write("content");

    EXPECT_FALSE(std::filesystem::exists(file.name()));
}
