#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>

namespace foundation::test {

/// Where memory comes from that a test can have run out.
enum class Memory
{
    /// What OpenSSL allocates: where there is none, it gets a null pointer.
    OpenSSL,
    /// What C++ allocates: where there is none, `operator new` throws `std::bad_alloc`.
    Heap
};

/// How long memory stays away.
enum class Length
{
    OneAllocation,
    /// Until the shortage itself ends.
    Lasting
};

/// While it lives, the allocation of that number, counted from 0, finds no memory. Those before it do, those
/// behind it unless the shortage is a lasting one, and so do all other threads.
///
/// A test program that links this has memory functions of its own for OpenSSL, and operators new and delete
/// of its own.
class Shortage
{
public:
    Shortage(Memory memory, std::size_t allocation, Length length = Length::OneAllocation);
    /// Refuses that many consecutive allocations from the given one on.
    Shortage(Memory memory, std::size_t allocation, std::size_t refusals);
    ~Shortage();
    Shortage(Shortage const&) = delete;
    Shortage& operator=(Shortage const&) = delete;

    /// Whether the calling thread has reached that allocation since the last shortage began.
    static bool hasOccurred();
};

/// While it lives, no shortage hits what the calling thread's OpenSSL allocates in those of its source files,
/// which are named without a folder. Those allocations do not count. An OpenSSL that was built to name no
/// files is spared altogether.
class SparedSources
{
public:
    using Files = std::set<std::string, std::less<>>;

    /// They outlive it.
    explicit SparedSources(Files const& files);
    explicit SparedSources(Files&& files) = delete;
    ~SparedSources();
    SparedSources(SparedSources const&) = delete;
    SparedSources& operator=(SparedSources const&) = delete;
};

} // namespace foundation::test
