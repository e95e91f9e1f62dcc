#include "support/system/InParallel.hpp"
#include "support/system/LogCapture.hpp"

#include <foundation/log/basic_diagnostic_logger.hpp>

#include <boost/log/attributes/constant.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/expressions.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace foundation::log;
using namespace foundation::test;
using foundation::log::detail::current_exception_chain_as_string;

namespace {

void writeNothing(std::ostream&) {}

void throwNested()
{
    try {
        throw std::runtime_error("the disk is full");
    } catch (std::exception const&) {
        std::throw_with_nested(std::invalid_argument("cannot save"));
    }
}

struct OtherException
{};

template <typename Detail>
struct ExceptionWith : std::exception
{
    char const* what() const noexcept override { return "with a detail"; }
};

class DiagnosticLogger : public testing::Test
{
protected:
    basic_diagnostic_logger<char> logger{"test::channel"};
};

} // namespace

TEST_F(DiagnosticLogger, WritesOnlySeverityChannelAndMessage)
{
    LogCapture capture;

    logger.write(severity::error, [](std::ostream& out) { out << "three is " << 3; });

    LogRecord const expected{16, "test::channel", "three is 3", {"Severity", "Channel", "Message"}};
    EXPECT_EQ(capture.records(), std::vector<LogRecord>{expected});
}

TEST_F(DiagnosticLogger, MessageReplacesAttributeOfThatName)
{
    LogCapture capture;
    auto const core = boost::log::core::get();

    auto const added =
        core->add_global_attribute("Message", boost::log::attributes::constant<std::string>("another"));
    logger.write(severity::error, [](std::ostream& out) { out << "text"; });
    core->remove_global_attribute(added.first);

    EXPECT_EQ(capture.messages(), std::vector<std::string>{"text"});
}

TEST_F(DiagnosticLogger, WritesSeverityAsItsBit)
{
    LogCapture capture;
    std::vector<std::pair<severity, int>> const bits{{severity::trace, 1},       {severity::debug, 2},
                                                     {severity::information, 4}, {severity::warning, 8},
                                                     {severity::error, 16},      {severity::fatal, 32}};

    for (auto const& [level, bit] : bits) {
        logger.write(level, writeNothing);
        EXPECT_EQ(capture.records().back().severity, bit);
    }
    EXPECT_EQ(capture.records().size(), bits.size());
}

TEST_F(DiagnosticLogger, PrintsBoolAsDigitByDefault)
{
    LogCapture capture;

    logger.write(severity::fatal, [](std::ostream& out) { out << true << false << std::boolalpha << true; });
    logger.write(severity::fatal, [](std::ostream& out) { out << true; });

    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"10true", "1"}));
}

TEST_F(DiagnosticLogger, KeepsSingleCharacterAtTheEnd)
{
    LogCapture capture;

    logger.write(severity::error, [](std::ostream& out) { out << "path" << '/'; });
    logger.write(severity::error, [](std::ostream& out) { out << '/'; });

    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"path/", "/"}));
}

TEST_F(DiagnosticLogger, StartsWithWarningErrorAndFatalEnabled)
{
    EXPECT_EQ(diagnostic_severity_mask(), 8u | 16u | 32u);
}

TEST_F(DiagnosticLogger, WritesOnlySeveritiesOfMask)
{
    LogCapture capture(4 | 16);
    int composed = 0;
    auto const compose = [&composed](std::ostream& out) { out << ++composed; };

    logger.write(severity::information, compose);
    logger.write(severity::warning, compose);
    logger.write(severity::error, compose);
    set_diagnostic_severity_mask(8);
    logger.write(severity::information, compose);
    logger.write(severity::warning, compose);

    EXPECT_EQ(composed, 3);
    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"1", "2", "3"}));
}

TEST_F(DiagnosticLogger, ComposesNoTextIfCoreDisablesLogging)
{
    LogCapture capture;
    bool composed = false;

    boost::log::core::get()->set_logging_enabled(false);
    logger.write(severity::error, [&composed](std::ostream&) { composed = true; });
    boost::log::core::get()->set_logging_enabled(true);

    EXPECT_FALSE(composed);
    EXPECT_TRUE(capture.records().empty());
}

TEST_F(DiagnosticLogger, ComposesNoTextIfFilterRejectsRecord)
{
    LogCapture capture;
    bool composed = false;

    boost::log::core::get()->set_filter(boost::log::expressions::attr<int>("Severity") >= 16);
    logger.write(severity::warning, [&composed](std::ostream&) { composed = true; });
    logger.write(severity::error, [](std::ostream& out) { out << "passes"; });
    boost::log::core::get()->reset_filter();

    EXPECT_FALSE(composed);
    EXPECT_EQ(capture.messages(), std::vector<std::string>{"passes"});
}

