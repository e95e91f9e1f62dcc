#pragma once

#include "support/Text.hpp"
#include "support/system/RunProgram.hpp"

#include <gtest/gtest.h>

#include <string>

/// What tests of programs expect of a run.
namespace foundation::test {

inline void expectSuccess(ProgramRun const& run, std::string const& output)
{
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.output, output);
    EXPECT_EQ(run.errors, "");
}

inline void expectFailure(ProgramRun const& run, int exitStatus, std::string const& errors)
{
    EXPECT_EQ(run.exitStatus, exitStatus);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, errors);
}

inline void expectWrongUsage(ProgramRun const& run, std::string const& beginning)
{
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_TRUE(beginsWith(run.errors, beginning)) << run.errors;
}

} // namespace foundation::test
