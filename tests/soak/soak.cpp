// Runs the libraries for a long time in eight threads on shared objects.
//
//     soak [MINUTES] [--seed S]
//
// One thread at rest first runs each operation and notes its answer. The threads then run operations that the
// seed chooses, and compare. Nothing may be left behind: memory, descriptors and temporary files are measured
// after each round, when no thread runs. The exit status is 1 after a wrong answer or if something is left.

#include "soak/Tasks.hpp"
#include "support/Dice.hpp"
#include "support/system/InParallel.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/NetworkNamespace.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/System.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/toolkit/SourceOperations.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>
#include <mutex>
#include <numeric>
#include <random>
#include <ratio>
#include <string>
#include <typeinfo>
#include <vector>

#include <malloc.h>

using namespace foundation::test;

namespace {

using Clock = std::chrono::steady_clock;
using Minutes = std::chrono::duration<double, std::ratio<60>>;

constexpr int numThreads = 8;
constexpr int minRounds = 5;
/// Caches and lazy initialization are complete after these.
constexpr int numWarmUpRounds = 2;
/// The allocator takes some memory for each new thread that comes first to its own part of the heap.
constexpr std::int64_t memoryTolerance = 16 * 1024;
constexpr std::size_t mostDifferencesShown = 10;

struct Arguments
{
    Minutes duration{10};
    std::uint64_t seed = std::random_device{}();
};

Arguments parse(std::vector<std::string> const& words)
{
    Arguments arguments;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (*word == "--seed" && word + 1 != words.end()) {
            arguments.seed = std::stoull(*++word);
        } else {
            arguments.duration = Minutes(std::stod(*word));
        }
    }
    return arguments;
}

/// What the process holds while no thread runs.
struct Resources
{
    std::int64_t memory = 0; ///< bytes in use; constant under a sanitizer, which has an allocator of its own
    std::int64_t resident = 0;
    std::map<std::string, std::string> descriptors;
    std::size_t numTemporaryFiles = 0;
};

std::int64_t residentMemory()
{
    std::int64_t kilobytes = 0;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> kilobytes;
        }
    }
    return kilobytes * 1024;
}

Resources measure(std::filesystem::path const& temporaryDirectory)
{
    Resources resources;
    auto const heap = mallinfo2();
    resources.memory = static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
    resources.resident = residentMemory();
    resources.descriptors = openDescriptors();
    resources.numTemporaryFiles =
        static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(temporaryDirectory), {}));
    return resources;
}

std::string answerOf(Task const& task)
{
    try {
        return task.run();
    } catch (std::exception const& failure) {
        return std::string(typeid(failure).name()) + ": " + failure.what();
    }
}

/// The answers at rest, by group and task.
using Answers = std::vector<std::vector<std::string>>;

Answers answersAtRest(std::vector<TaskGroup> const& groups)
{
    Answers answers;
    for (auto const& group : groups) {
        auto& ofGroup = answers.emplace_back();
        for (auto const& task : group.tasks) {
            ofGroup.push_back(answerOf(task));
        }
    }
    return answers;
}

class Findings
{
public:
    void add(std::string const& operation, std::string const& atRest, std::string const& answer)
    {
        std::lock_guard<std::mutex> const lock(mutex);
        if (++number <= mostDifferencesShown) {
            std::cout << "WRONG: " << operation << "\n  at rest: " << atRest << "\n  now:     " << answer
                      << std::endl;
        }
    }

    std::size_t count() const { return number; }

private:
    std::mutex mutex;
    std::size_t number = 0;
};

/// Returns the index of a group, chosen by weight.
std::size_t pickGroup(Dice& dice, std::vector<TaskGroup> const& groups)
{
    int const total = std::accumulate(
        groups.begin(), groups.end(), 0, [](int sum, TaskGroup const& group) { return sum + group.weight; });
    int left = dice.below(total);
    std::size_t index = 0;
    while (left >= groups[index].weight) {
        left -= groups[index++].weight;
    }
    return index;
}

