// validate LEAF [--chain FILE] [--trust FILE]...: prints whether a certificate is valid, up to which root,
// and if not, why.
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <array>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using foundation::certificates::CertificateChainStatus;
using foundation::certificates::CertificateRevocationResults;
using foundation::certificates::CertificateValidationOptions;
using foundation::certificates::CertificateValidationResults;
using foundation::certificates::TrustStore;
using foundation::certificates::X509Certificate;
using foundation::certificates::X509CertificateChain;

namespace {

using Options = CertificateValidationOptions;

constexpr char const usageText[] =
    R"(Usage: validate LEAF [--chain FILE] [--trust FILE]... [--fallback FILE]
                [--crl none|leaf|chain] [--download none|best-effort|required]
                [--allow-self-signed] [--allow-expired] [--allow-revoked] [--help]
Prints whether the certificate in the file LEAF is valid, and if not, why.

  --chain FILE      the intermediate certificates, in PEM
  --trust FILE      trusted certificates, in PEM or one in DER; by default those of the operating system
  --fallback FILE   trusted certificates for a second validation, if the first one does not trust the certificate
  --crl HOW         checks the revocation of no certificate (the default), the leaf, or the whole chain; this
                    uses only revocation lists that --download fetches
  --download HOW    fetches no revocation lists (the default), fetches them with best effort, or requires
                    them, and then a failed download ends the validation

Exit status: 0 if the certificate is valid, 1 if it is not, 2 for any failure.
)";

class WrongUsage : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct Arguments
{
    std::string leaf;
    std::string chain;
    std::vector<std::string> trust;
    std::string fallback;
    Options::CheckCRL check = Options::CheckCRL::None;
    Options::DownloadCRL download = Options::DownloadCRL::None;
    Options::AllowSelfSignedCertificate allowSelfSigned = Options::AllowSelfSignedCertificate::No;
    Options::AllowExpiredCertificate allowExpired = Options::AllowExpiredCertificate::No;
    Options::AllowRevokedCertificate allowRevoked = Options::AllowRevokedCertificate::No;
    bool help = false;
};

template <class Choice>
using Choices = std::array<std::pair<std::string_view, Choice>, 3>;

constexpr Choices<Options::CheckCRL> checks = {
    {{"none", Options::CheckCRL::None},
     {"leaf", Options::CheckCRL::LeafOnly},
     {"chain", Options::CheckCRL::WholeChain}}};

constexpr Choices<Options::DownloadCRL> downloads = {
    {{"none", Options::DownloadCRL::None},
     {"best-effort", Options::DownloadCRL::BestEffort},
     {"required", Options::DownloadCRL::Required}}};

template <class Choice>
Choice choose(Choices<Choice> const& choices, std::string const& option, std::string const& word)
{
    for (auto const& [name, choice] : choices) {
        if (word == name) {
            return choice;
        }
    }
    throw WrongUsage("unknown value for " + option + ": " + word);
}

/// Reads an option without a value. Returns false for all other words.
bool readSwitch(Arguments& arguments, std::string const& word)
{
    if (word == "--help") {
        arguments.help = true;
    } else if (word == "--allow-self-signed") {
        arguments.allowSelfSigned = Options::AllowSelfSignedCertificate::Yes;
    } else if (word == "--allow-expired") {
        arguments.allowExpired = Options::AllowExpiredCertificate::Yes;
    } else if (word == "--allow-revoked") {
        arguments.allowRevoked = Options::AllowRevokedCertificate::Yes;
    } else {
        return false;
    }
    return true;
}

void readOption(Arguments& arguments, std::string const& option, std::string const& value)
{
    if (option == "--chain") {
        arguments.chain = value;
    } else if (option == "--trust") {
        arguments.trust.push_back(value);
    } else if (option == "--fallback") {
        arguments.fallback = value;
    } else if (option == "--crl") {
        arguments.check = choose(checks, option, value);
    } else if (option == "--download") {
        arguments.download = choose(downloads, option, value);
    } else {
        throw WrongUsage("unknown option " + option);
    }
}

Arguments parse(std::vector<std::string> const& words)
{
    Arguments arguments;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (readSwitch(arguments, *word)) {
            continue;
        }
        if (word->compare(0, 1, "-") == 0) {
            auto const& option = *word;
            if (word + 1 == words.end()) {
                throw WrongUsage("no value for " + option);
            }
            readOption(arguments, option, *++word);
        } else if (arguments.leaf.empty()) {
            arguments.leaf = *word;
        } else {
            throw WrongUsage("only one certificate is allowed: " + *word);
        }
    }
    if (arguments.leaf.empty() && !arguments.help) {
        throw WrongUsage("no certificate given");
    }
    return arguments;
}

