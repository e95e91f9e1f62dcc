#include "OrderedOutput.hpp"

#include "Terminal.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace foundation::tools {

namespace {

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mostKeptBytes = 4 * kibibyte * kibibyte;
constexpr std::size_t largeReport = 256 * kibibyte;

std::size_t sizeOf(Report const& report)
{
    return report.output.size() + report.errors.size();
}

void append(Report& report, Report const& more)
{
    report.output += more.output;
    report.errors += more.errors;
    report.status = worse(report.status, more.status);
}

} // namespace

OrderedOutput::OrderedOutput() : hasProgress(isTerminal(stderr) && !isTerminal(stdout)) {}

bool OrderedOutput::waitForSpace()
{
    // The current input keeps nothing, so it is always possible to continue with it.
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return failure || keptBytes < mostKeptBytes; });
    return !failure;
}

void OrderedOutput::add(std::size_t input, Report& report)
{
    std::unique_lock<std::mutex> lock(mutex);
    if (input != current && sizeOf(keptFor(input).report) + sizeOf(report) > largeReport) {
        changed.wait(lock, [&] { return failure || input == current; });
    }
    if (failure) {
        report = Report();
    } else if (input == current) {
        write(report);
    } else {
        keep(keptFor(input), report);
    }
}

void OrderedOutput::finish(std::size_t input, Report& report)
{
    add(input, report);
    std::unique_lock<std::mutex> const lock(mutex);
    keptFor(input).isFinished = true;
    while (!kept.empty() && kept.front().isFinished) {
        keptBytes -= sizeOf(kept.front().report) + sizeof(Kept);
        kept.pop_front();
        ++current;
        if (!kept.empty()) {
            keptBytes -= sizeOf(kept.front().report);
            write(kept.front().report);
        }
    }
    changed.notify_all();
}

void OrderedOutput::countResult()
{
    if (hasProgress) {
        std::unique_lock<std::mutex> const lock(mutex);
        ++numResults;
        showProgress();
    }
}

void OrderedOutput::stop(std::exception_ptr exception)
{
    std::lock_guard<std::mutex> const lock(mutex);
    if (!failure) {
        failure = std::move(exception);
    }
    changed.notify_all();
}

bool OrderedOutput::isStopped()
{
    std::lock_guard<std::mutex> const lock(mutex);
    return failure != nullptr;
}

ExitStatus OrderedOutput::end()
{
    hideProgress();
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    return status;
}

OrderedOutput::Kept& OrderedOutput::keptFor(std::size_t input)
{
    while (kept.size() <= input - current) {
        kept.emplace_back();
        keptBytes += sizeof(Kept);
    }
    return kept[input - current];
}

void OrderedOutput::keep(Kept& slot, Report& report)
{
    keptBytes += sizeOf(report);
    append(slot.report, report);
    report = Report();
}

void OrderedOutput::write(Report& report)
{
    static_cast<void>(
        std::fwrite(report.output.data(), 1, report.output.size(), stdout)); // end looks for errors
    if (!report.errors.empty()) {
        static_cast<void>(std::fflush(stdout));
        hideProgress();
        static_cast<void>(std::fwrite(report.errors.data(), 1, report.errors.size(), stderr));
    }
    status = worse(status, report.status);
    report = Report();
}

void OrderedOutput::showProgress()
{
    auto const now = std::chrono::steady_clock::now();
    if (now < nextProgress) {
        return;
    }
    nextProgress = now + std::chrono::milliseconds(200);
    progressIsShown = true;
    static_cast<void>(std::fprintf(stderr, "\r%zu certificates", numResults));
}

void OrderedOutput::hideProgress()
{
    if (progressIsShown) {
        static_cast<void>(std::fputs("\r\033[K", stderr));
        progressIsShown = false;
    }
}

} // namespace foundation::tools
