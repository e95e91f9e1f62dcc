#include "Report.hpp"

#include "Comparison.hpp"

#include <openssl/crypto.h>

#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>
#include <thread>

namespace foundation::benchmarks {

namespace {

std::string withDigits(double value, int digits)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

/// Three significant digits with a fitting unit.
std::string scaled(double value, double step, std::array<char const*, 4> const& units)
{
    std::size_t unit = 0;
    while (value >= step && unit + 1 < units.size()) {
        value /= step;
        ++unit;
    }
    int const digits = value >= 100 || value == 0 ? 0 : value >= 10 ? 1 : 2;
    return withDigits(value, digits) + " " + units[unit];
}

std::string duration(double seconds)
{
    return scaled(seconds * 1e9, 1000, {"ns", "µs", "ms", "s"});
}

std::string bytes(std::int64_t count)
{
    if (count < 1024) {
        return std::to_string(count) + " B";
    }
    return scaled(static_cast<double>(count) / 1024, 1024, {"KiB", "MiB", "GiB", "TiB"});
}

std::string processorName()
{
    std::ifstream file("/proc/cpuinfo");
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown";
}

std::string ratioOf(Comparison const& row)
{
    return withDigits(row.library.median() / row.bare.median(), 2);
}

std::string targetOf(Comparison const& row)
{
    if (!row.target) {
        return "";
    }
    bool const reached = row.library.median() <= *row.target * row.bare.median();
    return "≤ " + withDigits(*row.target, 2) + (reached ? "" : " **missed**");
}

void writeRow(std::ostream& out, Comparison const& row)
{
    if (row.library.seconds.empty() || row.bare.seconds.empty()) {
        return; // excluded by a filter
    }
    Allocations const library = row.library.allocations.value_or(Allocations());
    Allocations const bare = row.bare.allocations.value_or(Allocations());
    out << "| " << row.operation << " | " << duration(row.library.median()) << " | "
        << duration(row.bare.median()) << " | " << ratioOf(row) << " | " << targetOf(row) << " | "
        << library.count << " / " << bare.count << " | " << bytes(library.bytes) << " / " << bytes(bare.bytes)
        << " | " << bytes(library.peak) << " / " << bytes(bare.peak) << " |\n";
}

void writeGroup(std::ostream& out, Group const& group)
{
    out << "\n## " << group.title << "\n\n";
    if (!group.note.empty()) {
        out << group.note << "\n\n";
    }
    out << "| Operation | Library | OpenSSL | Ratio | Target | Allocations | Bytes allocated | Peak |\n"
        << "|---|--:|--:|--:|---|--:|--:|--:|\n";
    for (Comparison const* row : group.comparisons) {
        writeRow(out, *row);
    }
}

void writeScalings(std::ostream& out)
{
    out << "\n## Eight threads\n\n"
        << "Each thread has its own objects. The time is wall-clock time for one operation, over all "
           "threads\n"
        << "together, so the gain can be at most the number of processors, "
        << std::thread::hardware_concurrency() << ". The gain of bare OpenSSL shows\n"
        << "the influence of its own locks and of other programs. No two handles of the library share a "
           "lock.\n\n"
        << "| Operation | 1 thread | 8 threads | Gain |\n|---|--:|--:|--:|\n";
    for (Scaling const* row : scalings()) {
        if (row->oneThread.seconds.empty() || row->eightThreads.seconds.empty()) {
            continue;
        }
        double const one = row->oneThread.median();
        double const eight = row->eightThreads.median();
        out << "| " << row->operation << " | " << duration(one) << " | " << duration(eight) << " | "
            << withDigits(one / eight, 2) << " |\n";
    }
}

void writeHead(std::ostream& out)
{
    out << "# Performance\n\n"
        << "This page compares each operation of the library with the least work that OpenSSL alone needs "
           "for\n"
        << "the same answer with the same checks. `scripts/bench` writes it. Times are medians of the "
           "calling\n"
        << "thread's processor time, from one run with shuffled repetitions. In \"a / b\", a is the "
           "library's\n"
        << "value and b is OpenSSL's. Allocations are those of one operation, of C++ and OpenSSL "
           "together.\n\n"
        << "| | |\n|---|---|\n"
        << "| Processor | " << processorName() << ", " << std::thread::hardware_concurrency() << " cores |\n"
        << "| OpenSSL | " << OpenSSL_version(OPENSSL_VERSION) << " |\n"
        << "| Compiler | " << COMPILER << ", " << BUILD_TYPE << " |\n";
}

void writePeak(std::ostream& out)
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    out << "\nThe whole run used at most " << bytes(usage.ru_maxrss * 1024L) << " of memory.\n";
}

} // namespace

bool Collector::ReportContext(Context const& /*context*/)
{
    return true;
}

void Collector::ReportRuns(std::vector<Run> const& runs)
{
    for (Run const& run : runs) {
        if (run.run_type != Run::RT_Iteration) {
            continue;
        }
        if (run.error_occurred) {
            std::cerr << run.benchmark_name() << ": " << run.error_message << '\n';
            continue;
        }
        bool const wallClock = run.run_name.function_name.rfind("Threads/", 0) == 0;
        double const seconds = wallClock ? run.real_accumulated_time : run.cpu_accumulated_time;
        sideNamed(run.run_name.function_name)
            .seconds.push_back(seconds / static_cast<double>(run.iterations));
    }
}

std::string reportAsMarkdown()
{
    std::ostringstream out;
    writeHead(out);
    for (Group const& group : groups()) {
        writeGroup(out, group);
    }
    writeScalings(out);
    writePeak(out);
    return out.str();
}

} // namespace foundation::benchmarks
