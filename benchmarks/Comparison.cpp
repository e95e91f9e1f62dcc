#include "Comparison.hpp"

#include <algorithm>
#include <list>
#include <map>
#include <utility>

namespace foundation::benchmarks {

namespace {

std::map<std::string, Side*>& sides()
{
    static std::map<std::string, Side*> all;
    return all;
}

bool eachOnce = false;

} // namespace

double Side::median() const
{
    if (seconds.empty()) {
        return 0;
    }
    auto sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    auto const middle = sorted.size() / 2;
    return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

std::vector<Group>& groups()
{
    static std::vector<Group> all;
    return all;
}

std::vector<MemoryRow>& memoryRows()
{
    static std::vector<MemoryRow> all;
    return all;
}

std::vector<PlotPoint>& plotPoints()
{
    static std::vector<PlotPoint> all;
    return all;
}

std::vector<Scaling*>& scalings()
{
    static std::vector<Scaling*> all;
    return all;
}

std::vector<SharedStoreRow*>& sharedStoreRows()
{
    static std::vector<SharedStoreRow*> all;
    return all;
}

void runEachOnce()
{
    eachOnce = true;
}

bool eachRunsOnce()
{
    return eachOnce;
}

std::vector<std::size_t> rootCounts()
{
    // OpenSSL sorts a store at each addition, so the largest store takes seconds to build.
    return eachOnce ? std::vector<std::size_t>{1, 150} : std::vector<std::size_t>{1, 10, 150, 1000, 10000};
}

std::string rootsText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " root" : " roots");
}

void noteMemory(
    std::string what, Quantity quantity, Comparison const& comparison, std::optional<std::int64_t> target)
{
    memoryRows().push_back({std::move(what), quantity, &comparison, target});
}

void beginGroup(std::string title, std::string note)
{
    groups().push_back({std::move(title), std::move(note), {}});
}

Comparison& declare(std::string operation, std::optional<double> target)
{
    static std::list<Comparison> all; // a list, because others refer to its elements
    all.push_back({std::move(operation), target, {}, {}});
    groups().back().comparisons.push_back(&all.back());
    return all.back();
}

void registerSide(
    std::string const& name, Side& side, Effort effort, std::function<void(benchmark::State&)> run)
{
    sides()[name] = &side;
    auto* const registered = benchmark::RegisterBenchmark(name.c_str(), std::move(run));
    if (eachOnce) {
        effort = {1, 1};
    }
    if (effort.iterations > 0) {
        registered->Iterations(effort.iterations);
    }
    if (effort.repetitions > 0) {
        registered->Repetitions(effort.repetitions);
    }
}

Scaling& declareScaling(std::string operation)
{
    static std::list<Scaling> all;
    all.push_back({std::move(operation), {}, {}});
    scalings().push_back(&all.back());
    return all.back();
}

SharedStoreRow& declareSharedStore(int threads, std::optional<double> target)
{
    static std::list<SharedStoreRow> all;
    all.push_back({threads, target, {}, {}, {}, {}, {}});
    sharedStoreRows().push_back(&all.back());
    return all.back();
}

void registerThreads(
    std::string const& name, int threads, Side& side, std::function<void(benchmark::State&)> run)
{
    sides()[name] = &side;
    auto* const registered = benchmark::RegisterBenchmark(name.c_str(), std::move(run));
    registered->Threads(threads)->UseRealTime();
    if (!eachOnce) {
        constexpr double secondsPerRepetition = 0.1; // long enough for all threads to run side by side
        registered->MinTime(secondsPerRepetition);
    }
}

Side& sideNamed(std::string const& name)
{
    return *sides().at(name);
}

} // namespace foundation::benchmarks
