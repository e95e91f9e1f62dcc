#pragma once

/// @file
/// Each operation of the library stands beside the least work that OpenSSL alone needs for the same answer,
/// with the same checks. The two are measured in one run, their repetitions shuffled among all others, so
/// that what else the machine does falls on both.

#include "AllocationCounter.hpp"

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace foundation::benchmarks {

/// One of the two sides of a comparison.
struct Side
{
    /// Seconds per run of the operation, one for each repetition.
    std::vector<double> seconds;
    std::optional<Allocations> allocations;

    double median() const;
};

struct Comparison
{
    std::string operation;
    /// The ratio of library to bare OpenSSL that is to be reached; none: the row is for information.
    std::optional<double> target;
    Side library;
    Side bare;
};

struct Group
{
    std::string title;
    std::string note;
    std::vector<Comparison*> comparisons;
};

/// All groups, in the order of their declaration.
std::vector<Group>& groups();

/// Work that is fixed, for operations that take long or differ from run to run.
struct Effort
{
    int iterations = 0;
    int repetitions = 0;
};

/// Of what is added from now on each operation runs once, whatever its effort.
void runEachOnce();

/// What comes next belongs to this group. The note explains the figures.
void beginGroup(std::string title, std::string note);

Comparison& declare(std::string operation, std::optional<double> target);
void registerSide(
    std::string const& name, Side& side, Effort effort, std::function<void(benchmark::State&)> run);

template <typename Operation>
void measure(benchmark::State& state, Side& side, Operation const& operation)
{
    if (!side.allocations) {
        allocationsOf(operation); // what is made once a process counts for neither side
        side.allocations = allocationsOf(operation);
    }
    for (auto _ : state) {
        auto result = operation();
        benchmark::DoNotOptimize(result);
    }
}

/// Both operations give a value, which is destroyed within the measure. What the surroundings' maker gives
/// lives around a measure, and is no part of it.
template <typename Surroundings, typename Library, typename Bare>
void compareWithin(
    Surroundings surroundings, std::string const& operation, std::optional<double> target, Library library,
    Bare bare, Effort effort = {})
{
    Comparison& comparison = declare(operation, target);
    std::string const name = groups().back().title + "/" + operation;
    registerSide(name + "/library", comparison.library, effort, [=, &comparison](auto& state) {
        [[maybe_unused]] auto const around = surroundings();
        measure(state, comparison.library, library);
    });
    registerSide(name + "/OpenSSL", comparison.bare, effort, [=, &comparison](auto& state) {
        [[maybe_unused]] auto const around = surroundings();
        measure(state, comparison.bare, bare);
    });
}

template <typename Library, typename Bare>
void compare(
    std::string const& operation, std::optional<double> target, Library library, Bare bare,
    Effort effort = {})
{
    compareWithin([] { return 0; }, operation, target, library, bare, effort);
}

/// Throughput of one thread and of eight, each with objects of its own: seconds per run of the operation,
/// taken over all threads together.
struct Scaling
{
    std::string operation;
    Side oneThread;
    Side eightThreads;
};

std::vector<Scaling*>& scalings();
Scaling& declareScaling(std::string operation);
void registerThreads(
    std::string const& name, int threads, Side& side, std::function<void(benchmark::State&)> run);

/// The maker is called once in each thread and gives the operation.
template <typename Maker>
void scale(std::string const& operation, Maker maker)
{
    Scaling& scaling = declareScaling(operation);
    auto const run = [maker](benchmark::State& state) {
        auto const perform = maker();
        for (auto _ : state) {
            auto result = perform();
            benchmark::DoNotOptimize(result);
        }
    };
    registerThreads("Threads/" + operation + "/1", 1, scaling.oneThread, run);
    registerThreads("Threads/" + operation + "/8", 8, scaling.eightThreads, run);
}

/// Where the reporter puts the time of a benchmark by its name.
Side& sideNamed(std::string const& name);

void addCertificateBenchmarks();
void addStoreBenchmarks();
void addValidationBenchmarks();
void addContainerBenchmarks();
void addThreadBenchmarks();

} // namespace foundation::benchmarks