class Soak
{
public:
    explicit Soak(Arguments const& theArguments) : arguments(theArguments) {}

    bool run()
    {
        std::cout << "Seed " << arguments.seed << ", " << numThreads << " threads, "
                  << arguments.duration.count() << " minutes\n";
        atRest = answersAtRest(workload.groups());
        counts.resize(workload.groups().size());
        int const numRounds = std::max(minRounds, static_cast<int>(arguments.duration.count()));
        std::cout << "round  operations  memory in use  resident  descriptors  temporary files\n";
        Resources atStart; // after the warm-up
        Resources atEnd;
        for (int round = 1; round <= numRounds; ++round) {
            runRound(round, arguments.duration / numRounds);
            workload.settle();
            auto& now = round <= numWarmUpRounds ? atStart : atEnd;
            now = measure(temporaryDirectory.path());
            print(round, now);
        }
        printCounts();
        bool const isClean = isLike(atStart, atEnd);
        std::cout << findings.count() << " wrong answers\n";
        return isClean && findings.count() == 0;
    }

private:
    void runRound(int round, Minutes length)
    {
        auto const end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
        inParallel(numThreads, [&](int thread) {
            auto const number = static_cast<std::uint64_t>(round * numThreads + thread);
            work(Dice(arguments.seed + number), end);
        });
    }

    void work(Dice dice, Clock::time_point end)
    {
        auto const& groups = workload.groups();
        std::vector<std::size_t> own(groups.size());
        while (Clock::now() < end) {
            auto const group = pickGroup(dice, groups);
            auto const index = dice.indexIn(groups[group].tasks.size());
            auto const& task = groups[group].tasks[index];
            auto const answer = answerOf(task);
            ++own[group];
            if (answer != atRest[group][index]) {
                findings.add(groups[group].name + ": " + task.name, atRest[group][index], answer);
            }
        }
        std::lock_guard<std::mutex> const lock(mutex);
        std::transform(own.begin(), own.end(), counts.begin(), counts.begin(), std::plus<>());
    }

    void print(int round, Resources const& resources) const
    {
        auto const operations = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
        std::cout << std::setw(5) << round << std::setw(12) << operations << std::setw(12)
                  << resources.memory / 1024 << " kB" << std::setw(7) << resources.resident / 1024 << " kB"
                  << std::setw(13) << resources.descriptors.size() << std::setw(17)
                  << resources.numTemporaryFiles << std::endl;
    }

    void printCounts() const
    {
        for (std::size_t group = 0; group < counts.size(); ++group) {
            std::cout << std::setw(10) << counts[group] << "  " << workload.groups()[group].name << " ("
                      << workload.groups()[group].tasks.size() << " operations)\n";
        }
    }

    static bool isLike(Resources const& before, Resources const& after)
    {
        bool isClean = true;
        auto const complain = [&](char const* what) {
            std::cout << "LEFT BEHIND: " << what << '\n';
            isClean = false;
        };
        if (after.memory > before.memory + memoryTolerance) {
            complain("memory");
        }
        if (after.descriptors != before.descriptors) {
            complain("descriptors");
        }
        if (after.numTemporaryFiles != 0) {
            complain("temporary files");
        }
        return isClean;
    }

    Arguments const arguments;
    LogCapture const log{0}; // the threads have many failures to log
    TemporaryFolder const temporaryDirectory;
    ScopedVariable const variable{temporaryDirectoryVariable(), temporaryDirectory.path().string()};
    Workload workload;
    Answers atRest;
    Findings findings;
    std::mutex mutex;
    std::vector<std::size_t> counts;
};

} // namespace

int main(int argc, char** argv)
{
    try {
        isolateNetwork();
        readerOperations(); // their files stay in the usual temporary directory
        return Soak(parse({argv + 1, argv + argc})).run() ? 0 : 1;
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
        return 2;
    }
}
