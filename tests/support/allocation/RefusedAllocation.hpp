#pragma once

#include <cstddef>

namespace foundation::test {

/// Refuses allocations of exactly the given size with std::bad_alloc, on the thread that makes it. A test
/// program that uses this class replaces operator new.
class RefusedAllocation
{
public:
    explicit RefusedAllocation(std::size_t size);
    ~RefusedAllocation();
    RefusedAllocation(RefusedAllocation const&) = delete;
    RefusedAllocation& operator=(RefusedAllocation const&) = delete;
};

} // namespace foundation::test
