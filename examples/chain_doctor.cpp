// chain_doctor FILE: says what is wrong with a server's certificate chain, and what to do about it.
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::toolkit::Certificate;
using foundation::toolkit::CertificateReader;
using foundation::toolkit::explain;
using foundation::toolkit::PathOptions;
using foundation::toolkit::PathValidator;
using foundation::toolkit::Purpose;
using foundation::toolkit::toString;

namespace {

constexpr char const usageText[] = R"(Usage: chain_doctor FILE [--roots FILE] [--host NAME]
Validates the certificate chain of a TLS server and explains the verdict. The file holds
the server's certificate first, then the intermediates, as a server sends them.

  --roots FILE  trusted certificates; by default those of the operating system
  --host NAME   the name of the server

Exit status: 0 if the chain is valid, 1 if it is not, 2 for any failure.
)";

enum ExitStatus
{
    valid = 0,
    notValid = 1,
    badInput = 2
};

struct Options
{
    std::string file;
    std::string roots;
    PathOptions path;
};

Options optionsFrom(std::vector<std::string> const& arguments)
{
    Options options;
    options.path.purpose = Purpose::TLSServer;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        bool const hasValue = argument + 1 != arguments.end();
        if (*argument == "--roots" && hasValue) {
            options.roots = *++argument;
        } else if (*argument == "--host" && hasValue) {
            options.path.host = *++argument;
        } else if (argument->compare(0, 1, "-") == 0 || !options.file.empty()) {
            throw std::runtime_error(
                "unknown argument, or option without a value: " + *argument + ", try --help");
        } else {
            options.file = *argument;
        }
    }
    if (options.file.empty()) {
        throw std::runtime_error("no file given, try --help");
    }
    return options;
}

std::vector<Certificate> certificatesIn(std::string const& file)
{
    std::vector<Certificate> certificates;
    CertificateReader reader{std::filesystem::path(file)};
    while (auto const found = reader.next()) {
        if (!found->certificate) {
            throw std::runtime_error(found->source + ": " + found->failure);
        }
        certificates.push_back(*found->certificate);
    }
    return certificates;
}

ExitStatus diagnose(Options const& options)
{
    auto const sent = certificatesIn(options.file);
    auto const validator = options.roots.empty() ? PathValidator::withSystemRoots()
                                                 : PathValidator(certificatesIn(options.roots));
    auto const result = validator.validate(sent.front(), {sent.begin() + 1, sent.end()}, options.path);
    auto const explanation = explain(result);

    std::cout << "Verdict: " << toString(result.status) << '\n';
    for (std::size_t depth = 0; depth < result.chain.size(); ++depth) {
        std::cout << "  " << depth << ": " << result.chain[depth].getSubject() << " ("
                  << result.chain[depth].getKeyKind() << ")\n";
    }
    if (!result.isValid()) {
        std::cout << "Certificate: " << explanation.depth << ": " << explanation.subject << '\n';
    }
    std::cout << explanation.message << '\n' << explanation.advice << '\n';
    return result.isValid() ? valid : notValid;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::vector<std::string> const arguments(argv + 1, argv + argc);
        if (arguments == std::vector<std::string>{"--help"}) {
            std::cout << usageText;
            return valid;
        }
        return diagnose(optionsFrom(arguments));
    } catch (std::exception const& failure) {
        std::cerr << "chain_doctor: " << failure.what() << '\n';
        return badInput;
    }
}
