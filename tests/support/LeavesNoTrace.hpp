#pragma once

#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace foundation::test {

/// Sets an environment variable for a scope. No other thread may read the environment at its two ends.
class ScopedVariable
{
public:
    ScopedVariable(std::string name, std::string const& value) : variable(std::move(name))
    {
        if (char const* former = std::getenv(variable.c_str())) {
            formerValue = former;
        }
        setenv(variable.c_str(), value.c_str(), 1);
    }

    ~ScopedVariable()
    {
        if (formerValue) {
            setenv(variable.c_str(), formerValue->c_str(), 1);
        } else {
            unsetenv(variable.c_str());
        }
    }

    ScopedVariable(ScopedVariable const&) = delete;
    ScopedVariable& operator=(ScopedVariable const&) = delete;

private:
    std::string variable;
    std::optional<std::string> formerValue;
};

/// Gives each test a temporary directory of its own, and expects at its end that nothing is left in it and
/// that the same files are open as at its start.
class LeavesNoTrace : public testing::Test
{
protected:
    LeavesNoTrace() : temporaryDirectory("TMPDIR", folder.path().string()) {}

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

    /// What each open file descriptor stands for.
    static std::map<std::string, std::string> openDescriptors()
    {
        std::map<std::string, std::string> targets;
        for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            targets[entry.path().filename().string()] = std::filesystem::read_symlink(entry.path()).string();
        }
        return targets;
    }

private:
    TemporaryFolder folder;
    ScopedVariable temporaryDirectory;
    std::map<std::string, std::string> descriptorsAtStart;
};

} // namespace foundation::test
