// validate_all [FILE]: validates every certificate of a bundle against the operating system's roots, and
// lists those that are not valid. Without a FILE it validates the roots themselves.
#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <cstddef>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

using namespace foundation::certificates;

namespace {

constexpr char const usageText[] = R"(Usage: validate_all [FILE] [--help]
Validates every certificate of FILE, a bundle in PEM, against the operating system's roots. Without a FILE it
validates these roots. Lists the certificates that are not valid or that the library refuses.

Exit status: 0 if all accepted certificates are valid, 1 if one is not, 2 for any failure.
)";

/// Shows the progress on a terminal. Writes nothing to a pipe or a file.
class Progress
{
public:
    explicit Progress(std::size_t total) : total_(total) {}
    ~Progress() { show("\r\033[K"); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void advance()
    {
        ++done_;
        show("\rValidated " + std::to_string(done_) + " of " + std::to_string(total_));
    }

private:
    static bool isWatched()
    {
#ifdef _WIN32
        return _isatty(2) != 0;
#else
        return isatty(STDERR_FILENO) != 0;
#endif
    }

    void show(std::string const& text) const
    {
        if (watched_) {
            std::cerr << text << std::flush;
        }
    }

    std::size_t const total_;
    std::size_t done_ = 0;
    bool const watched_ = isWatched();
};

struct Tally
{
    unsigned valid = 0;
    unsigned notValid = 0;
    unsigned refused = 0;
    std::string remarks;
};

void validate(std::string const& pem, Tally& tally)
{
    try {
        X509Certificate const certificate(pem);
        // No intermediates and no tolerances. An empty trust store means the operating system's roots.
        auto const results = certificate.validateCertificate(
            X509CertificateChain(), CertificateValidationOptions(), TrustStore());
        if (results.getCertificateChainStatus() == CertificateChainStatus::Valid) {
            ++tally.valid;
            return;
        }
        ++tally.notValid;
        tally.remarks += "Not valid: " + certificate.getSubjectName() + '\n';
    } catch (CertificateException const& refusal) {
        ++tally.refused;
        tally.remarks += std::string("Refused: ") + refusal.what() + '\n';
    }
}

std::vector<std::string> certificatesIn(std::string const& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string const content{std::istreambuf_iterator<char>(file), {}};
    std::string const begin = "-----BEGIN CERTIFICATE-----";
    std::vector<std::string> certificates;
    for (auto start = content.find(begin); start != std::string::npos;) {
        auto const next = content.find(begin, start + begin.size());
        certificates.push_back(content.substr(start, next - start));
        start = next;
    }
    if (certificates.empty()) {
        throw std::runtime_error(path + ": contains no certificate in PEM");
    }
    return certificates;
}

std::string systemFile()
{
    auto path = getSystemCertificatesFile();
    if (path.empty()) {
        throw std::runtime_error("this system does not keep its roots in one file, so name a file");
    }
    return path;
}

int run(std::string const& path)
{
    auto const certificates = certificatesIn(path);
    Tally tally;
    {
        Progress progress(certificates.size());
        for (auto const& certificate : certificates) {
            validate(certificate, tally);
            progress.advance();
        }
    }
    std::cout << tally.remarks << "Certificates: " << tally.valid << " valid, " << tally.notValid
              << " not valid, " << tally.refused << " refused\n";
    return tally.notValid == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> const words(argv + 1, argv + argc);
    if (words.size() == 1 && words.front() == "--help") {
        std::cout << usageText;
        return 0;
    }
    if (words.size() > 1 || (words.size() == 1 && words.front().compare(0, 1, "-") == 0)) {
        std::cerr << "validate_all: at most one file, try --help\n";
        return 2;
    }
    try {
        return run(words.empty() ? systemFile() : words.front());
    } catch (std::exception const& error) {
        std::cerr << "validate_all: " << error.what() << '\n';
        return 2;
    }
}
