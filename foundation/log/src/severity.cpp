#include <foundation/log/severity.hpp>

#include <atomic>

namespace foundation::log {
namespace {

constexpr std::uint32_t bit(severity level)
{
    return static_cast<std::uint32_t>(level);
}

// Initialized at compile time, because a logger may be used while static objects are still being constructed.
// NOLINTBEGIN(cert-err58-cpp, cppcoreguidelines-avoid-non-const-global-variables): one mask for
// the process; its initialization does not throw
std::atomic<std::uint32_t> enabledSeverities{
    bit(severity::warning) | bit(severity::error) | bit(severity::fatal)};
// NOLINTEND(cert-err58-cpp, cppcoreguidelines-avoid-non-const-global-variables)

} // namespace

std::uint32_t diagnostic_severity_mask() noexcept
{
    return enabledSeverities.load(std::memory_order_relaxed);
}

void set_diagnostic_severity_mask(std::uint32_t mask) noexcept
{
    enabledSeverities.store(mask, std::memory_order_relaxed);
}

} // namespace foundation::log
