#include "support/allocation/HugeAllocations.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr std::size_t leastHugeSize = std::size_t{1} << 30;
constexpr std::size_t pieceSize = std::size_t{1} << 20;

#ifdef MAP_POPULATE // saves page faults
constexpr int sharedAndPresent = MAP_SHARED | MAP_POPULATE;
#else
constexpr int sharedAndPresent = MAP_SHARED;
#endif

struct Block
{
    void* begin;
    std::size_t size;
};

/// The huge blocks in use. The class itself allocates nothing.
class HugeBlocks
{
public:
    void* make(std::size_t size)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        for (auto& block : blocks) {
            if (block.begin == nullptr) {
                block = map((size + pieceSize - 1) / pieceSize * pieceSize);
                numMade += block.begin == nullptr ? 0 : 1;
                return block.begin;
            }
        }
        return nullptr;
    }

    bool release(void* begin)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        for (auto& block : blocks) {
            if (block.begin == begin) {
                munmap(block.begin, block.size);
                block = Block{};
                return true;
            }
        }
        return false;
    }

    std::size_t numMadeSoFar() const
    {
        std::lock_guard<std::mutex> const lock(mutex);
        return numMade;
    }

private:
    static int newFile()
    {
#ifdef __linux__
        return memfd_create("piece", MFD_CLOEXEC); // unlike a file on a disk, it is never written back
#else
        auto* const file = std::tmpfile();
        return file == nullptr ? -1 : fileno(file);
#endif
    }

    static int sharedPiece()
    {
        static int const descriptor = [] {
            int const made = newFile();
            return made >= 0 && ftruncate(made, pieceSize) == 0 ? made : -1;
        }();
        return descriptor;
    }

    static Block map(std::size_t size)
    {
        void* const reserved = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (reserved == MAP_FAILED) {
            return {};
        }
        for (std::size_t offset = 0; offset < size; offset += pieceSize) {
            bool const isAtAnEnd = offset == 0 || offset + pieceSize == size;
            int const kind = isAtAnEnd ? MAP_PRIVATE | MAP_ANONYMOUS : sharedAndPresent;
            if (mmap(
                    static_cast<char*>(reserved) + offset, pieceSize, PROT_READ | PROT_WRITE,
                    kind | MAP_FIXED, isAtAnEnd ? -1 : sharedPiece(), 0) == MAP_FAILED) {
                munmap(reserved, size);
                return {};
            }
        }
        return {reserved, size};
    }

    mutable std::mutex mutex;
    std::array<Block, 12> blocks{};
    std::size_t numMade = 0;
};

HugeBlocks hugeBlocks;

} // namespace

namespace foundation::test {

std::size_t numHugeAllocations()
{
    return hugeBlocks.numMadeSoFar();
}

} // namespace foundation::test

void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept
{
    return size >= leastHugeSize ? hugeBlocks.make(size) : std::malloc(size == 0 ? 1 : size);
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
    // Huge blocks begin on a page boundary; other blocks seldom do.
    bool const beginsPage = reinterpret_cast<std::size_t>(memory) % 4096 == 0;
    if (memory == nullptr || !beginsPage || !hugeBlocks.release(memory)) {
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept
{
    operator delete(memory);
}
