#pragma once

/// @file
/// Compares each operation of the library with the least work that OpenSSL alone needs for the same answer,
/// with the same checks. One run measures both and shuffles all repetitions, so other load affects both sides
/// alike.

#include "AllocationCounter.hpp"

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace foundation::benchmarks {

/// One side of a comparison.
struct Side
{
    /// Seconds per operation, one value for each repetition.
    std::vector<double> seconds;
    std::optional<Allocations> allocations;

    double median() const;
};

struct Comparison
{
    std::string operation;
    /// The largest allowed ratio of library to bare OpenSSL. Without one, the row is for information.
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

/// Returns all groups in the order of their declaration.
std::vector<Group>& groups();

/// A fixed number of iterations, for operations that take long or vary from run to run.
struct Effort
{
    int iterations = 0;
    int repetitions = 0;
};

/// From now on, each added operation runs only once.
void runEachOnce();

/// Starts a group. The note explains the figures.
void beginGroup(std::string title, std::string note);

Comparison& declare(std::string operation, std::optional<double> target);
void registerSide(
    std::string const& name, Side& side, Effort effort, std::function<void(benchmark::State&)> run);

template <typename Operation>
void measure(benchmark::State& state, Side& side, Operation const& operation)
{
    if (!side.allocations) {
        allocationsOf(operation); // excludes what is allocated once per process
        side.allocations = allocationsOf(operation);
    }
    for (auto _ : state) {
        auto result = operation();
        benchmark::DoNotOptimize(result);
    }
}

/// Both operations return a value, which is destroyed inside the measured time. The result of the maker of
/// the surroundings lives outside the measured time.
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

/// Throughput of one thread and of eight, each with its own objects: seconds per operation over all threads
/// together.
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

/// Calls the maker once in each thread. The maker returns the operation.
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

/// Returns where the reporter stores the time of the benchmark with this name.
Side& sideNamed(std::string const& name);

void addCertificateBenchmarks();
void addStoreBenchmarks();
void addValidationBenchmarks();
void addContainerBenchmarks();
void addThreadBenchmarks();

} // namespace foundation::benchmarks
