// Compares the library with bare OpenSSL and prints a table.
//
//     foundation_benchmarks [--once] [--report FILE] [--peers FOLDER] [--plot FILE] [--image NAME]
//                           [--benchmark_filter=REGEX ...]
//     foundation_benchmarks --material FOLDER ROOTS
//
// --once runs each operation once, to check that it works. --report also writes the table as a page, which
// shows the image. --peers names the folder with the results of other libraries, --plot the file for the
// points of the plot. --material only writes the certificates that the programs of other libraries measure.

#include "Comparison.hpp"
#include "Material.hpp"
#include "Peers.hpp"
#include "Report.hpp"

#include "support/allocation/AllocationCounter.hpp"
#include "support/system/NetworkNamespace.hpp"

#include <cstddef>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace foundation::benchmarks;

struct Arguments
{
    bool once = false;
    std::string report;
    std::string peers;
    std::string plot;
    std::string image;
    std::string material;
    std::size_t materialRoots = 0;
    std::vector<std::string> forBenchmark;
};

/// Returns where the value of the option goes; null for other words.
std::string* optionNamed(Arguments& arguments, std::string const& word)
{
    std::map<std::string, std::string*> const options{
        {"--report", &arguments.report},
        {"--peers", &arguments.peers},
        {"--plot", &arguments.plot},
        {"--image", &arguments.image}};
    auto const place = options.find(word);
    return place == options.end() ? nullptr : place->second;
}

void writeIfNamed(std::string const& path, std::string const& content)
{
    if (!path.empty()) {
        std::ofstream(path) << content;
    }
}

Arguments parse(int argc, char** argv)
{
    Arguments arguments;
    arguments.forBenchmark.emplace_back(argv[0]);
    for (int index = 1; index < argc; ++index) {
        std::string const word = argv[index];
        if (word == "--once") {
            arguments.once = true;
        } else if (auto* const value = optionNamed(arguments, word); value != nullptr && index + 1 < argc) {
            *value = argv[++index];
        } else if (word == "--material" && index + 2 < argc) {
            arguments.material = argv[++index];
            arguments.materialRoots = std::stoul(argv[++index]);
        } else {
            arguments.forBenchmark.push_back(word);
        }
    }
    return arguments;
}

void initializeBenchmark(Arguments const& arguments)
{
    std::vector<std::string> words{arguments.forBenchmark.front()};
    if (arguments.once) {
        words.insert(words.end(), {"--benchmark_min_time=0", "--benchmark_repetitions=1"});
    } else {
        words.insert(
            words.end(), {"--benchmark_min_time=0.02", "--benchmark_repetitions=9",
                          "--benchmark_enable_random_interleaving=true"});
    }
    words.insert(words.end(), arguments.forBenchmark.begin() + 1, arguments.forBenchmark.end());
    std::vector<char*> pointers;
    for (auto& word : words) {
        pointers.push_back(word.data());
    }
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
}

void run(Arguments const& arguments)
{
    if (arguments.once) {
        runEachOnce();
    }
    addCertificateBenchmarks();
    addStoreBenchmarks();
    addValidationBenchmarks();
    addContainerBenchmarks();
    addThreadBenchmarks();
#ifdef WITH_TOOLKIT
    addPathValidatorBenchmarks();
#endif

    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    auto const peers = arguments.peers.empty() ? std::vector<Peer>() : readPeers(arguments.peers);
    std::string const report = reportAsMarkdown(peers, arguments.image);
    std::cout << report;
    writeIfNamed(arguments.report, report);
    writeIfNamed(arguments.plot, plotData(peers));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        foundation::test::countAllocationsOfOpenSSL();
        foundation::test::isolateNetwork();
        Arguments const arguments = parse(argc, argv);
        if (!arguments.material.empty()) {
            writeMaterial(arguments.material, arguments.materialRoots);
            return 0;
        }
        initializeBenchmark(arguments);
        run(arguments);
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
