#pragma once

#include <cstddef>

namespace foundation::test {

/// While it lives, allocations of exactly that many bytes fail with std::bad_alloc, on the thread that made
/// it. A test program that names this class gets an operator new of its own.
class RefusedAllocation
{
public:
    explicit RefusedAllocation(std::size_t size);
    ~RefusedAllocation();
    RefusedAllocation(RefusedAllocation const&) = delete;
    RefusedAllocation& operator=(RefusedAllocation const&) = delete;
};

} // namespace foundation::test
