// import_bundle BUNDLE: writes the private key and the certificates of a PKCS#12 bundle to files that servers
// read.
#include "support/new_file.hpp"
#include "support/passphrase.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/PrivateKeys.hpp>

#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::CertificateException;
using foundation::certificates::PKCS12Certificate;
using foundation::toolkit::Certificate;
using foundation::toolkit::privateKeyAsPEM;
using foundation::toolkit::SecretString;

namespace {

constexpr char const usageText[] =
    R"(Usage: import_bundle BUNDLE [--out PREFIX] [--passphrase-file FILE] [--key-passphrase-file FILE]
Writes the certificate of a PKCS#12 bundle and its chain to PREFIX.pem, and its private
key to PREFIX.key, which only you can read. Existing files are not changed.

  --out PREFIX                "imported" by default
  --passphrase-file FILE      the bundle's passphrase is the first line of the file; without
                              this option it is asked for on the terminal
  --key-passphrase-file FILE  encrypts the key with the first line of the file; by default
                              the key is not encrypted

Exit status: 0 if both files were written, 1 if the bundle was refused, 2 for wrong
usage or a file that cannot be read or written.
)";

enum ExitStatus
{
    imported = 0,
    refused = 1,
    badInput = 2
};

struct Options
{
    std::string bundle;
    std::string prefix = "imported";
    std::optional<std::string> passphraseFile;
    std::optional<std::string> keyPassphraseFile;
};

void take(Options& options, std::string const& option, std::string const& value)
{
    if (option == "--out") {
        options.prefix = value;
    } else if (option == "--passphrase-file") {
        options.passphraseFile = value;
    } else if (option == "--key-passphrase-file") {
        options.keyPassphraseFile = value;
    } else {
        throw std::runtime_error("unknown option " + option + ", try --help");
    }
}

Options optionsFrom(std::vector<std::string> const& arguments)
{
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (argument->compare(0, 1, "-") != 0 && options.bundle.empty()) {
            options.bundle = *argument;
        } else if (argument + 1 == arguments.end()) {
            throw std::runtime_error(
                "unknown option, or option without a value: " + *argument + ", try --help");
        } else {
            take(options, *argument, *(argument + 1));
            ++argument;
        }
    }
    if (options.bundle.empty()) {
        throw std::runtime_error("no bundle given, try --help");
    }
    return options;
}

// What the files will hold.
struct Contents
{
    std::string certificates;
    SecretString key;
};

Contents contentsOf(PKCS12Certificate const& bundle, std::string const& passphrase, Options const& options)
{
    std::string certificates;
    if (auto const certificate = bundle.getCertificate(); !certificate.empty()) {
        certificates = Certificate(certificate).getAsPEM();
    }
    for (auto const& other : bundle.getCAChain().getCertificates()) {
        certificates += Certificate(other).getAsPEM();
    }
    if (!options.keyPassphraseFile) {
        return {certificates, privateKeyAsPEM(bundle, passphrase)};
    }
    SecretString const newPassphrase(foundation::tools::passphraseFromFile(*options.keyPassphraseFile));
    return {certificates, privateKeyAsPEM(bundle, passphrase, newPassphrase)};
}

ExitStatus importBundle(Options const& options)
{
    std::ifstream stream(options.bundle, std::ios::binary);
    if (!stream || stream.peek() == std::ifstream::traits_type::eof()) {
        throw std::runtime_error(options.bundle + ": cannot be read, or is empty");
    }
    std::string const passphrase = options.passphraseFile
                                       ? foundation::tools::passphraseFromFile(*options.passphraseFile)
                                       : foundation::tools::passphraseFromTerminal("Passphrase: ");
    try {
        PKCS12Certificate const bundle(stream, passphrase);
        auto const contents = contentsOf(bundle, passphrase, options);
        foundation::tools::NewFile certificateFile(options.prefix + ".pem", 0644);
        foundation::tools::NewFile keyFile(options.prefix + ".key", 0600);
        certificateFile.write(contents.certificates);
        keyFile.write(contents.key.view());
        certificateFile.keep();
        keyFile.keep();
    } catch (CertificateException const& refusal) {
        std::cerr << "import_bundle: " << options.bundle << ": " << refusal.what() << '\n';
        return refused;
    }
    std::cout << "Wrote " << options.prefix << ".pem and " << options.prefix << ".key\n";
    return imported;
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return imported;
    }
    return importBundle(optionsFrom(arguments));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "import_bundle: " << failure.what() << '\n';
        return badInput;
    }
}
