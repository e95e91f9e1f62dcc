// inspect [FILE...]: prints the contents of each certificate in the files, and why a certificate is refused.
// inspect --system: prints which of this system's root certificates a trust store keeps.
#include "system_roots.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

using foundation::certificates::CertificateException;
using foundation::certificates::EllipticCurve;
using foundation::certificates::KeyType;
using foundation::certificates::PublicKeyInfo;
using foundation::certificates::X509Certificate;

namespace {

constexpr char const usageText[] = R"(Usage: inspect [FILE...]
       inspect --system
Prints what each certificate of the files says about itself, and why one is refused.
A file holds certificates as PEM, any number of them, or one as DER. Without a file,
the root certificates that this system trusts are inspected.

  --system  says how many of this system's root certificates a trust store keeps for
            each usage, and why it drops the others

Exit status: 0 if all certificates could be read, 1 if some were refused,
2 for wrong usage or a file that cannot be read.
)";

enum ExitStatus
{
    allRead = 0,
    someRefused = 1,
    badInput = 2
};

struct Count
{
    int printed = 0;
    int refused = 0;
    int unreadableFiles = 0;
};

std::string nameOf(PublicKeyInfo const& key)
{
    switch (key.getType()) {
    case KeyType::RSA:
        return "RSA";
    case KeyType::ECC:
        return key.getECCCurve() == EllipticCurve::Ed25519 ? "Ed25519" : "prime256v1";
    }
    return "unknown";
}

std::string joined(std::vector<std::string> const& oids)
{
    std::string text;
    for (std::string const& oid : oids) {
        text += (text.empty() ? "" : ", ") + oid;
    }
    return text.empty() ? "none" : text;
}

// Returns the whole description, or throws. So no certificate is printed in part.
std::string describe(X509Certificate const& certificate)
{
    std::ostringstream out;
    auto const key = certificate.getPublicKeyInfo();
    out << certificate;
    out << "Key: " << nameOf(key) << ", " << key.getKeySize() << " bits\n"
        << "Serial Number: " << certificate.getSerialNumber() << '\n'
        << "Signature: " << certificate.getSignatureAlgorithm() << '\n'
        << "Valid From: " << certificate.getValidNotBefore() << '\n'
        << "Valid Until: " << certificate.getValidNotAfter() << '\n'
        << "Extended Key Usages: " << joined(certificate.getExtendedKeyUsages()) << '\n'
        << "Policies: " << joined(certificate.getPolicies()) << "\n\n";
    return out.str();
}

void inspectCertificate(std::string const& data, Count& count)
{
    try {
        std::cout << describe(X509Certificate(data));
        ++count.printed;
    } catch (CertificateException const& refusal) {
        std::cout << "Refused: " << refusal.what() << "\n\n";
        ++count.refused;
    }
}

// Loading reads the first PEM block only. So pass each block separately: a refused one then does not hide the
// others. Input without a block is passed unchanged.
std::vector<std::string> splitIntoCertificates(std::string const& data)
{
    std::string const begin = "-----BEGIN CERTIFICATE-----";
    std::vector<std::string> blocks;
    for (auto start = data.find(begin); start != std::string::npos;) {
        auto const next = data.find(begin, start + begin.size());
        blocks.push_back(data.substr(start, next == std::string::npos ? next : next - start));
        start = next;
    }
    return blocks.empty() ? std::vector<std::string>{data} : blocks;
}

std::string contentOf(fs::path const& file)
{
    if (fs::is_directory(file)) {
        throw std::runtime_error("is a folder");
    }
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(fs::exists(file) ? "cannot be opened" : "does not exist");
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void inspectFile(fs::path const& file, Count& count)
{
    std::string content;
    try {
        content = contentOf(file);
    } catch (std::exception const& failure) {
        std::cerr << "inspect: " << file.string() << ": " << failure.what() << '\n';
        ++count.unreadableFiles;
        return;
    }
    int const printedBefore = count.printed;
    for (std::string const& certificate : splitIntoCertificates(content)) {
        inspectCertificate(certificate, count);
    }
    if (count.printed == printedBefore) {
        std::cerr << "inspect: " << file.string() << ": contains no readable certificate\n";
    }
}

// Returns each file once, even if several links point to it.
std::vector<fs::path> filesIn(fs::path const& folder)
{
    std::vector<fs::path> files;
    for (auto const& entry : fs::directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files.push_back(fs::canonical(entry.path()));
        }
    }
    std::sort(files.begin(), files.end());
    files.erase(std::unique(files.begin(), files.end()), files.end());
    return files;
}

std::vector<fs::path> systemFiles()
{
    std::string const file = foundation::certificates::getSystemCertificatesFile();
    if (!file.empty()) {
        return {file};
    }
    std::string const folder = foundation::certificates::getSystemCertificatesFolder();
    if (!folder.empty()) {
        return filesIn(folder);
    }
    throw std::runtime_error("this system has no file or folder of root certificates");
}

ExitStatus inspectFiles(std::vector<fs::path> const& files)
{
    Count count;
    for (fs::path const& file : files) {
        inspectFile(file, count);
    }
    std::cout << "Certificates: " << count.printed << " printed, " << count.refused << " refused\n";
    if (count.unreadableFiles != 0) {
        return badInput;
    }
    return count.refused == 0 ? allRead : someRefused;
}

ExitStatus run(std::vector<std::string> const& arguments)
{
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << usageText;
        return allRead;
    }
    if (arguments == std::vector<std::string>{"--system"}) {
        printSystemRoots(std::cout);
        return allRead;
    }
    for (std::string const& argument : arguments) {
        if (argument.compare(0, 1, "-") == 0) {
            throw std::runtime_error("unknown option " + argument + ", try --help");
        }
    }
    return inspectFiles(
        arguments.empty() ? systemFiles() : std::vector<fs::path>(arguments.begin(), arguments.end()));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& failure) {
        std::cerr << "inspect: " << failure.what() << '\n';
        return badInput;
    }
}
