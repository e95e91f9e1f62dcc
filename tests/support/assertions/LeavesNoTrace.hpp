#pragma once

#include "support/system/ScopedVariable.hpp"
#include "support/system/System.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace foundation::test {

/// Gives each test a temporary directory of its own, and expects at its end that nothing is left in it and
/// that the same files are open as at its start.
class LeavesNoTrace : public testing::Test
{
protected:
    LeavesNoTrace() : temporaryDirectory(temporaryDirectoryVariable(), folder.path().string()) {}

    void SetUp() override { descriptorsAtStart = openDescriptors(); }

    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), descriptorsAtStart);
        EXPECT_EQ(temporaryFiles(), std::vector<std::filesystem::path>());
    }

    /// What the temporary directory holds.
    std::vector<std::filesystem::path> temporaryFiles() const
    {
        std::vector<std::filesystem::path> files;
        for (auto const& entry : std::filesystem::directory_iterator(folder.path())) {
            files.push_back(entry.path());
        }
        return files;
    }

private:
    TemporaryFolder folder;
    ScopedVariable temporaryDirectory;
    std::map<std::string, std::string> descriptorsAtStart;
};

} // namespace foundation::test
