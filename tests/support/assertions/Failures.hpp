#pragma once

#include <exception>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

/// @file
/// Exceptions that an operation may throw, and those that operations of several classes share.

namespace foundation::test {

/// An exception of exactly that class. Its text equals the given one, or begins with it.
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

/// Returns class and text for the message of a test.
std::string describe(std::type_index type, std::string const& text);

/// What every query of a certificate throws on a default object.
Failure certificateWithoutContent();

// What operations throw when OpenSSL is out of memory

Failure nameUnread();
Failure extensionsUnread();
Failure modulusUnread();
Failure exponentUnread();
Failure fingerprintUnknown();
Failure certificateUnwritten();
/// A key was read in part or not at all.
Failures keyUnread();
/// The library could not take over OpenSSL's object for a certificate.
Failures certificateUntaken();
/// A certificate could not be loaded. The reason is OpenSSL's text.
Failures certificateUnloaded();
/// The entries of a trust store could not be read. OpenSSL allocates memory for that from 3.3 on; empty for
/// earlier releases.
Failures storeUnread();
/// A validation ended without a verdict.
Failures validationUnfinished();

} // namespace foundation::test
