// inspect FILE...: prints what every certificate of PEM files says about itself, and why one is refused.
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

using foundation::certificates::CertificateException;
using foundation::certificates::X509Certificate;

namespace {

struct Count
{
    int printed = 0;
    int refused = 0;
};

void printCertificate(std::string const& pem, Count& count)
{
    try {
        std::cout << X509Certificate(pem);
        ++count.printed;
    } catch (CertificateException const& error) {
        std::cout << "Refused: " << error.what() << "\n\n";
        ++count.refused;
    }
}

// A certificate loads the first PEM block of its input, so each block is handed over on its own.
Count printCertificates(std::istream& file)
{
    std::string const end = "-----END CERTIFICATE-----";
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    Count count;
    std::string::size_type start = 0;
    for (auto found = text.find(end); found != std::string::npos; found = text.find(end, start)) {
        auto const next = found + end.size();
        printCertificate(text.substr(start, next - start), count);
        start = next;
    }
    return count;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        if (!file) {
            std::cerr << argv[i] << ": cannot be read\n";
            return 1;
        }
        Count const count = printCertificates(file);
        std::cout << argv[i] << ": " << count.printed << " certificates, " << count.refused << " refused\n";
    }
}
