#pragma once

/// @file
/// Counts what is allocated while one operation runs: by C++ through operator new, which this file's source
/// replaces for the whole program, and by OpenSSL.

#include <cstdint>

namespace foundation::benchmarks {

struct Allocations
{
    std::int64_t count = 0;
    std::int64_t bytes = 0;
    /// The most that was allocated at one time, beyond what there was before.
    std::int64_t peak = 0;
};

/// Lets OpenSSL's allocations be counted. Must come before OpenSSL allocates for the first time.
void countAllocationsOfOpenSSL();

/// Of one operation on the calling thread; elsewhere and otherwise nothing is counted.
template <typename Operation>
Allocations allocationsOf(Operation const& operation);

void startCounting();
Allocations stopCounting();

template <typename Operation>
Allocations allocationsOf(Operation const& operation)
{
    startCounting();
    {
        auto const result = operation();
        static_cast<void>(result);
    }
    return stopCounting();
}

} // namespace foundation::benchmarks
