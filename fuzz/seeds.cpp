#include "seeds/Seeds.hpp"

#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

using foundation::fuzz::Seeds;

struct Target
{
    char const* name;
    Seeds (*seeds)();
};

constexpr Target targets[] = {
    {"builder", foundation::fuzz::builderSeeds},
    {"certificate", foundation::fuzz::certificateSeeds},
    {"certificate_reader", foundation::fuzz::certificateReaderSeeds},
    {"chain", foundation::fuzz::chainSeeds},
    {"crl", foundation::fuzz::crlSeeds},
    {"distribution_points", foundation::fuzz::distributionPointsSeeds},
    {"encodings", foundation::fuzz::encodingsSeeds},
    {"hierarchy", foundation::fuzz::hierarchySeeds},
    {"http", foundation::fuzz::httpSeeds},
    {"path", foundation::fuzz::pathSeeds},
    {"pkcs12", foundation::fuzz::pkcs12Seeds},
    {"pkcs7", foundation::fuzz::pkcs7Seeds},
    {"request", foundation::fuzz::requestSeeds},
    {"texts", foundation::fuzz::textsSeeds},
    {"trust_store", foundation::fuzz::trustStoreSeeds},
};

void write(std::filesystem::path const& folder, Seeds const& seeds)
{
    std::filesystem::create_directories(folder);
    for (auto const& [name, content] : seeds) {
        std::ofstream file(folder / name, std::ios::binary);
        file.write(
            reinterpret_cast<char const*>(content.data()), static_cast<std::streamsize>(content.size()));
        if (!file.flush()) {
            throw std::runtime_error("Cannot write " + (folder / name).string());
        }
    }
}

} // namespace

/// fuzz_seeds FOLDER: writes the first inputs of each fuzz target to FOLDER/TARGET/NAME.
int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2) {
        std::cerr << "usage: fuzz_seeds FOLDER\n";
        return 2;
    }
    try {
        for (auto const& target : targets) {
            write(std::filesystem::path(arguments[1]) / target.name, target.seeds());
        }
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << "\n";
        return 1;
    }
}
