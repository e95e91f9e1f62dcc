#include "ManyInputs.hpp"

#include "Files.hpp"
#include "Text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace foundation::tools {

using toolkit::ReadCertificate;

namespace {

/// How many bytes a thread collects before it passes them on.
constexpr std::size_t shortReport = 65536;

struct Input
{
    std::size_t number = 0;
    std::string path;
};

/// The paths of the arguments, then those of the list. Any number of threads may take them.
class Inputs
{
public:
    explicit Inputs(InputOptions const& options) : paths(options.paths)
    {
        if (options.list == "-") {
            list = &std::cin;
        } else if (!options.list.empty()) {
            file.open(options.list);
            if (!file) {
                throw std::system_error(errno, std::generic_category(), options.list);
            }
            list = &file;
        }
    }

    std::optional<Input> take()
    {
        std::lock_guard<std::mutex> const lock(mutex);
        if (numTaken < paths.size()) {
            auto const number = numTaken++;
            return Input{number, paths[number]};
        }
        std::string line;
        while (list != nullptr && std::getline(*list, line)) {
            if (!line.empty()) {
                return Input{numTaken++, line};
            }
        }
        return std::nullopt;
    }

private:
    std::mutex mutex;
    std::vector<std::string> const& paths;
    std::ifstream file;
    std::istream* list = nullptr;
    std::size_t numTaken = 0;
};

void read(Input const& input, Visitor const& visit, OrderedOutput& output)
{
    Report report;
    try {
        auto reader = readerOf(input.path);
        for (auto found = reader.next(); found && !output.isStopped(); found = reader.next()) {
            visit(*found, report);
            output.countResult();
            if (report.output.size() + report.errors.size() > shortReport) {
                output.add(input.number, report);
            }
        }
    } catch (std::exception const& failure) {
        report.errors += errorLine(input.path + ": " + failure.what());
        report.status = ExitStatus::BadInput;
    }
    output.finish(input.number, report);
}

void readAll(Inputs& inputs, Visitor const& visit, OrderedOutput& output)
{
    while (output.waitForSpace()) {
        auto const input = inputs.take();
        if (!input) {
            return;
        }
        read(*input, visit, output);
    }
}

void checkUse(InputOptions const& options)
{
    if (options.paths.empty() && options.list.empty()) {
        throw std::runtime_error("no PATH and no --from is given, try --help");
    }
    auto const uses =
        std::count(options.paths.begin(), options.paths.end(), "-") + (options.list == "-" ? 1 : 0);
    if (uses > 1) {
        throw std::runtime_error("standard input is named more than once");
    }
}

std::size_t numThreads(InputOptions const& options)
{
    std::size_t const wanted = options.jobs == 0 ? std::thread::hardware_concurrency() : options.jobs;
    auto const useful = options.list.empty() ? options.paths.size() : wanted;
    return std::max<std::size_t>(1, std::min(wanted, useful));
}

} // namespace

void addInputOptions(CLI::App& command, InputOptions& options)
{
    command.add_option("PATH", options.paths, "Files and folders; - is standard input");
    command.add_option("--from", options.list, "File with one path on each line; - is standard input")
        ->type_name("FILE");
    command
        .add_option(
            "--jobs", options.jobs,
            "How many files to read at the same time; by default one for each "
            "processor")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
}

ExitStatus visitCertificates(InputOptions const& options, Visitor const& visit)
{
    checkUse(options);
    Inputs inputs(options);
    OrderedOutput output;
    auto const work = [&] {
        try {
            readAll(inputs, visit, output);
        } catch (...) {
            output.stop(std::current_exception());
        }
    };
    std::vector<std::thread> helpers;
    try {
        while (helpers.size() + 1 < numThreads(options)) {
            helpers.emplace_back(work);
        }
    } catch (std::exception const&) {
        // There is no memory for more threads, or the system allows none: continue with those that run.
    }
    work();
    for (auto& helper : helpers) {
        helper.join();
    }
    return output.end();
}

void reportFailure(ReadCertificate const& found, Report& report)
{
    report.errors += errorLine(nameOf(found) + ": " + found.failure);
    report.status = ExitStatus::BadInput;
}

std::string nameOf(ReadCertificate const& found)
{
    return found.index == 0 ? found.source : found.source + " #" + std::to_string(found.index);
}

} // namespace foundation::tools
