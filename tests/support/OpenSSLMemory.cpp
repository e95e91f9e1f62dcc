#include "support/OpenSSLMemory.hpp"

#include <openssl/crypto.h>

#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>

namespace foundation::test {

namespace {

/// Allocations until one fails; negative: none does.
thread_local long allocationsLeft = -1;
thread_local bool hasFailed = false;

bool fails()
{
    if (allocationsLeft < 0 || allocationsLeft-- > 0) {
        return false;
    }
    hasFailed = true;
    return true;
}

void* allocate(std::size_t size, char const* /*file*/, int /*line*/)
{
    return size == 0 || fails() ? nullptr : std::malloc(size);
}

void* reallocate(void* memory, std::size_t size, char const* /*file*/, int /*line*/)
{
    return fails() ? nullptr : std::realloc(memory, size);
}

void release(void* memory, char const* /*file*/, int /*line*/)
{
    std::free(memory);
}

/// OpenSSL takes other functions only before it has allocated anything.
bool const isInCharge = CRYPTO_set_mem_functions(allocate, reallocate, release) == 1;

/// What came out of the operation while one allocation failed, if anything did.
std::optional<std::string> failureOf(std::function<void()> const& operation, long allocation)
{
    hasFailed = false;
    allocationsLeft = allocation;
    try {
        operation();
    } catch (std::exception const& failure) {
        allocationsLeft = -1;
        return failure.what();
    }
    allocationsLeft = -1;
    return std::nullopt;
}

} // namespace

std::set<std::string> failuresWithoutMemory(std::function<void()> const& operation, long step)
{
    if (!isInCharge) {
        throw std::logic_error("OpenSSL had allocated memory before the test took charge of it");
    }
    operation(); // what OpenSSL allocates once is there from now on
    std::set<std::string> texts;
    for (long allocation = 0; allocation == 0 || hasFailed; allocation += step) {
        if (auto const text = failureOf(operation, allocation)) {
            texts.insert(*text);
        }
    }
    return texts;
}

} // namespace foundation::test
