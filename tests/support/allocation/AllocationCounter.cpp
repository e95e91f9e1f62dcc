#include "support/allocation/AllocationCounter.hpp"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include <malloc.h>

namespace foundation::test {

namespace {

thread_local bool counting = false;
thread_local Allocations current;
thread_local std::int64_t live = 0;

std::int64_t sizeOf(void* memory)
{
    return static_cast<std::int64_t>(malloc_usable_size(memory));
}

void* countNew(void* memory)
{
    if (counting && memory != nullptr) {
        auto const size = sizeOf(memory);
        ++current.count;
        current.bytes += size;
        live += size;
        current.peak = std::max(current.peak, live);
    }
    return memory;
}

void countOld(void* memory)
{
    if (counting && memory != nullptr) {
        live -= sizeOf(memory);
    }
}

void* allocate(std::size_t size, char const* /*file*/, int /*line*/)
{
    return countNew(std::malloc(size));
}

void* reallocate(void* memory, std::size_t size, char const* /*file*/, int /*line*/)
{
    countOld(memory);
    return countNew(std::realloc(memory, size));
}

void release(void* memory, char const* /*file*/, int /*line*/)
{
    countOld(memory);
    std::free(memory);
}

} // namespace

void countAllocationsOfOpenSSL()
{
    if (CRYPTO_set_mem_functions(allocate, reallocate, release) != 1) {
        throw std::runtime_error("OpenSSL has allocated already");
    }
}

void startCounting()
{
    current = {};
    live = 0;
    counting = true;
}

void noteKept()
{
    current.kept = live;
}

Allocations stopCounting()
{
    counting = false;
    return current;
}

void* newCounted(std::size_t size)
{
    void* const memory = countNew(std::malloc(size == 0 ? 1 : size));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void deleteCounted(void* memory)
{
    countOld(memory);
    std::free(memory);
}

} // namespace foundation::test

void* operator new(std::size_t size)
{
    return foundation::test::newCounted(size);
}

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept
{
    return foundation::test::countNew(std::malloc(size == 0 ? 1 : size));
}

void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept
{
    foundation::test::deleteCounted(memory);
}

void operator delete(void* memory) noexcept
{
    foundation::test::deleteCounted(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    foundation::test::deleteCounted(memory);
}
