#include "Expiry.hpp"

#include "CommonOptions.hpp"
#include "Json.hpp"
#include "Terminal.hpp"
#include "Text.hpp"
#include "Times.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

namespace foundation::tools {

using toolkit::ReadCertificate;

namespace {

using Clock = std::chrono::system_clock;

struct Entry
{
    Clock::time_point end;
    std::string source;
    std::size_t index = 0;
    std::string subject;
    std::string endText;
};

bool operator<(Entry const& left, Entry const& right)
{
    return std::tie(left.end, left.source, left.index) < std::tie(right.end, right.source, right.index);
}

std::string lineOf(Entry const& entry, long daysLeft, bool expires)
{
    auto const text = daysLeft < 0 ? "expired" : std::to_string(daysLeft) + " days";
    auto const padded = std::string(text.size() < 10 ? 10 - text.size() : 0, ' ') + text;
    return (expires ? inRed(padded) : padded) + "  " + entry.endText + "  " +
           printable(entry.source + " #" + std::to_string(entry.index) + ": " + entry.subject) + "\n";
}

std::string recordOf(Entry const& entry, long daysLeft, bool expires)
{
    auto record = newRecord("expiry");
    record.addText("source", entry.source);
    record.addNumber("index", entry.index);
    record.addText("subject", entry.subject);
    record.addText("notAfter", entry.endText);
    record.addNumber("daysLeft", daysLeft);
    record.addBoolean("expires", expires);
    return jsonLine(record);
}

ExitStatus expiry(ExpiryOptions const& options)
{
    auto const within = durationFrom(options.within);
    std::vector<Entry> entries;
    std::mutex mutex;
    auto status = visitCertificates(options.inputs, [&](ReadCertificate const& found, Report& report) {
        if (!found.certificate) {
            reportFailure(found, report);
            return;
        }
        auto const& certificate = *found.certificate;
        Entry entry{
            certificate.getNotAfter(), found.source, found.index, certificate.getSubject(),
            notAfterOf(certificate)};
        std::lock_guard<std::mutex> const lock(mutex);
        entries.push_back(std::move(entry));
    });
    std::sort(entries.begin(), entries.end());
    auto const now = Clock::now();
    for (auto const& entry : entries) {
        auto const left = secondsBetween(now, entry.end);
        bool const expires = left < within;
        auto const daysLeft = daysOf(left);
        std::cout << (options.json ? recordOf(entry, daysLeft, expires) : lineOf(entry, daysLeft, expires));
        status = worse(status, expires ? ExitStatus::Finding : ExitStatus::Good);
    }
    return status;
}

} // namespace

void addExpiry(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<ExpiryOptions>();
    auto& command = *program.add_subcommand(
        "expiry",
        "Prints how long the certificates of files and folders are still valid, the shortest first");
    addInputOptions(command, options->inputs);
    command
        .add_option(
            "--within", options->within,
            "Exit with status 1 if a certificate expires within this time: 12h, 30d, 4w")
        ->type_name("DURATION")
        ->capture_default_str();
    addJsonOption(command, options->json);
    command.callback([options, &action] { action = [options] { return expiry(*options); }; });
}

} // namespace foundation::tools
