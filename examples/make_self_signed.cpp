// make_self_signed --name NAME: creates a self-signed certificate and writes it and its private key to files.
#include "support/new_file.hpp"
#include "support/passphrase.hpp"

#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <charconv>
#include <cstdint>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::SelfSignedCertBuilder;

namespace {

constexpr char const usageText[] =
    R"(Usage: make_self_signed --name NAME [--dns NAME]... [--ip ADDRESS]... [--days N]
                        [--out PREFIX] [--passphrase-file FILE]
Creates a self-signed certificate for NAME. Writes it to PREFIX.pem and its private key
to PREFIX.key, which only you can read. Existing files are not changed.

  --dns NAME              another host name for the certificate
  --ip ADDRESS            another address for the certificate
  --days N                validity in days, 1 to 397; 365 by default
  --out PREFIX            "self-signed" by default
  --passphrase-file FILE  encrypts the key with the first line of the file;
                          by default the key is not encrypted

Exit status: 0 if both files were written, 1 if the certificate cannot be created,
2 for wrong usage or a file that cannot be read or written.
)";

enum ExitStatus
{
    written = 0,
    refused = 1,
    badInput = 2
};

struct Options
{
    std::string name;
    std::set<std::string> furtherNames;
    std::optional<std::uint32_t> days;
    std::string prefix = "self-signed";
    std::optional<std::string> passphrase;
};

// In a list of alternative names a comma would start another name, of any type.
std::string withoutComma(std::string const& name)
{
    if (name.find(',') != std::string::npos) {
        throw std::runtime_error("a name must not contain a comma: " + name);
    }
    return name;
}

std::uint32_t numberFrom(std::string const& text)
{
    std::uint32_t number = 0;
    auto const* const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        throw std::runtime_error("not a number of days: " + text);
    }
    return number;
}

void take(Options& options, std::string const& option, std::string const& value)
{
    if (option == "--name") {
        options.name = withoutComma(value);
    } else if (option == "--dns") {
        options.furtherNames.insert("DNS:" + withoutComma(value));
    } else if (option == "--ip") {
        options.furtherNames.insert("IP:" + withoutComma(value));
    } else if (option == "--days") {
        options.days = numberFrom(value);
    } else if (option == "--out") {
        options.prefix = value;
    } else if (option == "--passphrase-file") {
        options.passphrase = foundation::tools::passphraseFromFile(value);
    } else {
        throw std::runtime_error("unknown option " + option + ", try --help");
    }
}

Options optionsFrom(std::vector<std::string> const& arguments)
{
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); argument += 2) {
        if (argument + 1 == arguments.end()) {
            throw std::runtime_error(
                "unknown option, or option without a value: " + *argument + ", try --help");
        }
        take(options, *argument, *(argument + 1));
    }
    if (options.name.empty()) {
        throw std::runtime_error("no name given, try --help");
    }
    return options;
}

SelfSignedCertBuilder builderFrom(Options const& options)
{
    SelfSignedCertBuilder builder;
    builder.withCommonName(options.name).withAdditionalSubjectAltNames(options.furtherNames);
    if (options.days) {
        builder.withValidityPeriod(*options.days);
    }
    if (options.passphrase) {
        builder.withPrivateKeyPassphrase(*options.passphrase);
    }
    return builder;
}

void writeFiles(Options const& options, std::string const& certificate, std::string const& privateKey)
{
    foundation::tools::NewFile certificateFile(options.prefix + ".pem", 0644);
    foundation::tools::NewFile keyFile(options.prefix + ".key", 0600);
    certificateFile.write(certificate);
    keyFile.write(privateKey);
    certificateFile.keep();
    keyFile.keep();
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return written;
    }
    auto const options = optionsFrom(arguments);
    std::optional<decltype(SelfSignedCertBuilder().build())> made;
    try {
        made = builderFrom(options).build();
    } catch (std::runtime_error const& refusal) {
        std::cerr << "make_self_signed: " << refusal.what() << '\n';
        return refused;
    }
    auto const& [certificate, privateKey] = *made;
    writeFiles(options, certificate.getAsPEMString(), privateKey);
    std::cout << certificate << "Wrote " << options.prefix << ".pem and " << options.prefix << ".key\n";
    return written;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "make_self_signed: " << failure.what() << '\n';
        return badInput;
    }
}
