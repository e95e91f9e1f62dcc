#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

namespace foundation::test {

/// Random choices that a seed repeats on every system.
class Dice
{
public:
    explicit Dice(std::uint64_t seed) : engine(seed) {}

    int below(int limit) { return static_cast<int>(engine() % static_cast<std::uint64_t>(limit)); }
    std::size_t indexIn(std::size_t size) { return static_cast<std::size_t>(engine() % size); }
    bool oneIn(int times) { return below(times) == 0; }

    template <class T>
    T const& pick(std::vector<T> const& values)
    {
        return values[indexIn(values.size())];
    }

    template <class T>
    T& pick(std::vector<T>& values)
    {
        return values[indexIn(values.size())];
    }

    template <class T>
    void shuffle(std::vector<T>& values)
    {
        for (auto left = values.size(); left > 1; --left) {
            std::swap(values[left - 1], values[indexIn(left)]);
        }
    }

private:
    std::mt19937_64 engine;
};

/// Returns the number in the environment variable, or the default value without one.
inline std::uint64_t numberFromEnvironment(char const* variable, std::uint64_t defaultValue)
{
    auto const* const chosen = std::getenv(variable);
    return chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : defaultValue;
}

} // namespace foundation::test
