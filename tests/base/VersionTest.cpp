#include <foundation/certificates.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

using namespace foundation::certificates;

TEST(Version, HeadersHaveVersionOfProject)
{
    EXPECT_STREQ(versionString, PROJECT_VERSION);
}

TEST(Version, TextIsThreeNumbersJoinedByDots)
{
    EXPECT_EQ(
        std::to_string(FOUNDATION_CERTIFICATES_VERSION_MAJOR) + "." +
            std::to_string(FOUNDATION_CERTIFICATES_VERSION_MINOR) + "." +
            std::to_string(FOUNDATION_CERTIFICATES_VERSION_PATCH),
        versionString);
}

TEST(Version, PkgConfigFileHasVersionOfHeaders)
{
    std::ifstream file(PKG_CONFIG_FILE);
    std::string line;
    while (std::getline(file, line) && line.rfind("Version:", 0) != 0) {
    }
    EXPECT_EQ(line, std::string("Version: ") + versionString);
}
