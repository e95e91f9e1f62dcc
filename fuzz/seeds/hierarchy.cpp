#include "seeds/Seeds.hpp"

#include <random>
#include <string>

namespace foundation::fuzz {

Seeds hierarchySeeds()
{
    constexpr int numSeeds = 64;
    constexpr std::size_t numChoices = 96;
    // Every byte is a choice, so any bytes are a hierarchy.
    std::mt19937 random(20261122);
    Seeds seeds;
    for (int number = 0; number < numSeeds; ++number) {
        auto& seed = seeds["random-" + std::to_string(number)];
        while (seed.size() < numChoices) {
            seed.push_back(static_cast<unsigned char>(random()));
        }
    }
    return seeds;
}

} // namespace foundation::fuzz
