#pragma once

#include "support/assertions/Failures.hpp"

#include <cstddef>
#include <functional>
#include <string>

/// @file
/// What an operation may do when memory runs out.

namespace foundation::test {

/// Whether an answer is acceptable although it differs from the answer at rest.
using AnswerMatcher = std::function<bool(std::string const& answer, std::string const& answerAtRest)>;

/// Accepts an empty answer.
bool isEmptyAnswer(std::string const& answer, std::string const& answerAtRest);
/// Accepts the beginning of a text whose stream reports that it failed.
bool isFailedStream(std::string const& answer, std::string const& answerAtRest);

/// Accepts a verdict of a validation that is not `Valid`, where the one at rest is `Valid` or a refusal.
bool isStricterVerdict(std::string const& answer, std::string const& answerAtRest);
/// Accepts signed data whose signature could not be checked, or whose chain is not trusted. For a chain that
/// is trusted at rest, also accepts that only the library's own check could finish: the same verdict, with a
/// text.
bool isStricterVerification(std::string const& answer, std::string const& answerAtRest);

/// The outcomes that an operation may have besides the answer at rest, for one kind of memory. For C++'s
/// memory `std::bad_alloc` is always allowed.
struct AllowedOutcomes
{
    Failures failures{};
    AnswerMatcher otherAnswers{};
    /// The sweep refuses every allocation of this distance. Above 1 it may miss some of the failures.
    std::size_t stride = 1;
    /// OpenSSL leaks its own memory here when an allocation fails. A program that uses only OpenSSL leaks the
    /// same.
    bool isLeaky = false;
};

/// For operations that fail in these ways and give no other answer than the one at rest.
AllowedOutcomes failsWith(Failures failures, std::size_t stride = 1);
AllowedOutcomes failsWith(Failure failure);
/// For operations with too many allocations to refuse each of them.
AllowedOutcomes withStride(std::size_t stride, AllowedOutcomes outcomes = {});
/// For operations that report a failure by an empty answer.
AllowedOutcomes orEmptyAnswer(AllowedOutcomes outcomes = {});
/// For operations that write to a stream.
AllowedOutcomes orFailedStream(AllowedOutcomes outcomes = {});

/// What an operation may leave behind when it fails.
enum class Effect
{
    WholeOrNone,
    /// A part of what a successful run leaves. An answer may stand for a part, too. A repetition completes
    /// it.
    Partial
};

} // namespace foundation::test
