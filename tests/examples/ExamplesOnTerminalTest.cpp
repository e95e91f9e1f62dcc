#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/PseudoTerminal.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

using namespace foundation::test;

namespace {

/// Runs the program on its own terminal and types the text after the prompt.
ProgramRun typeInto(std::vector<std::string> const& arguments, std::string const& text)
{
    int terminal = -1;
    pid_t const child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        std::vector<char*> pointers;
        for (auto const& argument : arguments) {
            pointers.push_back(const_cast<char*>(argument.c_str()));
        }
        pointers.push_back(nullptr);
        execv(pointers.front(), pointers.data());
        _exit(127);
    }
    ProgramRun result;
    bool typed = false;
    std::array<char, 256> buffer{};
    for (ssize_t size = 0; (size = read(terminal, buffer.data(), buffer.size())) > 0;) {
        result.output.append(buffer.data(), static_cast<std::size_t>(size));
        if (!typed && result.output.find("Passphrase: ") != std::string::npos) {
            typed = write(terminal, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

class ExampleOnTerminal : public testing::Test
{
protected:
    std::string bundle() const
    {
        return folder.write("bundle.p12", toDer(makePkcs12(makeSelfSignedLeaf("leaf"), "secret"))).string();
    }

    TemporaryFolder const folder;
};

} // namespace

TEST_F(ExampleOnTerminal, AsksForPassphraseWithoutShowingIt)
{
    auto const right = typeInto({OPEN_BUNDLE_PROGRAM, bundle()}, "secret\n");
    EXPECT_EQ(right.exitStatus, 0);
    EXPECT_EQ(right.output.compare(0, 14, "Passphrase: \r\n"), 0) << right.output;
    EXPECT_EQ(right.output.find("secret"), std::string::npos) << right.output;
    EXPECT_NE(right.output.find("Private Key: prime256v1"), std::string::npos) << right.output;

    EXPECT_EQ(typeInto({OPEN_BUNDLE_PROGRAM, bundle()}, "other\n").exitStatus, 1);
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
