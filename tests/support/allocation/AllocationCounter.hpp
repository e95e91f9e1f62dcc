#pragma once

/// @file
/// Counts the allocations of one operation: those of OpenSSL, and those of C++ through operator new, which
/// the source file replaces for the whole program.

#include <cstdint>

namespace foundation::test {

struct Allocations
{
    std::int64_t count = 0;
    std::int64_t bytes = 0;
    /// The largest amount in use at one time, without what was allocated before.
    std::int64_t peak = 0;
    /// What is still in use while the result exists.
    std::int64_t kept = 0;
};

/// Starts to count OpenSSL's allocations. Call it before OpenSSL's first allocation.
void countAllocationsOfOpenSSL();

/// Counts one operation on the calling thread. Nothing else is counted.
template <typename Operation>
Allocations allocationsOf(Operation const& operation);

void startCounting();
/// Takes what is in use now as the amount that the result keeps.
void noteKept();
Allocations stopCounting();

template <typename Operation>
Allocations allocationsOf(Operation const& operation)
{
    startCounting();
    {
        auto const result = operation();
        static_cast<void>(result);
        noteKept();
    }
    return stopCounting();
}

} // namespace foundation::test
