#include "Doctor.hpp"

#include "CommonOptions.hpp"
#include "Diagnosis.hpp"
#include "Files.hpp"
#include "ServerCertificates.hpp"
#include "Text.hpp"
#include "Verdict.hpp"

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace foundation::tools {

using toolkit::PathOptions;

namespace {

struct DoctorOptions
{
    std::string target;
    TrustOptions trust;
    std::optional<std::string> host;
};

/// Returns the server that the target names; nothing if the target is a file.
std::optional<ServerAddress> serverIn(std::string const& target)
{
    std::error_code ignored;
    return std::filesystem::exists(target, ignored) ? std::nullopt : serverAddressFrom(target);
}

PathOptions expecting(std::optional<std::string> const& hostOrAddress)
{
    PathOptions options;
    (hostOrAddress && isIPAddress(*hostOrAddress) ? options.address : options.host) = hostOrAddress;
    return options;
}

std::string described(Finding const& finding, std::size_t number)
{
    std::string text = std::to_string(number) + ". " + finding.explanation.message + "\n";
    text += "   Certificate: " + printable(finding.explanation.subject) + "\n";
    for (auto const& detail : finding.details) {
        text += "   " + printable(detail) + "\n";
    }
    return text + "   Advice: " + finding.explanation.advice + "\n";
}

ExitStatus examine(DoctorOptions const& options)
{
    auto const server = serverIn(options.target);
    auto const host = server && !options.host ? server->host : options.host;
    auto const roots = validatorFor(options.trust);
    auto given = server ? fetchCertificates(*server, *host) : certificatesIn(options.target);
    auto const further = intermediatesOf(options.trust);
    given.insert(given.end(), further.begin(), further.end());

    auto const diagnosis = diagnose(given, roots, expecting(host));
    std::cout << chainLine(diagnosis.chain);
    std::size_t number = 0;
    for (auto const& finding : diagnosis.findings) {
        std::cout << described(finding, ++number);
    }
    if (number == 0) {
        std::cout << "No fault found.\n";
    }
    return number == 0 ? ExitStatus::Good : ExitStatus::Finding;
}

} // namespace

void addDoctor(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<DoctorOptions>();
    auto& command = *program.add_subcommand(
        "doctor",
        "Prints all faults of a TLS server's chain, and what mends them. Fetches nothing but that chain");
    command
        .add_option(
            "TARGET", options->target,
            "HOST:PORT of a TLS server, or a file with its certificate and intermediates, in the order in "
            "which it sends them")
        ->required();
    addTrustOptions(command, options->trust);
    command
        .add_option(
            "--host", options->host,
            "The host name or address that clients use; by default the HOST of HOST:PORT")
        ->type_name("NAME");
    command.callback([options, &action] { action = [options] { return examine(*options); }; });
}

} // namespace foundation::tools
