#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <set>
#include <string>

namespace foundation::test {

/// The allocator that runs out of memory.
enum class Memory
{
    /// OpenSSL's. A refused allocation returns a null pointer.
    OpenSSL,
    /// C++'s. A refused allocation throws `std::bad_alloc`.
    Heap
};

/// For a shortage that refuses every allocation to its end.
constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();

/// Refuses consecutive allocations of the thread that makes it. The first refused allocation is given by its
/// number, counted from 0. Earlier and later allocations succeed, and so do those of other threads.
///
/// A test program that links this replaces OpenSSL's memory functions and the operators new and delete.
class Shortage
{
public:
    Shortage(Memory memory, std::size_t firstRefused, std::size_t numRefused = 1);
    ~Shortage();
    Shortage(Shortage const&) = delete;
    Shortage& operator=(Shortage const&) = delete;

    /// Whether the calling thread has reached the first refused allocation since the last shortage began.
    static bool hasOccurred();
    /// Returns how many allocations the calling thread has made before the first refused one.
    static std::size_t numGranted();
};

/// Exempts allocations of the calling thread's OpenSSL from every shortage if they come from the given source
/// files, which are named without a folder. Exempt allocations do not count. An OpenSSL that was built
/// without file names is exempt altogether.
class SparedSources
{
public:
    using Files = std::set<std::string, std::less<>>;

    /// The files must outlive the object.
    explicit SparedSources(Files const& files);
    explicit SparedSources(Files&& files) = delete;
    ~SparedSources();
    SparedSources(SparedSources const&) = delete;
    SparedSources& operator=(SparedSources const&) = delete;
};

} // namespace foundation::test
