#include "CommonOptions.hpp"

#include "Files.hpp"

namespace foundation::tools {

using certificates::TrustStore;
using toolkit::Certificate;
using toolkit::PathValidator;

void addJsonOption(CLI::App& command, bool& json)
{
    command.add_flag("--json", json, "Write one JSON object for each line");
}

void addPassphraseOption(CLI::App& command, std::optional<std::string>& file)
{
    command
        .add_option(
            "--passphrase-file", file,
            "File with the passphrase, without one line end at its end; - is standard input and /dev/fd/3 an "
            "open "
            "descriptor. Without this option the terminal asks")
        ->type_name("FILE");
}

void addForceOption(CLI::App& command, bool& force)
{
    command.add_flag("--force", force, "Replace files that exist");
}

void addTrustOptions(CLI::App& command, TrustOptions& options)
{
    command.add_option("--chain", options.chain, "File with intermediate certificates, in any order")
        ->type_name("FILE");
    command
        .add_option(
            "--roots", options.roots,
            "File with the trusted certificates, or 'system' for those of this system")
        ->type_name("FILE|system")
        ->capture_default_str();
}

std::vector<Certificate> intermediatesOf(TrustOptions const& options)
{
    return options.chain.empty() ? std::vector<Certificate>() : certificatesIn(options.chain);
}

PathValidator validatorFor(TrustOptions const& options, TrustStore::Usage usage)
{
    return options.roots == "system" ? PathValidator::withSystemRoots(usage)
                                     : PathValidator(certificatesIn(options.roots));
}

} // namespace foundation::tools
