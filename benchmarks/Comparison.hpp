#pragma once

/// @file
/// Compares each operation of the library with the least work that OpenSSL alone needs for the same answer,
/// with the same checks. One run measures both and shuffles all repetitions, so other load affects both sides
/// alike. Each repetition first runs its operation without counting it, because the operations before it have
/// filled the caches with their own data.

#include "support/allocation/AllocationCounter.hpp"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace foundation::benchmarks {

using foundation::test::Allocations;
using foundation::test::allocationsOf;

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

/// What a row of the memory table shows of a comparison.
enum class Quantity
{
    Kept,
    Bytes,
    Peak,
    Count
};

struct MemoryRow
{
    std::string what;
    Quantity quantity;
    Comparison const* comparison;
    /// The largest allowed value of the library.
    std::optional<std::int64_t> target;
};

std::vector<MemoryRow>& memoryRows();
void noteMemory(
    std::string what, Quantity quantity, Comparison const& comparison,
    std::optional<std::int64_t> target = std::nullopt);

/// A validation over the number of roots, as the plot and the table of other libraries show it.
struct PlotPoint
{
    std::size_t roots;
    Comparison const* privateStore;
    Comparison const* handedOutStore;
    /// The toolkit's validator; null if the toolkit is not built.
    Comparison const* pathValidator;
};

std::vector<PlotPoint>& plotPoints();

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

/// From now on, each added operation runs only once, and rootCounts() is short.
void runEachOnce();
bool eachRunsOnce();

/// Returns the sizes of the trust stores that validations are measured with.
std::vector<std::size_t> rootCounts();
/// Returns the count with its unit, such as "150 roots".
std::string rootsText(std::size_t count);

/// Starts a group. The note explains the figures.
void beginGroup(std::string title, std::string note);

Comparison& declare(std::string operation, std::optional<double> target);
void registerSide(
    std::string const& name, Side& side, Effort effort, std::function<void(benchmark::State&)> run);

/// Fills the caches with what the operation needs: runs it at least once, and for some milliseconds.
template <typename Operation>
void warmUp(Operation const& operation)
{
    constexpr std::chrono::milliseconds longEnough(3);
    auto const end = std::chrono::steady_clock::now() + longEnough;
    do {
        auto result = operation();
        benchmark::DoNotOptimize(result);
    } while (!eachRunsOnce() && std::chrono::steady_clock::now() < end);
}

template <typename Operation>
void measure(benchmark::State& state, Side& side, Operation const& operation)
{
    warmUp(operation);
    if (!side.allocations) {
        side.allocations = allocationsOf(operation); // without what is allocated once per process
    }
    for (auto _ : state) {
        auto result = operation();
        benchmark::DoNotOptimize(result);
    }
}

/// Both operations return a value, which is destroyed inside the measured time. The result of the maker of
/// the surroundings lives outside the measured time.
template <typename Surroundings, typename Library, typename Bare>
Comparison& compareWithin(
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
    return comparison;
}

template <typename Library, typename Bare>
Comparison& compare(
    std::string const& operation, std::optional<double> target, Library library, Bare bare,
    Effort effort = {})
{
    return compareWithin([] { return 0; }, operation, target, library, bare, effort);
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

/// Validations of several threads on one trust store: seconds per validation over all threads together.
struct SharedStoreRow
{
    int threads = 1;
    /// The smallest allowed ratio of the library's throughput to that of bare OpenSSL.
    std::optional<double> target;
    Side privateStore;
    Side handedOutStore;
    Side oneHandle;
    /// The toolkit's validator; without a value if the toolkit is not built.
    Side pathValidator;
    Side bare;
};

std::vector<SharedStoreRow*>& sharedStoreRows();
SharedStoreRow& declareSharedStore(int threads, std::optional<double> target);

void registerThreads(
    std::string const& name, int threads, Side& side, std::function<void(benchmark::State&)> run);

/// Calls the maker once in each thread. The maker returns the operation.
template <typename Maker>
void measureThreads(std::string const& name, int threads, Side& side, Maker maker)
{
    registerThreads(name, threads, side, [maker](benchmark::State& state) {
        auto const perform = maker();
        warmUp(perform);
        for (auto _ : state) {
            auto result = perform();
            benchmark::DoNotOptimize(result);
        }
    });
}

template <typename Maker>
void scale(std::string const& operation, Maker maker)
{
    Scaling& scaling = declareScaling(operation);
    measureThreads("Threads/" + operation + "/1", 1, scaling.oneThread, maker);
    measureThreads("Threads/" + operation + "/8", 8, scaling.eightThreads, maker);
}

/// Returns where the reporter stores the time of the benchmark with this name.
Side& sideNamed(std::string const& name);

void addCertificateBenchmarks();
void addStoreBenchmarks();
void addValidationBenchmarks();
void addContainerBenchmarks();
void addThreadBenchmarks();
/// Measures the toolkit, if it is built. Adds to the points of the plot and to the rows of threads on one
/// store, so it comes last.
void addPathValidatorBenchmarks();

} // namespace foundation::benchmarks
