// Compares the library with bare OpenSSL and prints a table.
//
//     foundation_benchmarks [--once] [--report FILE] [--benchmark_filter=REGEX ...]
//
// --once runs each operation once, to check that it works.

#include "AllocationCounter.hpp"
#include "Comparison.hpp"
#include "Report.hpp"

#include "support/system/NetworkNamespace.hpp"

#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace foundation::benchmarks;

struct Arguments
{
    bool once = false;
    std::string report;
    std::vector<std::string> forBenchmark;
};

Arguments parse(int argc, char** argv)
{
    Arguments arguments;
    arguments.forBenchmark.emplace_back(argv[0]);
    for (int index = 1; index < argc; ++index) {
        std::string const word = argv[index];
        if (word == "--once") {
            arguments.once = true;
        } else if (word == "--report" && index + 1 < argc) {
            arguments.report = argv[++index];
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

    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    std::string const report = reportAsMarkdown();
    std::cout << report;
    if (!arguments.report.empty()) {
        std::ofstream(arguments.report) << report;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        countAllocationsOfOpenSSL();
        foundation::test::isolateNetwork();
        Arguments const arguments = parse(argc, argv);
        initializeBenchmark(arguments);
        run(arguments);
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
