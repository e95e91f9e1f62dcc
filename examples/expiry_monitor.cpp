// expiry_monitor PATH...: prints which certificates in files and folders expire soon.
#include <foundation/toolkit/CertificateReader.hpp>

#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <iostream>
#include <ratio>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;

namespace {

constexpr char const usageText[] = R"(Usage: expiry_monitor [--within DAYS] PATH...
Prints the certificates in files and folders that have expired or expire within 30 days,
or within the given number of days.

Exit status: 0 if no certificate is found, 1 if some are, 2 for wrong usage or anything that
cannot be read.
)";

enum ExitStatus
{
    allGood = 0,
    someExpire = 1,
    badInput = 2
};

using Days = std::chrono::duration<long, std::ratio<86400>>;

struct Options
{
    Days within{30};
    std::vector<std::string> paths;
};

Days daysFrom(std::string const& text)
{
    int number = 0;
    auto const* const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < 0) {
        throw std::runtime_error("not a number of days: " + text);
    }
    return Days(number);
}

Options optionsFrom(std::vector<std::string> const& arguments)
{
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--within" && argument + 1 != arguments.end()) {
            options.within = daysFrom(*++argument);
        } else if (argument->compare(0, 1, "-") == 0) {
            throw std::runtime_error(
                "unknown option, or option without a value: " + *argument + ", try --help");
        } else {
            options.paths.push_back(*argument);
        }
    }
    if (options.paths.empty()) {
        throw std::runtime_error("no file or folder given, try --help");
    }
    return options;
}

// Returns the whole days until the certificate expires; negative if it has expired.
Days timeLeft(Certificate const& certificate)
{
    using std::chrono::floor;
    using std::chrono::seconds;
    // In the clock's own ticks, the difference of two distant times could overflow.
    auto const now = floor<seconds>(std::chrono::system_clock::now());
    return floor<Days>(floor<seconds>(certificate.getNotAfter()) - now);
}

std::string describe(Days left)
{
    return left < Days(0) ? "expired" : "expires in " + std::to_string(left.count()) + " days";
}

ExitStatus monitor(Options const& options)
{
    auto status = allGood;
    for (auto const& path : options.paths) {
        CertificateReader reader{std::filesystem::path(path)};
        while (auto const found = reader.next()) {
            if (!found->certificate) {
                std::cerr << "expiry_monitor: " << found->source << ": " << found->failure << '\n';
                status = badInput;
                continue;
            }
            auto const left = timeLeft(*found->certificate);
            if (left < options.within) {
                std::cout << found->source << " #" << found->index << ": " << found->certificate->getSubject()
                          << ' ' << describe(left) << '\n';
                status = status == allGood ? someExpire : status;
            }
        }
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> const arguments(argv + 1, argv + argc);
        if (arguments == std::vector<std::string>{"--help"}) {
            std::cout << usageText;
            return allGood;
        }
        return monitor(optionsFrom(arguments));
    } catch (std::exception const& failure) {
        std::cerr << "expiry_monitor: " << failure.what() << '\n';
        return badInput;
    }
}
