#pragma once

#include <ctime>

namespace foundation::test {

/// Stops the wall clock of the process during a scope. `time`, `gettimeofday` and `clock_gettime` return the
/// given time, and so do `std::chrono::system_clock` and OpenSSL. Clocks that measure durations keep running.
/// Scopes may be nested; the innermost one counts.
///
/// It replaces these functions of the C library. Only test programs that need it link it.
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
