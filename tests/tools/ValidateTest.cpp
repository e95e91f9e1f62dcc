#include "tools/FoundationCerts.hpp"

using namespace foundation::test;

namespace {

using Validate = FoundationCerts;

} // namespace

TEST_F(Validate, PrintsVerdictAndChain)
{
    auto const run =
        foundationCerts({"validate", "--roots", rootFile(), "--chain", intermediateFile(), leafFile()});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "Valid: ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nChain: CN=leaf <- CN=intermediate <- CN=root\n")) << run.output;
}

TEST_F(Validate, SaysWhatIsWrong)
{
    auto const run = foundationCerts({"validate", "--roots", rootFile(), leafFile()});

    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "Not valid: ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nChain: CN=leaf\nCertificate: CN=leaf\nAdvice: ")) << run.output;
}
