#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace foundation::fuzz {

/// Choices that the bytes of an input make, one byte each. After the last byte every choice is the first one.
class Choices
{
public:
    Choices(std::uint8_t const* data, std::size_t size) : next(data), end(data + size) {}

    /// Returns a number below the limit, which is between 1 and 256.
    std::size_t below(std::size_t limit) { return next == end ? 0 : *next++ % limit; }
    bool yes() { return below(2) == 1; }

    template <class T>
    T const& pick(std::vector<T> const& values)
    {
        return values[below(values.size())];
    }

private:
    std::uint8_t const* next;
    std::uint8_t const* end;
};

} // namespace foundation::fuzz
