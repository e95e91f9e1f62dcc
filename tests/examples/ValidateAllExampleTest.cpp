#include "support/Text.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <string>

using namespace foundation::test;

namespace {

/// Two certificates under a root that no system has. One of them has a key on an unsupported curve.
std::string bundle()
{
    auto const root = makeRoot("root");
    auto const refused = makeLeaf(root, "refused", [](CertificateSpec& spec) { spec.key = p384Key(); });
    return makeLeaf(root, "leaf").pem() + refused.pem();
}

constexpr char const remarks[] = "Not valid: CN=leaf\n"
                                 "Refused: ECC-based key is not using supported ECC Curve. Curve: secp384r1\n"
                                 "Certificates: 0 valid, 1 not valid, 1 refused\n";

} // namespace

TEST(ValidateAllExample, ListsInvalidAndRefusedWithoutProgressOnPipe)
{
    TemporaryFolder const folder;
    auto const run = runProgram(VALIDATE_ALL_PROGRAM, {folder.write("bundle.pem", bundle()).string()});
    EXPECT_EQ(run.output, remarks);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST(ValidateAllExample, ValidatesTheSystemsRoots)
{
    auto const run = runProgram(VALIDATE_ALL_PROGRAM, {});
    bool const hasExpiredRoots = contains(run.output, "Not valid: ");
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(contains(run.output, "Certificates: ")) << run.output;
    EXPECT_FALSE(contains(run.output, "Certificates: 0 valid")) << run.output;
    EXPECT_EQ(run.exitStatus, hasExpiredRoots ? 1 : 0);
}

TEST(ValidateAllExample, ReportsUnreadableInput)
{
    TemporaryFolder const folder;
    auto const missing = (folder.path() / "missing").string();
    auto const run = runProgram(VALIDATE_ALL_PROGRAM, {missing});
    EXPECT_EQ(run.errors, "validate_all: " + missing + ": contains no certificate in PEM\n");
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.exitStatus, 2);
}

TEST(ValidateAllExample, PrintsUsage)
{
    auto const help = runProgram(VALIDATE_ALL_PROGRAM, {"--help"});
    EXPECT_EQ(help.output.substr(0, 20), "Usage: validate_all ");
    EXPECT_EQ(help.exitStatus, 0);

    auto const wrong = runProgram(VALIDATE_ALL_PROGRAM, {"--what"});
    EXPECT_EQ(wrong.errors, "validate_all: at most one file, try --help\n");
    EXPECT_EQ(wrong.exitStatus, 2);
}
