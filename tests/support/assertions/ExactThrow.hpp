#pragma once

#include <boost/core/demangle.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>

/// Expects that the expression throws an exception of exactly the type `Type`, not of a derived class, and
/// that its `what()` is exactly `text`. The expression may contain commas and may yield a value, also a
/// [[nodiscard]] one. A failure is not fatal, so the macro also works in functions that return values.
#define EXPECT_THROWS_EXACTLY(Type, text, ...)                                                               \
    FOUNDATION_TEST_EXPECT_THROW(Type, ::foundation::test::detail::Match::Whole, text, __VA_ARGS__)

/// Expects that `what()` begins with `prefix`. For texts that end in OpenSSL's own wording.
#define EXPECT_THROWS_WITH_PREFIX(Type, prefix, ...)                                                         \
    FOUNDATION_TEST_EXPECT_THROW(Type, ::foundation::test::detail::Match::Prefix, prefix, __VA_ARGS__)

#define FOUNDATION_TEST_EXPECT_THROW(Type, match, text, ...)                                                 \
    GTEST_AMBIGUOUS_ELSE_BLOCKER_                                                                            \
    if (::testing::AssertionResult const foundationTestOutcome =                                             \
            ::foundation::test::detail::throwsAsExpected<Type>(                                              \
                match, text, [&] { static_cast<void>(__VA_ARGS__); }))                                       \
        ;                                                                                                    \
    else                                                                                                     \
        GTEST_NONFATAL_FAILURE_("Expression: " #__VA_ARGS__ "\n") << foundationTestOutcome.message()

namespace foundation::test::detail {

enum class Match
{
    Whole,
    Prefix
};

inline std::string describe(std::type_info const& type, std::string const& text)
{
    return boost::core::demangle(type.name()) + " with text \"" + text + "\"";
}

template <class Expected, class Callable>
testing::AssertionResult throwsAsExpected(Match match, std::string const& text, Callable const& callable)
{
    auto const expectation =
        describe(typeid(Expected), text) + (match == Match::Prefix ? " at its beginning" : "");
    try {
        callable();
    } catch (std::exception const& thrown) {
        std::string const what = thrown.what();
        auto const textMatches =
            match == Match::Whole ? what == text : what.compare(0, text.size(), text) == 0;
        if (typeid(thrown) == typeid(Expected) && textMatches) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure()
               << "  Expected: " << expectation << "\n    Actual: " << describe(typeid(thrown), what);
    } catch (...) {
        return testing::AssertionFailure()
               << "  Expected: " << expectation << "\n    Actual: something that is not a std::exception";
    }
    return testing::AssertionFailure() << "  Expected: " << expectation << "\n    Actual: nothing was thrown";
}

} // namespace foundation::test::detail
