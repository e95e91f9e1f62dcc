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

/// Gives each test its own temporary directory. At the end of the test the directory must be empty, and the
/// same files must be open as at the start.
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
