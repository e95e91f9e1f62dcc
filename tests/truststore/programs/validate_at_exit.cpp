// validate_at_exit LEAF WHEN...: validates a certificate against the system's roots at each of the given
// times, and prints the time and the number of the verdict.

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/crypto.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace foundation::certificates;

namespace {

void printVerdict(char const* when, X509Certificate const& leaf)
{
    try {
        auto const results = leaf.validateCertificate({}, {}, TrustStore());
        std::printf("%s %d\n", when, static_cast<int>(results.getCertificateChainStatus()));
    } catch (std::exception const& failure) {
        std::printf("%s %s\n", when, failure.what());
    }
    std::fflush(stdout);
}

/// Its object is made before main begins, and destroyed after everything that main has made.
class AtExit
{
public:
    // OpenSSL must outlive the object, so it is initialized first.
    AtExit() { OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr); }

    ~AtExit()
    {
        hasMainReturned = true;
        if (thread.joinable()) {
            thread.join();
        }
        if (leafOfDestructor != nullptr) {
            printVerdict("destructor", *leafOfDestructor);
        }
    }

    AtExit(AtExit const&) = delete;
    AtExit& operator=(AtExit const&) = delete;

    void validateInDestructor(X509Certificate const& leaf)
    {
        leafOfDestructor = std::make_unique<X509Certificate>(leaf);
    }

    void validateInThread(X509Certificate const& leaf)
    {
        thread = std::thread([this, leaf] {
            while (!hasMainReturned) {
                std::this_thread::yield();
            }
            printVerdict("thread", leaf);
        });
    }

private:
    std::unique_ptr<X509Certificate> leafOfDestructor;
    std::atomic<bool> hasMainReturned = false;
    std::thread thread;
};

AtExit atExit;

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> const arguments(argv + 1, argv + argc);
    std::ifstream file(arguments.at(0));
    X509Certificate const leaf(std::string(std::istreambuf_iterator<char>(file), {}));
    auto const isAsked = [&](char const* when) {
        return std::find(arguments.begin() + 1, arguments.end(), when) != arguments.end();
    };
    if (isAsked("main")) {
        printVerdict("main", leaf);
    }
    if (isAsked("thread")) {
        atExit.validateInThread(leaf);
    }
    if (isAsked("destructor")) {
        atExit.validateInDestructor(leaf);
    }
    return 0;
}
