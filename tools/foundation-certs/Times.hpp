#pragma once

#include <foundation/toolkit/Certificate.hpp>

#include <chrono>
#include <string>

/// Times are written as RFC 3339 in UTC: "2027-01-31T12:00:00Z".
namespace foundation::tools {

/// Returns the start of validity, also for a time that the system's clock cannot hold.
/// @throws std::runtime_error if the certificate's time is unreadable
std::string notBeforeOf(toolkit::Certificate const& certificate);
/// Returns the end of validity as notBeforeOf does.
std::string notAfterOf(toolkit::Certificate const& certificate);

/// Reads "2027-01-31T12:00:00Z" or "2027-01-31T13:00:00+01:00". Fractions of a second are dropped.
/// @throws std::runtime_error for another text, and for a time that the system's clock cannot hold
std::chrono::system_clock::time_point timeFrom(std::string const& text);

/// Reads a number and a unit: "45s", "90m", "12h", "30d" or "2w".
/// @throws std::runtime_error for another text, and above 1,000,000 days
std::chrono::seconds durationFrom(std::string const& text);

/// Returns the whole seconds from the one time to the other. The clock's own ticks could overflow.
std::chrono::seconds
secondsBetween(std::chrono::system_clock::time_point from, std::chrono::system_clock::time_point to);
/// Returns the whole days of the duration, rounded down.
long daysOf(std::chrono::seconds duration);

} // namespace foundation::tools
