#include "support/system/RunProgram.hpp"
#include "support/system/ScopedVariable.hpp"

#include <gtest/gtest.h>

#include <string>

using namespace foundation::test;

namespace {

/// Runs the program with a global object of that class, and expects the answers of `main` after its end.
/// Returns the program's output.
std::string expectSameAnswersAtExit(std::string const& className, std::string const& place)
{
    SCOPED_TRACE(className + ", " + place);
    ScopedVariable const guest("GUEST", className);
    auto const run = runProgram(PROCESS_EXIT_PROGRAM, {place});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    return run.output;
}

int countOf(std::string const& part, std::string const& text)
{
    int count = 0;
    for (auto found = text.find(part); found != std::string::npos; found = text.find(part, found + 1)) {
        ++count;
    }
    return count;
}

class ProcessExit : public testing::TestWithParam<char const*>
{};

} // namespace

TEST_P(ProcessExit, DestructorOfGlobalGetsAnswersOfMain)
{
    expectSameAnswersAtExit(GetParam(), "destructor");
}

TEST_P(ProcessExit, ThreadThatOutlivesMainGetsAnswersOfMain)
{
    expectSameAnswersAtExit(GetParam(), "thread");
}

TEST(ProcessExitRecord, IsWrittenAfterMain)
{
    for (std::string const place : {"destructor", "thread"}) {
        // Boost.Log's default sink writes to the standard output.
        auto const output = expectSameAnswersAtExit("TrustStore", place);
        EXPECT_EQ(countOf("Removed 0 expired or invalid certificates", output), 2) << output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Classes, ProcessExit,
    testing::Values(
        "X509Certificate", "X509CertificateChain", "TrustStore", "PKCS7Certificate", "PKCS12Certificate",
        "SelfSignedCertBuilder"),
    [](testing::TestParamInfo<char const*> const& tested) { return std::string(tested.param); });
