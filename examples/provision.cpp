// provision --name NAME: makes the key, the certificate request and the certificate of a new device.
#include "support/new_file.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/Issuance.hpp>

#include <charconv>
#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using foundation::certificates::CertificateException;
using foundation::toolkit::AlternativeName;
using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateRequest;
using foundation::toolkit::EndEntityCertificateBuilder;
using foundation::toolkit::KeyChoice;
using foundation::toolkit::makePrivateKey;
using foundation::toolkit::Purpose;
using foundation::toolkit::SecretString;

namespace {

constexpr char const usageText[] =
    R"(Usage: provision --name NAME [--dns NAME]... [--ip ADDRESS]... [--days N]
                 [--ca FILE --ca-key FILE] [--out PREFIX]
Makes a new key for the device NAME, a certificate request and a certificate for TLS
servers and clients. Writes them to PREFIX.key, which only you can read, PREFIX.csr and
PREFIX.pem. Existing files are not changed.

  --dns NAME        a host name for the certificate
  --ip ADDRESS      an address for the certificate
  --days N          validity in days, 1 to 3650; 90 by default
  --ca FILE         the certificate of the CA that signs; by default the device signs itself
  --ca-key FILE     the CA's private key, not encrypted
  --out PREFIX      "device" by default

Exit status: 0 if all files were written, 1 if the certificate cannot be made, 2 for
wrong usage or a file that cannot be read or written.
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
    std::vector<AlternativeName> alternativeNames;
    int days = 90;
    std::string authority;
    std::string authorityKey;
    std::string prefix = "device";
};

int numberFrom(std::string const& text)
{
    constexpr int mostDays = 3650;
    int number = 0;
    auto const* const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < 1 || number > mostDays) {
        throw std::runtime_error("not a number of days: " + text);
    }
    return number;
}

void take(Options& options, std::string const& option, std::string const& value)
{
    if (option == "--name") {
        options.name = value;
    } else if (option == "--dns") {
        options.alternativeNames.push_back({AlternativeName::Kind::DNS, value});
    } else if (option == "--ip") {
        options.alternativeNames.push_back({AlternativeName::Kind::IPAddress, value});
    } else if (option == "--days") {
        options.days = numberFrom(value);
    } else if (option == "--ca") {
        options.authority = value;
    } else if (option == "--ca-key") {
        options.authorityKey = value;
    } else if (option == "--out") {
        options.prefix = value;
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
    if (options.authority.empty() != options.authorityKey.empty()) {
        throw std::runtime_error("--ca and --ca-key belong together, try --help");
    }
    return options;
}

std::string contentOf(std::string const& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (content.empty()) {
        throw std::runtime_error(file + ": cannot be read, or is empty");
    }
    return content;
}

// What the files will hold.
struct Identity
{
    SecretString key;
    CertificateRequest request;
    Certificate certificate;
};

// The device makes its key and its request. The CA sees only the request.
Identity identityFrom(Options const& options)
{
    auto key = makePrivateKey(KeyChoice::Prime256v1);
    auto const request = CertificateRequest::make({{"CN", options.name}}, options.alternativeNames, key);
    auto const now = std::chrono::system_clock::now();
    auto const start = now - std::chrono::hours(1); // clocks of other machines may be late
    auto const builder = EndEntityCertificateBuilder()
                             .fromRequest(request)
                             .withPurposes({Purpose::TLSServer, Purpose::TLSClient})
                             .withValidity(start, now + std::chrono::hours(24 * options.days));
    auto const certificate = options.authority.empty()
                                 ? builder.signSelf(key)
                                 : builder.signBy(
                                       Certificate::fromPEM(contentOf(options.authority)),
                                       SecretString(contentOf(options.authorityKey)), request);
    return {std::move(key), request, certificate};
}

void writeFiles(std::string const& prefix, Identity const& identity)
{
    foundation::tools::NewFile keyFile(prefix + ".key", 0600);
    foundation::tools::NewFile requestFile(prefix + ".csr", 0644);
    foundation::tools::NewFile certificateFile(prefix + ".pem", 0644);
    keyFile.write(identity.key.view());
    requestFile.write(identity.request.getAsPEM());
    certificateFile.write(identity.certificate.getAsPEM());
    keyFile.keep();
    requestFile.keep();
    certificateFile.keep();
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return written;
    }
    auto const options = optionsFrom(arguments);
    try {
        auto const identity = identityFrom(options);
        writeFiles(options.prefix, identity);
        std::cout << "Subject: " << identity.certificate.getSubject() << '\n'
                  << "Issuer: " << identity.certificate.getIssuer() << '\n'
                  << "Wrote " << options.prefix << ".key, " << options.prefix << ".csr and " << options.prefix
                  << ".pem\n";
        return written;
    } catch (CertificateException const& refusal) {
        std::cerr << "provision: " << refusal.what() << '\n';
        return refused;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "provision: " << failure.what() << '\n';
        return badInput;
    }
}
