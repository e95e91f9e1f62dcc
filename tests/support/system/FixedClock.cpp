#include "support/system/FixedClock.hpp"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <limits>

namespace {

constexpr std::time_t running = std::numeric_limits<std::time_t>::min();

std::atomic<std::time_t> stoppedAt{running};

bool tellsTheDate(clockid_t clock)
{
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

/// Calls the kernel directly, because the function below hides the C library's own.
int readClock(clockid_t clock, timespec* result)
{
#ifdef SYS_clock_gettime64
    constexpr long call = sizeof(std::time_t) > sizeof(long) ? SYS_clock_gettime64 : SYS_clock_gettime;
#else
    constexpr long call = SYS_clock_gettime;
#endif
    return static_cast<int>(syscall(call, clock, result));
}

} // namespace

// C libraries differ in whether they declare these functions as noexcept.

extern "C" int
clock_gettime(clockid_t clock, timespec* result) noexcept(noexcept(clock_gettime(clock, result)))
{
    auto const stopped = stoppedAt.load();
    if (stopped != running && tellsTheDate(clock)) {
        *result = {stopped, 0};
        return 0;
    }
    return readClock(clock, result);
}

extern "C" std::time_t time(std::time_t* result) noexcept(noexcept(time(result)))
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

extern "C" int
gettimeofday(timeval* result, void* timeZone) noexcept(noexcept(gettimeofday(result, timeZone)))
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *result = {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
    return 0;
}

namespace foundation::test {

FixedClock::FixedClock(std::time_t secondsSince1970) : previous(stoppedAt.exchange(secondsSince1970)) {}

FixedClock::~FixedClock()
{
    stoppedAt = previous;
}

} // namespace foundation::test
