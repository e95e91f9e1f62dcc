#pragma once

#include <ctime>

namespace foundation::test {

/// Stops the wall clock of the whole process while it lives: `time`, `gettimeofday`, `clock_gettime`, and
/// with them `std::chrono::system_clock` and OpenSSL, read the given time. Clocks that measure durations run
/// on. Clocks may be nested; the innermost counts.
///
/// It works by definitions of these functions that take the place of the C library's. Only test programs that
/// need it link it.
class FixedClock
{
public:
    explicit FixedClock(std::time_t secondsSince1970);
    ~FixedClock();
    FixedClock(FixedClock const&) = delete;
    FixedClock& operator=(FixedClock const&) = delete;

private:
    std::time_t const previous;
};

} // namespace foundation::test
