#include "support/system/PseudoTerminal.hpp"
#include "support/system/ScopedVariable.hpp"
#include "tools/FoundationCerts.hpp"

using namespace foundation::test;

namespace {

class ProgramOnTerminal : public FoundationCerts
{
protected:
    std::string inspection() const
    {
        auto const run = runOnTerminal({FOUNDATION_CERTS_PROGRAM, "inspect", leafFile()});
        EXPECT_TRUE(run.finished);
        EXPECT_EQ(run.exitCode, 0);
        return run.output;
    }
};

} // namespace

TEST_F(ProgramOnTerminal, ShowsColour)
{
    ScopedVariable const noRefusal("NO_COLOR", "");
    EXPECT_TRUE(beginsWith(inspection(), "\033[1m" + leafFile() + " #1: CN=leaf\033[0m\r\n"));
    EXPECT_FALSE(contains(foundationCerts({"inspect", leafFile()}).output, "\033"));

    ScopedVariable const noColour("NO_COLOR", "1");
    EXPECT_TRUE(beginsWith(inspection(), leafFile() + " #1: CN=leaf\r\n"));
}

TEST_F(ProgramOnTerminal, ShowsProgressIfOutputIsAFile)
{
    auto const output = pathOf("output");
    auto const run = runOnTerminal(
        {"sh", "-c", "exec \"$0\" inspect \"$1\" >\"$2\"", FOUNDATION_CERTS_PROGRAM, leafFile(), output});

    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output, "\r1 certificates\r\033[K");
    EXPECT_TRUE(beginsWith(contentOfFile(output), leafFile() + " #1: CN=leaf\n"));
}
