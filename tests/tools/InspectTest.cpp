#include "tools/FoundationCerts.hpp"

using namespace foundation::test;

namespace {

using Inspect = FoundationCerts;

} // namespace

TEST_F(Inspect, PrintsCertificate)
{
    auto const run = foundationCerts({"inspect", leafFile()});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, leafFile() + " #1: CN=leaf\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Issuer:           CN=intermediate\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Key:              prime256v1, 256 bits\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "  Names:            DNS:leaf.example\n")) << run.output;
    EXPECT_FALSE(contains(run.output, "Refused")) << run.output;
}

TEST_F(Inspect, SaysWhatTheLibraryRefuses)
{
    auto const run = foundationCerts({"inspect", intermediateFile()});

    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(contains(run.output, "  Refused:          ")) << run.output;
}
