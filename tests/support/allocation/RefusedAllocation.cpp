#include "support/allocation/RefusedAllocation.hpp"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t refusedSize = 0;

} // namespace

namespace foundation::test {

RefusedAllocation::RefusedAllocation(std::size_t size)
{
    refusedSize = size;
}

RefusedAllocation::~RefusedAllocation()
{
    refusedSize = 0;
}

} // namespace foundation::test

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept
{
    bool const refused = refusedSize != 0 && size == refusedSize;
    return refused ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept
{
    std::free(memory);
}