std::string contentOf(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (content.empty()) {
        throw std::runtime_error(path + ": cannot be read, or is empty");
    }
    return content;
}

/// Returns the function's result for the file's content. A failure names the file.
template <class Function>
auto readWith(std::string const& path, Function const& function)
{
    auto const content = contentOf(path);
    try {
        return function(content);
    } catch (std::exception const& failure) {
        throw std::runtime_error(path + ": " + failure.what());
    }
}

X509Certificate readCertificate(std::string const& path)
{
    return readWith(path, [](std::string const& content) { return X509Certificate(content); });
}

X509CertificateChain readChain(std::string const& path)
{
    return readWith(path, [](std::string const& content) { return X509CertificateChain(content); });
}

/// Adds each certificate separately, because addCertificates would skip those that are not CAs.
void addTrust(TrustStore& store, std::string const& path)
{
    readWith(path, [&](std::string const& content) {
        if (content.find("-----BEGIN ") == std::string::npos) {
            store.addCertificate(X509Certificate(content));
            return;
        }
        for (auto const& certificate : X509CertificateChain(content).getCertificates()) {
            store.addCertificate(certificate);
        }
    });
}

/// Without paths the store is empty, which means the operating system's roots.
TrustStore readTrust(std::vector<std::string> const& paths)
{
    TrustStore store;
    for (auto const& path : paths) {
        addTrust(store, path);
    }
    return store;
}

Options optionsOf(Arguments const& arguments)
{
    std::shared_ptr<TrustStore const> fallback;
    if (!arguments.fallback.empty()) {
        fallback = std::make_shared<TrustStore>(readTrust({arguments.fallback}));
    }
    return Options(
        arguments.allowSelfSigned, arguments.allowExpired, arguments.allowRevoked, arguments.check,
        arguments.download, fallback);
}

char const* nameOf(CertificateChainStatus status)
{
    switch (status) {
    case CertificateChainStatus::Valid:
        return "valid";
    case CertificateChainStatus::Untrusted:
        return "untrusted";
    case CertificateChainStatus::SelfSigned:
        return "self-signed";
    case CertificateChainStatus::CRLError:
        return "CRL error";
    case CertificateChainStatus::Revoked:
        return "revoked";
    case CertificateChainStatus::Expired:
        return "expired";
    case CertificateChainStatus::BadSignature:
        return "bad signature";
    case CertificateChainStatus::Failed:
        break;
    }
    return "failed";
}

void print(X509Certificate const& leaf, CertificateValidationResults const& results)
{
    std::cout << "Certificate: " << leaf.getSubjectName() << '\n'
              << "Verdict: " << nameOf(results.getCertificateChainStatus()) << '\n';
    if (auto const root = results.getRootCertificate()) {
        std::cout << "Root: " << root->getSubjectName() << '\n';
    }
    auto const revocation = results.getCertificateRevocationResults();
    if (revocation.getRevocationStatus() == CertificateRevocationResults::RevocationStatus::Revoked) {
        std::cout << "Revoked: serial number " << revocation.getRevokedSerialNumberString() << " on "
                  << revocation.getRevocationDateString() << '\n';
    }
    if (!results.getValidationErrorString().empty()) {
        std::cout << "Report: " << results.getValidationErrorString();
    }
}

int run(Arguments const& arguments)
{
    if (arguments.help) {
        std::cout << usageText;
        return 0;
    }
    auto const leaf = readCertificate(arguments.leaf);
    auto const chain = arguments.chain.empty() ? X509CertificateChain() : readChain(arguments.chain);
    auto const results = leaf.validateCertificate(chain, optionsOf(arguments), readTrust(arguments.trust));
    print(leaf, results);
    return results.getCertificateChainStatus() == CertificateChainStatus::Valid ? 0 : 1;
}

/// Some texts of the library contain line breaks.
std::string onOneLine(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    for (char& character : text) {
        character = character == '\n' ? ' ' : character;
    }
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(parse(std::vector<std::string>(argv + 1, argv + argc)));
    } catch (WrongUsage const& error) {
        std::cerr << "validate: " << error.what() << ", try --help\n";
    } catch (std::exception const& error) {
        std::cerr << "validate: " << onOneLine(error.what()) << '\n';
    }
    return 2;
}
