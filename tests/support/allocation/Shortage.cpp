#include "support/allocation/Shortage.hpp"

#include <openssl/crypto.h>

#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>

namespace {

using foundation::test::Memory;
using foundation::test::SparedSources;

struct Countdown
{
    bool isRunning = false;
    Memory memory = Memory::OpenSSL;
    std::size_t firstRefused = 0;
    std::size_t allocationsLeft = 0;
    std::size_t refusalsLeft = 0;
    bool hasRefused = false;
};

thread_local Countdown countdown;

thread_local SparedSources::Files const* sparedFiles = nullptr;

/// Some of OpenSSL's functions allocate with an empty file name.
bool isSpared(char const* file)
{
    if (sparedFiles == nullptr || file == nullptr) {
        return false;
    }
    std::string_view const path = file;
    return path.empty() || sparedFiles->count(path.substr(path.find_last_of("/\\") + 1)) > 0;
}

bool isOut(Memory memory)
{
    if (!countdown.isRunning || countdown.memory != memory) {
        return false;
    }
    if (countdown.allocationsLeft > 0) {
        --countdown.allocationsLeft;
        return false;
    }
    countdown.hasRefused = true;
    if (countdown.refusalsLeft != foundation::test::unlimited) {
        --countdown.refusalsLeft;
    }
    countdown.isRunning = countdown.refusalsLeft > 0;
    return true;
}

bool isOutForOpenSSL(char const* file)
{
    return !isSpared(file) && isOut(Memory::OpenSSL);
}

void* allocateForOpenSSL(std::size_t size, char const* file, int /*line*/)
{
    return size == 0 || isOutForOpenSSL(file) ? nullptr : std::malloc(size);
}

void* reallocateForOpenSSL(void* memory, std::size_t size, char const* file, int /*line*/)
{
    return isOutForOpenSSL(file) ? nullptr : std::realloc(memory, size);
}

void releaseForOpenSSL(void* memory, char const* /*file*/, int /*line*/)
{
    std::free(memory);
}

/// OpenSSL accepts other functions only before its first allocation.
bool const hasReplacedFunctions =
    CRYPTO_set_mem_functions(allocateForOpenSSL, reallocateForOpenSSL, releaseForOpenSSL) == 1;

void* allocate(std::size_t size) noexcept
{
    return isOut(Memory::Heap) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* allocate(std::size_t size, std::align_val_t alignment) noexcept
{
    auto const boundary = static_cast<std::size_t>(alignment);
    auto const wholeBlocks = (size == 0 ? 1 : (size + boundary - 1) / boundary) * boundary;
    return isOut(Memory::Heap) ? nullptr : std::aligned_alloc(boundary, wholeBlocks);
}

void* orThrow(void* memory)
{
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

namespace foundation::test {

Shortage::Shortage(Memory memory, std::size_t firstRefused, std::size_t numRefused)
{
    if (!hasReplacedFunctions) {
        throw std::logic_error("OpenSSL allocated memory before the test replaced its memory functions");
    }
    countdown = {true, memory, firstRefused, firstRefused, numRefused, false};
}

Shortage::~Shortage()
{
    countdown.isRunning = false;
}

std::size_t Shortage::numGranted()
{
    return countdown.firstRefused - countdown.allocationsLeft;
}

bool Shortage::hasOccurred()
{
    return countdown.hasRefused;
}

SparedSources::SparedSources(Files const& files)
{
    sparedFiles = &files;
}

SparedSources::~SparedSources()
{
    sparedFiles = nullptr;
}

} // namespace foundation::test

// All forms: memory from one of these operators must not reach another library's `operator delete`.

void* operator new(std::size_t size)
{
    return orThrow(allocate(size));
}

void* operator new[](std::size_t size)
{
    return orThrow(allocate(size));
}

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept
{
    return allocate(size);
}

void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept
{
    return allocate(size);
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, alignment));
}

void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return orThrow(allocate(size, alignment));
}

void* operator new(std::size_t size, std::align_val_t alignment, std::nothrow_t const& /*tag*/) noexcept
{
    return allocate(size, alignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment, std::nothrow_t const& /*tag*/) noexcept
{
    return allocate(size, alignment);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::nothrow_t const& /*tag*/) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t /*alignment*/, std::nothrow_t const& /*tag*/) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::align_val_t /*alignment*/, std::nothrow_t const& /*tag*/) noexcept
{
    std::free(memory);
}
