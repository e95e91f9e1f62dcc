#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/PseudoTerminal.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

using namespace foundation::test;

namespace {

class ExampleOnTerminal : public testing::Test
{
protected:
    std::string bundle() const
    {
        return folder.write("bundle.p12", toDer(makePkcs12(makeSelfSignedLeaf("leaf"), "secret"))).string();
    }

    static TypedAnswer answer(std::string const& text) { return {"Passphrase: ", text}; }

    TemporaryFolder const folder;
};

} // namespace

TEST_F(ExampleOnTerminal, AsksForPassphraseWithoutShowingIt)
{
    auto const right = runOnTerminal({OPEN_BUNDLE_PROGRAM, bundle()}, answer("secret\n"));
    EXPECT_EQ(right.exitCode, 0);
    EXPECT_EQ(right.output.compare(0, 14, "Passphrase: \r\n"), 0) << right.output;
    EXPECT_EQ(right.output.find("secret"), std::string::npos) << right.output;
    EXPECT_NE(right.output.find("Private Key: prime256v1"), std::string::npos) << right.output;

    EXPECT_EQ(runOnTerminal({OPEN_BUNDLE_PROGRAM, bundle()}, answer("other\n")).exitCode, 1);
}

TEST_F(ExampleOnTerminal, ReportsMissingTerminal)
{
    auto const result = runProgram("setsid", {"--wait", OPEN_BUNDLE_PROGRAM, bundle()});

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "open_bundle: no terminal to ask for the passphrase, use --passphrase-file\n");
}

TEST_F(ExampleOnTerminal, ShowsProgress)
{
    auto const root = makeRoot("root");
    auto const file = folder.write("bundle.pem", makeLeaf(root, "one").pem() + makeLeaf(root, "other").pem());
    std::string const command = std::string(VALIDATE_ALL_PROGRAM) + " " + file.string();
    auto const run = runOnTerminal([&] { return WEXITSTATUS(std::system(command.c_str())); });
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(
        run.output.substr(0, run.output.find("Not valid")), "\rValidated 1 of 2\rValidated 2 of 2\r\033[K");
}
