// verify_signed FILE [--data FILE] [--trust FILE]...: prints whether the signature of PKCS#7 signed data is
// valid and its signer trusted.
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using foundation::certificates::ByteArray;
using foundation::certificates::CertificateChainStatus;
using foundation::certificates::PKCS7Certificate;
using foundation::certificates::PKCS7CertificateValidationResults;
using foundation::certificates::TrustStore;
using foundation::certificates::X509CertificateChain;

namespace {

constexpr char const usage[] =
    "Usage: verify_signed FILE [--data FILE] [--trust FILE]... [--help]\n"
    "\n"
    "  FILE          the signed data, in PEM or DER\n"
    "  --data FILE   the content, if it is not inside the signed data\n"
    "  --trust FILE  trusted certificates in PEM; by default those of the operating system\n"
    "\n"
    "Exit status: 0 if the signature is valid and its signer trusted, 1 if not, 2 for any failure.\n";

struct Arguments
{
    std::string signedData;
    std::string data;
    std::vector<std::string> trust;
    bool help = false;
};

class WrongUsage : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

Arguments parse(std::vector<std::string> const& words)
{
    Arguments arguments;
    for (auto word = words.begin(); word != words.end(); ++word) {
        bool const takesFile = *word == "--data" || *word == "--trust";
        if (takesFile && (word + 1 == words.end() || (word + 1)->empty())) {
            throw WrongUsage(*word + " needs a file");
        }
        if (*word == "--help") {
            arguments.help = true;
        } else if (*word == "--data") {
            arguments.data = *++word;
        } else if (*word == "--trust") {
            arguments.trust.push_back(*++word);
        } else if (word->substr(0, 2) == "--" || !arguments.signedData.empty()) {
            throw WrongUsage("unknown argument: " + *word);
        } else {
            arguments.signedData = *word;
        }
    }
    if (arguments.signedData.empty() && !arguments.help) {
        throw WrongUsage("no file given");
    }
    return arguments;
}

std::ifstream open(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return file;
}

// For the library, no data means that the content is inside. So refuse an empty file here.
ByteArray readData(std::string const& path)
{
    auto file = open(path);
    ByteArray data(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>{});
    if (data.empty()) {
        throw std::runtime_error(path + ": is empty");
    }
    return data;
}

// Adds each certificate separately, because addCertificates would skip those that are not CAs.
TrustStore readTrust(std::vector<std::string> const& paths)
{
    TrustStore store;
    for (auto const& path : paths) {
        auto file = open(path);
        for (auto const& certificate : X509CertificateChain(file).getCertificates()) {
            store.addCertificate(certificate);
        }
    }
    return store;
}

char const* nameOf(CertificateChainStatus status)
{
    switch (status) {
    case CertificateChainStatus::Valid:
        return "trusted";
    case CertificateChainStatus::Untrusted:
        return "not trusted";
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

void print(PKCS7CertificateValidationResults const& results)
{
    std::cout << "Signature: " << (results.getSignatureVerificationStatus() ? "valid" : "not valid") << "\n"
              << "Chain: " << nameOf(results.getCertificateChainStatus()) << "\n";
    if (!results.isValidSignature() && !results.getValidationErrorString().empty()) {
        std::cout << "Reason: " << results.getValidationErrorString() << "\n";
    }
}

int run(Arguments const& arguments)
{
    if (arguments.help) {
        std::cout << usage;
        return 0;
    }
    auto file = open(arguments.signedData);
    PKCS7Certificate const signedData(file);
    auto const data = arguments.data.empty() ? ByteArray() : readData(arguments.data);
    auto const results = signedData.verifySignature(X509CertificateChain(), readTrust(arguments.trust), data);
    print(results);
    return results.isValidSignature() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(parse(std::vector<std::string>(argv + 1, argv + argc)));
    } catch (WrongUsage const& error) {
        std::cerr << error.what() << "\n\n" << usage;
    } catch (std::exception const& error) {
        std::cerr << error.what() << "\n";
    }
    return 2;
}
