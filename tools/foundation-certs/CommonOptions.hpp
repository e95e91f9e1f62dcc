#pragma once

#include <foundation/toolkit/PathValidation.hpp>

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

/// Options that several subcommands share. Each function adds them to the parser of a subcommand. The
/// variables must live until the arguments are parsed.
namespace foundation::tools {

/// Adds --json.
void addJsonOption(CLI::App& command, bool& json);

/// Adds --passphrase-file, for readPassphrase.
void addPassphraseOption(CLI::App& command, std::optional<std::string>& file);

/// Adds --force, which lets output replace files.
void addForceOption(CLI::App& command, bool& force);

/// Which certificates complete a chain, and which are trusted.
struct TrustOptions
{
    std::string chain;            ///< a file of intermediates; none if empty
    std::string roots = "system"; ///< a file of trusted certificates
};
/// Adds --chain and --roots.
void addTrustOptions(CLI::App& command, TrustOptions& options);
/// Returns the certificates of --chain.
std::vector<toolkit::Certificate> intermediatesOf(TrustOptions const& options);
/// Returns a validator with the roots that --roots names.
toolkit::PathValidator validatorFor(
    TrustOptions const& options,
    certificates::TrustStore::Usage usage = certificates::TrustStore::Usage::ServerAuthentication);

} // namespace foundation::tools
