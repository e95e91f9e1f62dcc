#include "Report.hpp"

#include "Comparison.hpp"

#include <openssl/crypto.h>

#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string_view>
#include <thread>

namespace foundation::benchmarks {

namespace {

/// Two measurements of the same code differ by this much.
constexpr double tolerance = 1.02;

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

std::optional<double> medianOf(Side const& side)
{
    return side.seconds.empty() ? std::nullopt : std::optional<double>(side.median());
}

std::string ratioOf(Comparison const& row)
{
    double const ratio = row.library.median() / row.bare.median();
    constexpr double small = 0.1;
    return withDigits(ratio, ratio < small ? 4 : 2);
}

std::string verdictOf(bool reached)
{
    return reached ? "" : " **missed**";
}

std::string targetOf(Comparison const& row)
{
    if (!row.target) {
        return "";
    }
    bool const reached = row.library.median() <= *row.target * tolerance * row.bare.median();
    return "≤ " + withDigits(*row.target, 2) + verdictOf(reached);
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

std::string cell(std::optional<double> seconds)
{
    return " | " + (seconds ? duration(*seconds) : std::string("–"));
}

void writeMissing(std::ostream& out, std::vector<Peer> const& peers)
{
    for (Peer const& peer : peers) {
        if (peer.seconds.empty()) {
            out << "\n" << peer.name << " was not installed and is left out.\n";
        }
    }
}

void writePeers(std::ostream& out, std::vector<Peer> const& peers, std::string const& image)
{
    out << "\n## Validation beside other libraries\n\n"
        << "Processor time for one validation of a leaf with two intermediates, RSA-2048 all, over the "
           "number\n"
        << "of trusted roots. All programs ran one after the other on the same machine. Each of them keeps "
           "its\n"
        << "list of roots and its parsed certificates from one validation to the next. The libraries do not\n"
        << "check the same: this library and OpenSSL also check the root's own signature and OpenSSL's "
           "strict\n"
        << "rules. Go's time includes its garbage collector.\n\n";
    if (!image.empty()) {
        out << "![Time per validation over the number of roots](" << image << ")\n\n";
    }
    bool const hasPathValidator = !plotPoints().empty() && plotPoints().front().pathValidator != nullptr;
    out << "| Roots | Library | Library, handed out" << (hasPathValidator ? " | `PathValidator`" : "")
        << " | OpenSSL " << OpenSSL_version(OPENSSL_VERSION_STRING);
    for (Peer const& peer : peers) {
        out << (peer.seconds.empty() ? "" : " | " + peer.name);
    }
    out << " |\n|--:|--:|--:|--:" << (hasPathValidator ? "|--:" : "");
    for (Peer const& peer : peers) {
        out << (peer.seconds.empty() ? "" : "|--:");
    }
    out << "|\n";
    for (PlotPoint const& point : plotPoints()) {
        out << "| " << point.roots << cell(medianOf(point.privateStore->library))
            << cell(medianOf(point.handedOutStore->library));
        if (hasPathValidator) {
            out << cell(medianOf(point.pathValidator->library));
        }
        out << cell(medianOf(point.privateStore->bare));
        for (Peer const& peer : peers) {
            out << (peer.seconds.empty() ? "" : cell(peer.secondsFor(point.roots)));
        }
        out << " |\n";
    }
    writeMissing(out, peers);
}

std::string perSecond(Side const& side)
{
    return " | " + (side.seconds.empty() ? std::string("–") : withDigits(1 / side.median(), 0));
}

std::string throughputTargetOf(SharedStoreRow const& row)
{
    if (!row.target) {
        return "";
    }
    bool const reached = row.bare.median() * tolerance >= *row.target * row.privateStore.median();
    return "≥ " + withDigits(*row.target, 2) + verdictOf(reached);
}

void writeSharedStores(std::ostream& out)
{
    out << "\n## Threads on one trust store\n\n"
        << "Validations per second, over all threads together, in wall-clock time. The chain has three\n"
        << "certificates below the root, and the store has 150 roots. All threads use the same store and "
           "chain.\n"
        << "In the first two columns each thread has its own copy of the leaf's handle, which costs a lock "
           "and\n"
        << "a reference. In the third, all threads use one handle. Its lock admits one call at a time, so "
           "more\n"
        << "threads do not help. The toolkit's `PathValidator` has no lock of its own. The ratio compares "
           "the\n"
        << "first column with OpenSSL. With more threads than processors ("
        << std::thread::hardware_concurrency()
        << " here), a thread can lose its\nprocessor while it holds a lock that others need.\n\n"
        << "| Threads | Private store | Handed-out store | One handle | `PathValidator` | OpenSSL | Ratio "
           "| Target |\n"
        << "|--:|--:|--:|--:|--:|--:|--:|---|\n";
    for (SharedStoreRow const* row : sharedStoreRows()) {
        if (row->privateStore.seconds.empty() || row->bare.seconds.empty()) {
            continue;
        }
        out << "| " << row->threads << perSecond(row->privateStore) << perSecond(row->handedOutStore)
            << perSecond(row->oneHandle) << perSecond(row->pathValidator) << perSecond(row->bare) << " | "
            << withDigits(row->bare.median() / row->privateStore.median(), 2) << " | "
            << throughputTargetOf(*row) << " |\n";
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

std::int64_t quantityOf(Allocations const& allocations, Quantity quantity)
{
    switch (quantity) {
    case Quantity::Kept:
        return allocations.kept;
    case Quantity::Bytes:
        return allocations.bytes;
    case Quantity::Peak:
        return allocations.peak;
    case Quantity::Count:
        return allocations.count;
    }
    return 0;
}

std::string inUnit(std::int64_t value, Quantity quantity)
{
    return quantity == Quantity::Count ? std::to_string(value) : bytes(value);
}

void writeMemory(std::ostream& out)
{
    out << "\n## Memory\n\n"
        << "Heap memory of C++ and OpenSSL together, from the rows above. Without another word, a value is "
           "what\n"
        << "the object keeps while it exists, beyond the objects that it shares with others. A store shares "
           "the\n"
        << "certificates of the chain that it was built from, until it is handed out. A peak is the largest\n"
        << "amount in use during the operation, beyond what its arguments hold.\n\n"
        << "| | Library | OpenSSL | Target |\n|---|--:|--:|---|\n";
    for (MemoryRow const& row : memoryRows()) {
        if (!row.comparison->library.allocations || !row.comparison->bare.allocations) {
            continue;
        }
        std::int64_t const library = quantityOf(*row.comparison->library.allocations, row.quantity);
        std::int64_t const bare = quantityOf(*row.comparison->bare.allocations, row.quantity);
        out << "| " << row.what << " | " << inUnit(library, row.quantity) << " | "
            << inUnit(bare, row.quantity) << " | ";
        if (row.target) {
            out << "≤ " << inUnit(*row.target, row.quantity) << verdictOf(library <= *row.target);
        }
        out << " |\n";
    }
}

void writeHead(std::ostream& out)
{
    out << "# Performance\n\n"
        << "This page compares each operation of the library with what a program writes that uses OpenSSL\n"
        << "alone, for the same answer with the same checks: a shared `X509_STORE`, certificates shared by\n"
        << "reference, encodings by `i2d_X509`. `scripts/bench` writes it. Times are medians of the calling\n"
        << "thread's processor time, from one run with shuffled repetitions. Each repetition warms the "
           "caches\n"
        << "first with uncounted calls. A target is the largest ratio of library to OpenSSL that the "
           "project\n"
        << "allows itself. It counts as missed from 2 % above, because measurements of the same code differ "
           "by\n"
        << "that much. In \"a / b\", a is the library's value and b is OpenSSL's. Allocations are those of "
           "one\n"
        << "operation, of C++ and OpenSSL together.\n\n"
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

std::string reportAsMarkdown(std::vector<Peer> const& peers, std::string const& image)
{
    std::ostringstream out;
    writeHead(out);
    writePeers(out, peers, image);
    for (Group const& group : groups()) {
        writeGroup(out, group);
    }
    writeSharedStores(out);
    writeScalings(out);
    writeMemory(out);
    writePeak(out);
    return out.str();
}

} // namespace foundation::benchmarks
