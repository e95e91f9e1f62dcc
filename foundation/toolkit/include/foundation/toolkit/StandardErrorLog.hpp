#pragma once

#include <foundation/toolkit/export.hpp>

#include <cstdint>

namespace foundation::toolkit {

/// Writes the library's diagnostic records of the given severities to standard error, one line for each:
///
///     foundation::certificates warning: the message
///
/// The mask is a set of `foundation::log::severity` bits; 56 means warning, error and fatal. Replaces
/// the mask of an earlier call, so that no line is written twice. Only records of the channel
/// "foundation::certificates" are written. In a message, line ends and other control characters are escaped:
/// "\n", "\r", "\x1b".
///
/// The sinks that the program added to Boost.Log stay as they are. Boost.Log's default console sink, which
/// works only while a program has no sink, ends as with any sink. The severities are also added to
/// `foundation::log::diagnostic_severity_mask`, which decides for all sinks of the process; silenceLog
/// removes those that were added. A program that changes that mask itself does so after this call.
///
/// Any thread may call this at any time.
FOUNDATION_TOOLKIT_EXPORT void logToStandardError(std::uint32_t severityMask);

/// Ends what logToStandardError started. Boost.Log's default console sink stays off as well, also without an
/// earlier call: a program without sinks of its own is silent from now on. Its own sinks stay as they are.
FOUNDATION_TOOLKIT_EXPORT void silenceLog();

} // namespace foundation::toolkit
