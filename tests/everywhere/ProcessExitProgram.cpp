/// @file
/// Uses the library after `main` has returned. `GUEST` in the environment names the class of the global
/// object that is used, and the argument says where:
///
/// - `destructor`: in the destructor of a global object
/// - `thread`: in a detached thread, while that destructor waits for it
///
/// The program ends with 0 if the answers are the same as in `main`.

#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <foundation/log/severity.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Holds one object of a class. Before main, only the constructor of the object uses the library.
class Guest
{
public:
    Guest() = default;
    Guest(Guest const&) = delete;
    Guest& operator=(Guest const&) = delete;
    virtual ~Guest() = default;

    /// Gives the object its content, in main.
    virtual void prepare() = 0;
    virtual std::string answer() = 0;
};

std::string verdict(CertificateValidationResults const& results)
{
    return std::to_string(static_cast<int>(results.getCertificateChainStatus())) +
           results.getValidationErrorString();
}

class CertificateGuest : public Guest
{
public:
    void prepare() override
    {
        auto const root = makeRoot("root");
        certificate = X509Certificate(makeLeaf(root, "leaf").der());
    }

    std::string answer() override
    {
        // Validated against the operating system's roots, which are kept for the life of the process.
        return certificate.getSHA256Fingerprint() + certificate.getSubjectName() +
               hexEncode(certificate.getPublicKeyInfo().getECCPublicPoint()) + certificate.getAsPEMString() +
               verdict(certificate.validateCertificate(
                   X509CertificateChain(), CertificateValidationOptions(), TrustStore()));
    }

private:
    X509Certificate certificate;
};

class ChainGuest : public Guest
{
public:
    void prepare() override
    {
        auto const root = makeRoot("root");
        chain = X509CertificateChain(toPemBundle({makeLeaf(root, "leaf"), root}));
    }

    std::string answer() override
    {
        auto copy = chain;
        return copy.popLeafCertificate().getSHA256Fingerprint() +
               X509CertificateChain(chain.getAsString()).getAsString();
    }

private:
    X509CertificateChain chain;
};

/// Delivers nothing, so that only the filter of the trust store runs.
class NoSystemCertificates : public ISystemCertificateAdder
{
public:
    ISystemCertificateAdder* clone() const override { return new NoSystemCertificates; }
    void addCertificatesTo(TrustStoreImpl& /*store*/, TrustStore::Usage /*usage*/, bool /*rethrow*/) override
    {}
};

class TrustStoreGuest : public Guest
{
public:
    TrustStoreGuest() : store(std::make_unique<NoSystemCertificates>()) {}

    void prepare() override { store.addCertificate(X509Certificate(makeRoot("root").der())); }

    std::string answer() override
    {
        // Writes a diagnostic record.
        store.addSystemCertificates(TrustStore::Usage::ServerAuthentication);
        return store.getPEMStrings().at(0);
    }

private:
    TrustStore store;
};

class PKCS7Guest : public Guest
{
public:
    void prepare() override
    {
        auto const root = makeRoot("root");
        signedData = PKCS7Certificate(toDer(makeSignedData("content", makeLeaf(root, "leaf"))));
    }

    std::string answer() override
    {
        return hexEncode(signedData.getSignedData()) + signedData.getAsString() +
               signedData.getSignerCerts().getAsString();
    }

private:
    PKCS7Certificate signedData;
};

class PKCS12Guest : public Guest
{
public:
    void prepare() override
    {
        der = toDer(makePkcs12(makeRoot("root"), "secret"));
        bundle = PKCS12Certificate(der, "secret");
    }

    std::string answer() override
    {
        return bundle.getCertificate().getSHA256Fingerprint() +
               PKCS12Certificate(der, "secret").getCertificate().getSHA256Fingerprint();
    }

private:
    Bytes der;
    PKCS12Certificate bundle;
};

class BuilderGuest : public Guest
{
public:
    void prepare() override
    {
        builder.withPrivateKeySize(RSAPrivateKeySize::Bits1024).withCommonName("name");
    }

    std::string answer() override { return builder.build().first.getSubjectName(); }

private:
    SelfSignedCertBuilder builder;
};

std::unique_ptr<Guest> makeGuest(std::string const& name)
{
    if (name == "X509Certificate") {
        return std::make_unique<CertificateGuest>();
    }
    if (name == "X509CertificateChain") {
        return std::make_unique<ChainGuest>();
    }
    if (name == "TrustStore") {
        return std::make_unique<TrustStoreGuest>();
    }
    if (name == "PKCS7Certificate") {
        return std::make_unique<PKCS7Guest>();
    }
    if (name == "PKCS12Certificate") {
        return std::make_unique<PKCS12Guest>();
    }
    if (name == "SelfSignedCertBuilder") {
        return std::make_unique<BuilderGuest>();
    }
    return nullptr;
}

[[noreturn]] void fail(std::string const& reason)
{
    std::fputs((reason + "\n").c_str(), stderr);
    std::_Exit(1);
}

constexpr std::uint32_t everySeverity = 63;

/// The global object.
class AtExit
{
public:
    AtExit() : guest(makeGuest(std::getenv("GUEST") == nullptr ? "" : std::getenv("GUEST"))) {}

    ~AtExit()
    {
        std::unique_lock<std::mutex> lock(mutex);
        mainHasReturned = true;
        if (useThread) {
            changed.notify_all();
            changed.wait(lock, [&] { return threadHasAnswered; });
        } else {
            expectSameAnswer();
        }
    }

    AtExit(AtExit const&) = delete;
    AtExit& operator=(AtExit const&) = delete;

    /// Called by main.
    void start(bool inThread)
    {
        if (guest == nullptr) {
            fail("no such guest");
        }
        guest->prepare();
        expected = guest->answer();
        useThread = inThread;
        if (useThread) {
            std::thread([this] { answerWhenMainHasReturned(); }).detach();
        }
    }

private:
    void answerWhenMainHasReturned()
    {
        {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return mainHasReturned; });
            expectSameAnswer();
            threadHasAnswered = true;
            changed.notify_all();
        }
        // Stays until the process ends: the end of a thread is another matter than its use of the library.
        std::this_thread::sleep_for(std::chrono::hours(1));
    }

    void expectSameAnswer()
    {
        try {
            if (guest->answer() != expected) {
                fail("another answer than in main");
            }
        } catch (std::exception const& failure) {
            fail(std::string("an exception: ") + failure.what());
        }
    }

    std::unique_ptr<Guest> guest;
    std::string expected;
    bool useThread = false;
    std::mutex mutex;
    std::condition_variable changed;
    bool mainHasReturned = false;
    bool threadHasAnswered = false;
};

// NOLINTNEXTLINE(cert-err58-cpp): the subject of the test
AtExit atExit;

} // namespace

int main(int argc, char** argv)
{
    foundation::log::set_diagnostic_severity_mask(everySeverity);
    atExit.start(argc == 2 && std::string(argv[1]) == "thread");
    return 0;
}
