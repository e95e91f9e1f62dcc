#include "support/system/InParallel.hpp"
#include "support/system/LogCapture.hpp"

#include <foundation/log/basic_diagnostic_logger.hpp>
#include <foundation/log/severity.hpp>
#include <foundation/toolkit/StandardErrorLog.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::log;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace {

constexpr std::uint32_t everySeverity = 63;

constexpr std::uint32_t maskOf(severity level)
{
    return static_cast<std::uint32_t>(level);
}

void record(
    severity level, std::string const& message, std::string const& channel = "foundation::certificates")
{
    basic_diagnostic_logger<char> logger(channel);
    logger.write(level, [&](std::ostream& out) { out << message; });
}

/// Captures what the process writes, and ends each test with the log off and the mask that it found.
class StandardErrorLog : public testing::Test
{
protected:
    void SetUp() override
    {
        silenceLog();
        maskAtStart = diagnostic_severity_mask();
        testing::internal::CaptureStderr();
        testing::internal::CaptureStdout();
    }

    void TearDown() override
    {
        silenceLog();
        set_diagnostic_severity_mask(maskAtStart);
        written();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    }

    /// Returns what was written to standard error. May be called once in a test.
    std::string written()
    {
        if (isCapturing) {
            isCapturing = false;
            return testing::internal::GetCapturedStderr();
        }
        return "";
    }

private:
    bool isCapturing = true;
    std::uint32_t maskAtStart = 0;
};

} // namespace

TEST_F(StandardErrorLog, WritesOneLineForEachRecord)
{
    logToStandardError(everySeverity);
    record(severity::trace, "one");
    record(severity::debug, "two");
    record(severity::information, "three");
    record(severity::warning, "four");
    record(severity::error, "five");
    record(severity::fatal, "");

    EXPECT_EQ(
        written(), "foundation::certificates trace: one\n"
                   "foundation::certificates debug: two\n"
                   "foundation::certificates information: three\n"
                   "foundation::certificates warning: four\n"
                   "foundation::certificates error: five\n"
                   "foundation::certificates fatal: \n");
}

TEST_F(StandardErrorLog, WritesGivenSeveritiesOnly)
{
    logToStandardError(maskOf(severity::debug) | maskOf(severity::error));
    for (auto const level :
         {severity::trace, severity::debug, severity::information, severity::warning, severity::error,
          severity::fatal}) {
        record(level, "message");
    }

    EXPECT_EQ(
        written(), "foundation::certificates debug: message\nfoundation::certificates error: message\n");
}

TEST_F(StandardErrorLog, SeverityWithoutNameIsWrittenAsRecord)
{
    constexpr std::uint32_t unknown = everySeverity + 1;
    logToStandardError(unknown);
    record(static_cast<severity>(unknown), "message");

    EXPECT_EQ(written(), "foundation::certificates record: message\n");
}

TEST_F(StandardErrorLog, WritesItsChannelOnly)
{
    logToStandardError(everySeverity);
    record(severity::error, "other", "other");
    record(severity::error, "longer", "foundation::certificates2");
    record(severity::error, "shorter", "foundation");
    record(severity::error, "own");

    EXPECT_EQ(written(), "foundation::certificates error: own\n");
}

TEST_F(StandardErrorLog, EscapesLineEndsAndControlCharacters)
{
    logToStandardError(everySeverity);
    record(severity::error, std::string("a\nb\r\nc\td\x1b[31me\x7f\0f\n", 18));
    record(severity::error, "C:\\n \xC3\xA4");

    EXPECT_EQ(
        written(), "foundation::certificates error: a\\nb\\r\\nc\\x09d\\x1b[31me\\x7f\\x00f\\n\n"
                   "foundation::certificates error: C:\\n \xC3\xA4\n");
}

TEST_F(StandardErrorLog, SecondCallDoesNotDoubleLines)
{
    logToStandardError(everySeverity);
    logToStandardError(everySeverity);
    record(severity::error, "message");

    EXPECT_EQ(written(), "foundation::certificates error: message\n");
}

TEST_F(StandardErrorLog, SecondCallReplacesMask)
{
    logToStandardError(everySeverity);
    logToStandardError(maskOf(severity::fatal));
    record(severity::error, "error");
    record(severity::fatal, "fatal");

    EXPECT_EQ(written(), "foundation::certificates fatal: fatal\n");
}

TEST_F(StandardErrorLog, SilenceEndsAllOutput)
{
    logToStandardError(everySeverity);
    silenceLog();
    record(severity::fatal, "message");
    record(severity::fatal, "other", "other");

    EXPECT_EQ(written(), "");
}

TEST_F(StandardErrorLog, ResumesAfterSilence)
{
    logToStandardError(everySeverity);
    silenceLog();
    logToStandardError(maskOf(severity::debug));
    record(severity::debug, "message");

    EXPECT_EQ(written(), "foundation::certificates debug: message\n");
}

TEST_F(StandardErrorLog, EmptyMaskWritesNothing)
{
    logToStandardError(0);
    record(severity::fatal, "message");

    EXPECT_EQ(written(), "");
}

TEST_F(StandardErrorLog, AddsItsSeveritiesToMaskOfProcess)
{
    set_diagnostic_severity_mask(maskOf(severity::error));
    logToStandardError(maskOf(severity::debug) | maskOf(severity::error));
    EXPECT_EQ(diagnostic_severity_mask(), maskOf(severity::debug) | maskOf(severity::error));
    logToStandardError(maskOf(severity::trace));
    EXPECT_EQ(diagnostic_severity_mask(), maskOf(severity::trace) | maskOf(severity::error));
    silenceLog();
    EXPECT_EQ(diagnostic_severity_mask(), maskOf(severity::error));
}

TEST_F(StandardErrorLog, SinksOfProgramKeepTheirRecords)
{
    LogCapture const capture(everySeverity);
    record(severity::warning, "before");
    logToStandardError(maskOf(severity::error));
    record(severity::warning, "during");
    record(severity::error, "other", "other");
    silenceLog();
    record(severity::warning, "after");

    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"before", "during", "other", "after"}));
    EXPECT_EQ(written(), "");
}

TEST_F(StandardErrorLog, ThreadsWriteWholeLines)
{
    constexpr int numThreads = 4;
    constexpr int numRecords = 50;
    logToStandardError(everySeverity);
    std::string const message(200, 'm');
    inParallel(numThreads, [&](int) {
        for (int number = 0; number < numRecords; ++number) {
            logToStandardError(everySeverity);
            record(severity::error, message);
        }
    });

    std::istringstream lines(written());
    int numLines = 0;
    for (std::string line; std::getline(lines, line); ++numLines) {
        EXPECT_EQ(line, "foundation::certificates error: " + message);
    }
    EXPECT_EQ(numLines, numThreads * numRecords);
}
