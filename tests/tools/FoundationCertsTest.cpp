#include "tools/FoundationCerts.hpp"

#include <foundation/certificates/version.hpp>

using namespace foundation::test;

TEST_F(FoundationCerts, ShowsHelpAndVersion)
{
    auto const help = foundationCerts({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_TRUE(contains(help.output, "foundation-certs [OPTIONS] SUBCOMMAND\n")) << help.output;
    EXPECT_EQ(help.errors, "");
    for (auto const* const subcommand : {"inspect", "expiry", "validate", "roots"}) {
        EXPECT_TRUE(contains(help.output, std::string("  ") + subcommand + " ")) << help.output;
        auto const own = foundationCerts({subcommand, "--help"});
        EXPECT_EQ(own.exitStatus, 0);
        EXPECT_TRUE(contains(own.output, "--json")) << own.output;
    }

    auto const version = foundationCerts({"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(
        version.output, std::string("foundation-certs ") + foundation::certificates::versionString + "\n");
}

TEST_F(FoundationCerts, RefusesWrongUse)
{
    expectBadInput(foundationCerts({}), "A subcommand is required, try --help");
    expectBadInput(
        foundationCerts({"inspect", "--unknown"}),
        "The following argument was not expected: --unknown, try --help");
    expectBadInput(foundationCerts({"expiry"}), "no PATH and no --from is given, try --help");
    expectBadInput(foundationCerts({"inspect", "-", "-"}), "standard input is named more than once");
    expectBadInput(
        foundationCerts({"inspect", "--from", pathOf("missing")}),
        pathOf("missing") + ": No such file or directory");
}
