#include "Validate.hpp"

#include "Files.hpp"
#include "Json.hpp"
#include "Times.hpp"
#include "Verdict.hpp"

#include <iostream>
#include <map>
#include <memory>

namespace foundation::tools {

using toolkit::PathOptions;
using toolkit::PathResult;
using toolkit::Purpose;
using toolkit::Revocation;

namespace {

std::map<std::string, Purpose> const& purposes()
{
    static std::map<std::string, Purpose> const names = {
        {"server", Purpose::TLSServer},
        {"client", Purpose::TLSClient},
        {"code-signing", Purpose::CodeSigning},
        {"email", Purpose::EmailProtection},
        {"time-stamping", Purpose::TimeStamping}};
    return names;
}

PathOptions pathOptionsOf(ValidateOptions const& options)
{
    PathOptions path;
    path.host = options.host;
    path.address = options.address;
    if (!options.purpose.empty()) {
        path.purpose = purposes().at(options.purpose);
    }
    if (options.time) {
        path.time = timeFrom(*options.time);
    }
    for (auto const& file : options.crls) {
        for (auto& crl : crlsIn(file)) {
            path.crls.push_back(std::move(crl));
        }
    }
    if (!options.crls.empty()) {
        path.revocation = options.crlAll ? Revocation::WholeChain : Revocation::Leaf;
    }
    return path;
}

JsonObject recordOf(std::string const& source, PathResult const& result)
{
    auto record = newRecord("validate");
    record.addText("source", source);
    addVerdict(record, result);
    return record;
}

ExitStatus validate(ValidateOptions const& options)
{
    auto const given = certificatesIn(options.certificate);
    auto intermediates = intermediatesOf(options.trust);
    intermediates.insert(intermediates.end(), given.begin() + 1, given.end());
    auto const result =
        validatorFor(options.trust).validate(given.front(), intermediates, pathOptionsOf(options));
    std::cout << (options.json ? jsonLine(recordOf(options.certificate, result)) : verdictLines(result));
    return result.isValid() ? ExitStatus::Good : ExitStatus::Finding;
}

} // namespace

void addValidate(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<ValidateOptions>();
    auto& command = *program.add_subcommand(
        "validate", "Prints whether a certificate is valid, its chain, and what to do if it is not");
    command
        .add_option(
            "CERTIFICATE", options->certificate,
            "File with the certificate. More certificates in it are taken as intermediates")
        ->required();
    addTrustOptions(command, options->trust);
    command.add_option("--host", options->host, "The host name that the certificate must be for")
        ->type_name("NAME");
    command.add_option("--address", options->address, "The IP address that the certificate must be for")
        ->type_name("IP");
    command.add_option("--purpose", options->purpose, "What the certificate must be for")
        ->type_name("PURPOSE")
        ->check(CLI::IsMember({"server", "client", "code-signing", "email", "time-stamping"}));
    auto* const crl =
        command
            .add_option(
                "--crl", options->crls, "File with revocation lists, which must cover the certificate")
            ->allow_extra_args(false) // --crl FILE, not --crl FILE FILE
            ->type_name("FILE");
    command.add_flag("--crl-all", options->crlAll, "The revocation lists must cover the whole chain")
        ->needs(crl);
    command.add_option("--at", options->time, "Judge at this time instead of now: 2027-01-31T12:00:00Z")
        ->type_name("TIME");
    addJsonOption(command, options->json);
    command.callback([options, &action] { action = [options] { return validate(*options); }; });
}

} // namespace foundation::tools
