#pragma once

#include <foundation/log/export.hpp>

#include <cstdint>

namespace foundation::log {

/// How grave a diagnostic record is. Each severity is one bit, so that a set of severities is a mask.
enum class severity : int
{
    trace = 1,
    debug = 2,
    information = 4,
    warning = 8,
    error = 16,
    fatal = 32
};

/// The severities that are written, as the bits of one process-wide mask. It starts as warning, error and
/// fatal, so that a program that has set up no logging is not chattered at.
FOUNDATION_LOG_EXPORT std::uint32_t diagnostic_severity_mask() noexcept;

/// Sets the severities that are written, for every logger and from the next record on. Any thread may call
/// it at any time; bits that stand for no severity have no effect.
FOUNDATION_LOG_EXPORT void set_diagnostic_severity_mask(std::uint32_t mask) noexcept;

} // namespace foundation::log
