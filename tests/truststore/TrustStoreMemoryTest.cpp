#include "support/allocation/AllocationFailure.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/TemporaryFolder.hpp"

#include "libcrypto/OpenSSLHandles.hpp"
#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/ssl.h>

#include <memory>
#include <utility>

namespace foundation::test {

namespace {

using namespace certificates;
using namespace std::chrono_literals;

using Usage = TrustStore::Usage;

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

/// A trust store, what is to be added to it, and where it can be attached.
struct Subject
{
    TrustStore store;
    X509Certificate stranger;
    X509CertificateChain strangers;
    std::shared_ptr<SSL_CTX> context;
    std::shared_ptr<LogCapture> log;
};

std::string rendered(Subject const& subject)
{
    return test::rendered(subject.store);
}

Subject withCertificate()
{
    static auto const strangers =
        chainOf({makeRoot("first"), makeRoot("second"), makeSelfSignedLeaf("no CA")});
    static auto const store = storeOf({root()});
    static std::shared_ptr<SSL_CTX> const context(SSL_CTX_new(TLS_method()), SSL_CTX_free);
    return {store, strangers.getCertificates().front(), strangers, context, nullptr};
}

Subject withCrl()
{
    static auto const crl = makeCrl(root());
    auto subject = withCertificate();
    addCrl(subject.store, crl);
    return subject;
}

Shortcomings const noStore = failsWith(failure<TrustStoreException>("Failed to create X509_STORE"));
Shortcomings const noCopy = failsWith(
    Failures{
        failure<TrustStoreException>("Failed to create X509_STORE"),
        failure<TrustStoreException>("Failed to add CRL to store"),
        failure<TrustStoreException>("Failed to add certificate to store, CN: root")},
    3);
Shortcomings const noOpenSSLCopy{
    {failure<TrustStoreException>("Failed to add CRL to store"),
     failure<TrustStoreException>("Failed to add certificate to store, CN: root")},
    [](std::string const& answer, std::string const&) { return answer == "null"; },
    3};
Shortcomings const notAdded = failsWith(Failures{
    failure<TrustStoreException>("Failed to add certificate to store"),
    failure<X509CertificateException>("Internal error: Could not serialize the X509 certificate.")});

std::vector<OperationOn<Subject>> operations()
{
    return {
        {"construction", [](auto&) { return TrustStore(); }, noStore},
        {"construction with an adder",
         [](auto&) { return TrustStore(std::make_unique<posix::SystemCertificateAdder>()); }, noStore},
        {"empty", [](auto& s) { return s.store.empty(); }},
        {"size", [](auto& s) { return s.store.size(); }},
        {"copy", [](auto& s) { return TrustStore(s.store); }, noCopy},
        {"assignment", [](auto& s) { return assigned(s.store); }, noCopy},
        {"addCertificate",
         [](auto& s) {
             s.store.addCertificate(s.stranger);
             return true;
         },
         notAdded},
        {"addCertificates",
         [](auto& s) {
             s.store.addCertificates(s.strangers);
             return true;
         },
         withStride(7, notAdded),
         {},
         Effect::Partial},
        {"copyOpenSSLStore",
         [](auto& s) {
             auto const copy = copyOpenSSLStore(s.store);
             return std::string(copy == nullptr ? "null" : "copy");
         },
         noOpenSSLCopy},
        {"getOpenSSLStore", [](auto& s) { return getOpenSSLStore(s.store) != nullptr; }},
        {"attachTrustStoreToSSLCTX",
         [](auto& s) {
             attachTrustStoreToSSLCTX(s.store, s.context.get());
             return SSL_CTX_get_cert_store(s.context.get()) == getOpenSSLStore(s.store).get();
         }},
    };
}

std::vector<OperationOn<Subject>> outputs()
{
    return {
        {"getCertificates", [](auto& s) { return s.store.getCertificates(); },
         failsWith(certificateUntaken(), 3)},
        {"getPEMStrings", [](auto& s) { return s.store.getPEMStrings(); },
         failsWith(failure<TrustStoreException>("Failed to convert X509 to PEM"))},
    };
}

CertificateAndKey expiredRoot()
{
    return makeRoot("expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); });
}

/// Fit for neither usage: what it may do is agree on keys.
CertificateAndKey unfitRoot()
{
    return makeRoot("unfit", [](CertificateSpec& spec) {
        spec.setExtension("keyUsage", "critical,keyAgreement");
        spec.setExtension("extendedKeyUsage", "codeSigning,serverAuth");
    });
}

/// What an operating system has, as one file and as a folder of files.
struct SystemRoots
{
    TemporaryFolder folder;
    std::string const certificates = makeRoot("system root").pem() + expiredRoot().pem() + unfitRoot().pem();
    std::string const damage = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";
    std::string const soundFile = folder.write("sound.pem", certificates);
    TemporaryFolder mixed;
    std::string const mixedFile = mixed.write("mixed.pem", certificates + damage);
};

SystemRoots const& systemRoots()
{
    static SystemRoots const made;
    return made;
}

/// With a sink of the test's own for what is logged, so that nothing of it is printed.
Subject withSystem(posix::SystemCertificateLocations locations)
{
    static auto const log = std::make_shared<LogCapture>(LogCapture::everySeverity);
    static auto const certificate = load(root());
    auto subject = withCertificate();
    subject.store = TrustStore(std::make_unique<posix::SystemCertificateAdder>(std::move(locations)));
    subject.store.addCertificate(certificate);
    subject.log = log;
    return subject;
}

std::function<std::string(Subject&)> adding(Usage usage, bool rethrowOnFailure)
{
    return [=](Subject& s) {
        s.store.addSystemCertificates(usage, rethrowOnFailure);
        return std::string();
    };
}

/// A file holds several certificates, which are read in ever the same steps.
constexpr std::size_t systemStride = 61;

/// Where failures are not rethrown, a certificate that cannot be had is left out.
std::vector<OperationOn<Subject>> tolerantAdditions()
{
    Shortcomings const unread = failsWith(
        {failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions.")},
        systemStride);
    return {
        {"for signing", adding(Usage::Signing, false), unread, {}, Effect::Partial},
        {"for servers",
         adding(Usage::ServerAuthentication, false),
         withStride(systemStride),
         {},
         Effect::Partial},
    };
}

std::vector<OperationOn<Subject>> strictAdditions()
{
    Failure const damaged = failureBeginning<TrustStoreException>("Unusable PEM block in ");
    Failure const unparsed =
        failureBeginning<TrustStoreException>("Failed to parse DER data to X509 certificate.");
    Failure const refused = failure<TrustStoreException>("Failed to add certificate to store");
    Failure const unread =
        failure<X509CertificateException>("Internal error: Unable to read the certificate's extensions.");
    return {
        {"for signing",
         adding(Usage::Signing, true),
         failsWith({damaged, unparsed, refused, unread}, systemStride),
         {},
         Effect::Partial},
        {"for servers",
         adding(Usage::ServerAuthentication, true),
         failsWith({damaged, unparsed, refused}, systemStride),
         {},
         Effect::Partial},
    };
}

FOUNDATION_TEST_WITHOUT_MEMORY(Operations, operationsOn<Subject>("", withCrl, operations()));
FOUNDATION_TEST_WITHOUT_MEMORY(Outputs, operationsOn<Subject>("", withCertificate, outputs()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    SystemFileWithDamage, operationsOn<Subject>(
                              "",
                              [] {
                                  return withSystem({{systemRoots().mixedFile}, {}});
                              },
                              tolerantAdditions()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    SystemFolderWithDamage, operationsOn<Subject>(
                                "",
                                [] {
                                    return withSystem({{}, {systemRoots().mixed.path().string()}});
                                },
                                tolerantAdditions()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    SoundSystemFile, operationsOn<Subject>(
                         "",
                         [] {
                             return withSystem({{systemRoots().soundFile}, {}});
                         },
                         strictAdditions()));

} // namespace

} // namespace foundation::test
