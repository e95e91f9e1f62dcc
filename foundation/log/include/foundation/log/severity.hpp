#pragma once

#include <foundation/log/export.hpp>

#include <cstdint>

namespace foundation::log {

/// The severity of a diagnostic record. Each severity is one bit, so that a mask is a set of severities.
enum class severity : int
{
    trace = 1,
    debug = 2,
    information = 4,
    warning = 8,
    error = 16,
    fatal = 32
};

/// Returns the enabled severities, which are the bits of one mask for the whole process. It starts with
/// warning, error and fatal, so that a program without any logging setup stays quiet.
FOUNDATION_LOG_EXPORT std::uint32_t diagnostic_severity_mask() noexcept;

/// Sets the enabled severities for every logger, from the next record on. Any thread may call this at any
/// time. Bits without a severity have no effect.
FOUNDATION_LOG_EXPORT void set_diagnostic_severity_mask(std::uint32_t mask) noexcept;

} // namespace foundation::log
