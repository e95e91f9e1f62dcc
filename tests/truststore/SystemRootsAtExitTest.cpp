#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Validation caches the system's roots. A program may still validate while it ends, in the destructor of a
// global object or in a thread.

using namespace foundation::test;

namespace {

struct Row
{
    std::vector<std::string> times;
    std::string output;
};

std::vector<Row> rows()
{
#ifdef _WIN32
    std::string const verdict = "1"; // untrusted: Windows keeps its roots in no file
#else
    std::string const verdict = "0"; // valid
#endif
    auto const line = [&](std::string const& when) { return when + " " + verdict + "\n"; };
    return {
        {{"main"}, line("main")},
        {{"destructor"}, line("destructor")},
        {{"main", "destructor"}, line("main") + line("destructor")},
        {{"thread"}, line("thread")},
        {{"main", "thread"}, line("main") + line("thread")},
        {{"main", "thread", "destructor"}, line("main") + line("thread") + line("destructor")},
    };
}

} // namespace

TEST(SystemRootsAtExit, VerdictIsTheSameAsInMain)
{
    auto const root = makeRoot("root");
    TemporaryFolder const folder;
    auto const leaf = folder.write("leaf.pem", makeLeaf(root, "leaf").pem());
    ScopedVariable const file("SSL_CERT_FILE", folder.write("roots.pem", root.pem()).string());
    ScopedVariable const noFolder("SSL_CERT_DIR", "");
    for (Row const& row : rows()) {
        std::vector<std::string> arguments = {leaf.string()};
        arguments.insert(arguments.end(), row.times.begin(), row.times.end());
        auto const run = runProgram(VALIDATE_AT_EXIT_PROGRAM, arguments);
        EXPECT_EQ(run.output, row.output);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.exitStatus, 0) << row.output;
    }
}