TEST_F(DiagnosticLogger, DropsRecordIfComposingThrows)
{
    LogCapture capture;
    auto const compose = [](std::ostream& out) {
        out << "half a ";
        throw std::runtime_error("no more");
    };

    EXPECT_THROW(logger.write(severity::error, compose), std::runtime_error);
    EXPECT_TRUE(capture.records().empty());

    logger.write(severity::error, [](std::ostream& out) { out << "next"; });
    EXPECT_EQ(capture.messages(), std::vector<std::string>{"next"});
}

TEST_F(DiagnosticLogger, WritesDuringStackUnwinding)
{
    struct WritesAtItsEnd
    {
        basic_diagnostic_logger<char>& logger;
        ~WritesAtItsEnd()
        {
            logger.write(severity::error, [](std::ostream& out) { out << "unwinding"; });
        }
    };
    LogCapture capture;

    try {
        WritesAtItsEnd const writer{logger};
        throw std::runtime_error("reason to unwind");
    } catch (std::runtime_error const&) {
        EXPECT_EQ(capture.messages(), std::vector<std::string>{"unwinding"});
    }
}

TEST_F(DiagnosticLogger, HoldsNoLockDuringComposition)
{
    LogCapture capture;

    logger.write(severity::error, [this](std::ostream& out) {
        std::thread([this] {
            logger.write(severity::error, [](std::ostream& inner) { inner << "inner"; });
        }).join();
        out << "outer";
    });

    EXPECT_EQ(capture.messages(), (std::vector<std::string>{"inner", "outer"}));
}

TEST_F(DiagnosticLogger, IsSharedBetweenThreads)
{
    LogCapture capture;
    foundation::test::inParallel(4, [this](int) {
        for (int record = 0; record < 100; ++record) {
            logger.write(severity::error, [](std::ostream& out) { out << "x"; });
        }
    });

    EXPECT_EQ(capture.messages(), std::vector<std::string>(400, "x"));
}

TEST(CurrentExceptionChain, ShowsTypeAndText)
{
    try {
        throw std::out_of_range("no such entry");
    } catch (std::out_of_range const&) {
        EXPECT_EQ(current_exception_chain_as_string(), "std::out_of_range: no such entry");
    }
}

TEST(CurrentExceptionChain, ListsOutermostExceptionFirst)
{
    try {
        try {
            throwNested();
        } catch (std::exception const&) {
            std::throw_with_nested(std::logic_error("request failed"));
        }
    } catch (std::exception const&) {
        EXPECT_EQ(
            current_exception_chain_as_string(),
            "std::logic_error: request failed <- std::invalid_argument: cannot save <- "
            "std::runtime_error: the disk is full");
    }
}

TEST(CurrentExceptionChain, EndsAtEmptyNestedException)
{
    try {
        std::throw_with_nested(std::runtime_error("thrown outside of a handler"));
    } catch (std::exception const&) {
        EXPECT_EQ(current_exception_chain_as_string(), "std::runtime_error: thrown outside of a handler");
    }
}

TEST(CurrentExceptionChain, ShowsOnlyTypeOfOtherException)
{
    try {
        throw 42;
    } catch (int) {
        EXPECT_EQ(current_exception_chain_as_string(), "int");
    }
}

TEST(CurrentExceptionChain, ShowsTypeOfTemplateInFull)
{
    try {
        throw ExceptionWith<OtherException>();
    } catch (std::exception const&) {
        EXPECT_EQ(
            current_exception_chain_as_string(),
            "(anonymous namespace)::ExceptionWith<(anonymous namespace)::OtherException>: with a detail");
    }
}

TEST(CurrentExceptionChain, ShowsExceptionNestedInOtherException)
{
    try {
        try {
            throw std::runtime_error("the disk is full");
        } catch (std::exception const&) {
            std::throw_with_nested(OtherException());
        }
    } catch (OtherException const&) {
        EXPECT_EQ(
            current_exception_chain_as_string(),
            "(anonymous namespace)::OtherException <- std::runtime_error: the disk is full");
    }
}

TEST(CurrentExceptionChain, SaysNoExceptionOutsideOfHandler)
{
    EXPECT_EQ(current_exception_chain_as_string(), "no exception");
}
