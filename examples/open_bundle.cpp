// open_bundle FILE: prints the contents of a PKCS#12 bundle. Of the private key it prints only the kind.
#include "support/passphrase.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::CertificateException;
using foundation::certificates::EllipticCurve;
using foundation::certificates::KeyType;
using foundation::certificates::PKCS12Certificate;
using foundation::certificates::PrivateKeyInfo;

namespace {

constexpr char const usageText[] = R"(Usage: open_bundle FILE [--passphrase-file FILE]
Prints what a PKCS#12 bundle holds: its certificates, and the kind of its private key.
The passphrase is the first line of the file given with --passphrase-file; without that
option it is asked for on the terminal.

Exit status: 0 if the bundle was opened, 1 if it was refused, 2 for wrong usage or a
file that cannot be read.
)";

enum ExitStatus
{
    opened = 0,
    refused = 1,
    badInput = 2
};

struct Options
{
    std::string bundle;
    std::optional<std::string> passphraseFile;
};

Options optionsFrom(std::vector<std::string> const& arguments)
{
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == "--passphrase-file") {
            if (argument + 1 == arguments.end()) {
                throw std::runtime_error("--passphrase-file needs a file, try --help");
            }
            options.passphraseFile = *++argument;
        } else if (argument->compare(0, 1, "-") == 0) {
            throw std::runtime_error("unknown option " + *argument + ", try --help");
        } else if (!options.bundle.empty()) {
            throw std::runtime_error("only one bundle is allowed, try --help");
        } else {
            options.bundle = *argument;
        }
    }
    if (options.bundle.empty()) {
        throw std::runtime_error("no bundle given, try --help");
    }
    return options;
}

std::string kindOf(std::optional<PrivateKeyInfo> const& key)
{
    if (!key) {
        return "none";
    }
    switch (key->getType()) {
    case KeyType::RSA:
        return "RSA";
    case KeyType::ECC:
        return key->getECCCurve() == EllipticCurve::Ed25519 ? "Ed25519" : "prime256v1";
    }
    return "unknown";
}

void print(PKCS12Certificate const& bundle)
{
    std::cout << "Private Key: " << kindOf(bundle.getPrivateKeyInfo()) << "\n\n";
    auto const certificate = bundle.getCertificate();
    if (certificate.empty()) {
        std::cout << "No certificate matches the private key.\n\n";
    } else {
        std::cout << certificate;
    }
    std::cout << "Other Certificates: " << bundle.getCAChain().getNumCertificates() << "\n\n";
    for (auto const& other : bundle.getCAChain().getCertificates()) {
        std::cout << other;
    }
}

ExitStatus openBundle(Options const& options)
{
    std::ifstream stream(options.bundle, std::ios::binary);
    if (!stream || stream.peek() == std::ifstream::traits_type::eof()) {
        throw std::runtime_error(options.bundle + ": cannot be read, or is empty");
    }
    std::string const passphrase = options.passphraseFile
                                       ? foundation::tools::passphraseFromFile(*options.passphraseFile)
                                       : foundation::tools::passphraseFromTerminal("Passphrase: ");
    try {
        print(PKCS12Certificate(stream, passphrase));
        return opened;
    } catch (CertificateException const& refusal) {
        std::cerr << "open_bundle: " << options.bundle << ": " << refusal.what() << '\n';
        return refused;
    }
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return opened;
    }
    return openBundle(optionsFrom(arguments));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "open_bundle: " << failure.what() << '\n';
        return badInput;
    }
}
