#include "support/system/PseudoTerminal.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>

using namespace foundation::test;
using namespace std::chrono_literals;

TEST(PseudoTerminal, ReportsOutputAndExitCode)
{
    auto const run = runOnTerminal([] {
        std::fputs("hello", stdout);
        return isatty(0) && isatty(1) && isatty(2) ? 7 : 8;
    });
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 7);
    EXPECT_EQ(run.output, "hello");
}

TEST(PseudoTerminal, DetectsWaitForInput)
{
    auto const run = runOnTerminal(
        [] {
            std::ifstream terminal("/dev/tty");
            return terminal.get();
        },
        500ms);
    EXPECT_FALSE(run.finished);
}

TEST(PseudoTerminal, ReportsExceptions)
{
    auto const run = runOnTerminal([]() -> int { throw std::runtime_error("text"); });
    EXPECT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 99);
    EXPECT_EQ(run.output, "text");
}
