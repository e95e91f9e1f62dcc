// Measures validations by GnuTLS over the number of roots.
//
//     foundation_benchmarks_gnutls FOLDER ROOTS...
//
// The folder holds chain.pem, the leaf and its intermediates, and roots.pem. For each number the program
// trusts that many of the first roots. It prints its name, and for each number the seconds of processor time
// per validation.

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

#include <algorithm>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int repetitions = 9;
constexpr double secondsPerRepetition = 0.05;

void require(int result)
{
    if (result < 0) {
        throw std::runtime_error(gnutls_strerror(result));
    }
}

double processorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

class Certificates
{
public:
    explicit Certificates(std::string const& path)
    {
        std::ifstream file(path, std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        std::string text = content.str();
        gnutls_datum_t const bytes{
            reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
        require(gnutls_x509_crt_list_import2(&list, &count, &bytes, GNUTLS_X509_FMT_PEM, 0));
    }
    ~Certificates()
    {
        for (unsigned index = 0; index < count; ++index) {
            gnutls_x509_crt_deinit(list[index]);
        }
        gnutls_free(list);
    }
    Certificates(Certificates const&) = delete;
    Certificates& operator=(Certificates const&) = delete;

    gnutls_x509_crt_t* get() const { return list; }
    unsigned size() const { return count; }

private:
    gnutls_x509_crt_t* list = nullptr;
    unsigned count = 0;
};

/// A list that shares the certificates of its caller.
class TrustList
{
public:
    TrustList(Certificates const& roots, unsigned count)
    {
        require(gnutls_x509_trust_list_init(&list, count));
        require(gnutls_x509_trust_list_add_cas(list, roots.get(), std::min(count, roots.size()), 0));
    }
    ~TrustList() { gnutls_x509_trust_list_deinit(list, 0); }
    TrustList(TrustList const&) = delete;
    TrustList& operator=(TrustList const&) = delete;

    void validate(Certificates const& chain) const
    {
        unsigned status = 0;
        require(gnutls_x509_trust_list_verify_crt(list, chain.get(), chain.size(), 0, &status, nullptr));
        if (status != 0) {
            throw std::runtime_error("the chain is not valid: " + std::to_string(status));
        }
    }

private:
    gnutls_x509_trust_list_t list = nullptr;
};

/// Returns the seconds per validation over about the given time.
double measureOnce(TrustList const& trusted, Certificates const& chain, double longEnough)
{
    double const start = processorTime();
    double now = start;
    int validations = 0;
    while (now - start < longEnough) {
        trusted.validate(chain);
        ++validations;
        now = processorTime();
    }
    return (now - start) / validations;
}

double median(TrustList const& trusted, Certificates const& chain)
{
    measureOnce(trusted, chain, secondsPerRepetition); // fills the caches
    std::vector<double> times;
    for (int repetition = 0; repetition < repetitions; ++repetition) {
        times.push_back(measureOnce(trusted, chain, secondsPerRepetition));
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    try {
        std::string const folder = argc > 1 ? argv[1] : ".";
        Certificates const chain(folder + "/chain.pem");
        Certificates const roots(folder + "/roots.pem");
        std::cout << "GnuTLS " << gnutls_check_version(nullptr) << '\n';
        for (int index = 2; index < argc; ++index) {
            auto const count = static_cast<unsigned>(std::stoul(argv[index]));
            std::cout << count << ' ' << median(TrustList(roots, count), chain) << '\n';
        }
    } catch (std::exception const& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
