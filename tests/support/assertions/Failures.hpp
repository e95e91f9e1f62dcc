#pragma once

#include <exception>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

/// @file
/// Exceptions that may come of an operation, and those that operations of several classes share.

namespace foundation::test {

/// An exception of exactly that class. Its text is the given one, or begins with it.
struct Failure
{
    std::type_index type;
    std::string text;
    bool isWholeText = true;

    bool fits(std::type_index thrownType, std::string const& thrownText) const;
};

using Failures = std::vector<Failure>;

template <class Exception>
Failure failure(std::string text)
{
    return {typeid(Exception), std::move(text)};
}

template <class Exception>
Failure failureBeginning(std::string text)
{
    return {typeid(Exception), std::move(text), false};
}

Failures operator+(Failures all, Failures const& more);

/// Class and text, as a test's message shows them.
std::string describe(std::type_index type, std::string const& text);

// What comes of a want of OpenSSL's memory

/// No key, or only a part of it.
Failures keyUnread();
/// No certificate where OpenSSL's object for one is taken over.
Failures certificateUntaken();
/// A certificate with all that its loading wants to know of it. The reason of OpenSSL's is its own.
Failures certificateUnloaded();
Failure fingerprintUnknown();
Failure certificateUnwritten();
/// A validation that came to no verdict.
Failures validationUnfinished();

} // namespace foundation::test
