#include "support/allocation/AllocationFailure.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/StoreHistory.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/TemporaryFolder.hpp"

#include "libcrypto/OpenSSLHandles.hpp"
#include "truststore/posix/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

using foundation::test::rendered; // the functions of this name below would hide it

using Usage = TrustStore::Usage;

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

/// A trust store, and the log of what is added to it.
struct Subject
{
    TrustStore store;
    std::shared_ptr<LogCapture> log;
};

std::string rendered(Subject const& subject)
{
    return rendered(subject.store);
}

AllowedOutcomes const noStore = failsWith(failure<TrustStoreException>("Failed to create X509_STORE"));

std::vector<OperationOn<Unchanging>> constructions()
{
    return {
        {"construction", [](auto&) { return TrustStore(); }, noStore},
        {"construction with an adder",
         [](auto&) { return TrustStore(std::make_unique<posix::SystemCertificateAdder>()); }, noStore},
    };
}

/// A trust store, and what its history needs.
struct StoreWithHistory
{
    TrustStore store;
    std::shared_ptr<void> kept;
};

std::string rendered(StoreWithHistory const& subject)
{
    return rendered(subject.store);
}

/// Only one history is swept as densely as the table says.
AllowedOutcomes stridesAfter(StoreHistory history, AllowedOutcomes const& outcomes)
{
    constexpr std::size_t factor = 13;
    return history == StoreHistory::HoldsCRL ? outcomes : withStride(outcomes.stride * factor, outcomes);
}

/// Returns the rows of the table of public operations on stores with the history.
std::vector<SweptOperation> operationsAfter(StoreHistory history)
{
    static auto const anchor = load(root());
    std::vector<SweptOperation> swept;
    for (auto const& operation : storeOperations()) {
        if (operation.isCostly) {
            continue;
        }
        auto const begin = [history, makeCall = operation.makeCall]() -> Trial {
            auto const subject = std::make_shared<StoreWithHistory>();
            subject->store.addCertificate(anchor);
            subject->kept = undergo(subject->store, history);
            std::shared_ptr<Call<TrustStore>> const call = makeCall();
            return {
                [=] { call->run(subject->store, sharedObjects()); }, [=] { return call->answer(); },
                [=] { return rendered(*subject); }};
        };
        swept.push_back(
            {operation.name, begin, stridesAfter(history, operation.openSSL),
             stridesAfter(history, operation.heap), operation.effect});
    }
    return swept;
}

CertificateAndKey expiredRoot()
{
    return makeRoot("expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); });
}

/// A root that is unsuitable for both usages: it may only agree on keys.
CertificateAndKey unfitRoot()
{
    return makeRoot("unfit", [](CertificateSpec& spec) {
        spec.setExtension("keyUsage", "critical,keyAgreement");
        spec.setExtension("extendedKeyUsage", "codeSigning,serverAuth");
    });
}

/// An operating system's roots, as one file and as a folder of files.
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

/// The subject captures the log, so that the test prints none of it.
Subject withSystem(posix::SystemCertificateLocations locations)
{
    static auto const log = std::make_shared<LogCapture>(LogCapture::everySeverity);
    static auto const certificate = load(root());
    Subject subject{TrustStore(std::make_unique<posix::SystemCertificateAdder>(std::move(locations))), log};
    subject.store.addCertificate(certificate);
    return subject;
}

enum class OnFailure
{
    Skip,
    Rethrow
};

std::function<std::string(Subject&)> adding(Usage usage, OnFailure onFailure)
{
    return [=](Subject& s) {
        s.store.addSystemCertificates(usage, onFailure == OnFailure::Rethrow);
        return std::string();
    };
}

/// A file holds several certificates, and the same steps read each of them.
constexpr std::size_t systemStride = 61;

/// Lack of memory is never reported as damage of a certificate.
AllowedOutcomes systemUnread()
{
    return failsWith(
        Failures{
            failure<std::bad_alloc>(std::bad_alloc().what()),
            failure<X509CertificateException>(
                "Internal error: Unable to read the certificate's extensions.")},
        systemStride);
}

std::vector<OperationOn<Subject>> additions(OnFailure onFailure)
{
    auto const openSSL = systemUnread();
    AllowedOutcomes const heap;
    return {
        {"for signing", adding(Usage::Signing, onFailure), openSSL, heap, Effect::Partial},
        {"for servers", adding(Usage::ServerAuthentication, onFailure), openSSL, heap, Effect::Partial},
    };
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(Private, operationsAfter(StoreHistory::Private));
FOUNDATION_TEST_ALLOCATION_FAILURE(Copied, operationsAfter(StoreHistory::Copied));
FOUNDATION_TEST_ALLOCATION_FAILURE(HandedOut, operationsAfter(StoreHistory::HandedOut));
FOUNDATION_TEST_ALLOCATION_FAILURE(ChangedOutside, operationsAfter(StoreHistory::ChangedOutside));
FOUNDATION_TEST_ALLOCATION_FAILURE(HoldsCRL, operationsAfter(StoreHistory::HoldsCRL));
FOUNDATION_TEST_ALLOCATION_FAILURE(CopyOfHandedOut, operationsAfter(StoreHistory::CopyOfHandedOut));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Constructions, operationsOn<Unchanging>(
                       "", [] { return Unchanging(); }, constructions()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    SystemFileWithDamage, operationsOn<Subject>(
                              "",
                              [] {
                                  return withSystem({{systemRoots().mixedFile}, {}});
                              },
                              additions(OnFailure::Skip)));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    SystemFolderWithDamage, operationsOn<Subject>(
                                "",
                                [] {
                                    return withSystem({{}, {systemRoots().mixed.path().string()}});
                                },
                                additions(OnFailure::Skip)));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    SoundSystemFile, operationsOn<Subject>(
                         "",
                         [] {
                             return withSystem({{systemRoots().soundFile}, {}});
                         },
                         additions(OnFailure::Rethrow)));

TEST(TrustStoreOutOfMemory, ErrorQueueIsUnchanged)
{
    struct Row
    {
        std::string name;
        std::function<void(TrustStore&)> run;
    };
    auto const certificate = load(root());
    auto const other = load(expiredRoot());
    X509CertificateChain chain;
    chain.addCertificate(certificate);
    std::vector<Row> const rows{
        {"construction", [](TrustStore&) { TrustStore const made; }},
        {"copy", [](TrustStore& store) { TrustStore const copy(store); }},
        {"addCertificate", [&](TrustStore& store) { store.addCertificate(certificate); }},
        {"addCertificates", [&](TrustStore& store) { store.addCertificates(chain); }},
        {"getCertificates", [](TrustStore& store) { store.getCertificates(); }},
        {"getPEMStrings", [](TrustStore& store) { store.getPEMStrings(); }},
        {"getOpenSSLStore", [](TrustStore& store) { getOpenSSLStore(store); }},
        {"copyOpenSSLStore", [](TrustStore& store) { copyOpenSSLStore(store); }},
    };
    std::size_t numRefused = 0;
    for (Row const& row : rows) {
        for (bool const isHandedOut : {false, true}) {
            std::size_t allocation = 0;
            do {
                TrustStore store;
                store.addCertificate(other);
                auto const live = isHandedOut ? getOpenSSLStore(store) : nullptr;
                CleanErrorQueue const clean;
                auto const foreign = queueForeignError();
                try {
                    Shortage const shortage(Memory::OpenSSL, allocation);
                    row.run(store);
                } catch (std::exception const&) {
                    // Which exception it is does not matter here.
                }
                EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign})
                    << row.name << " without allocation " << allocation;
                ++allocation;
            } while (Shortage::hasOccurred());
            numRefused += allocation - 1;
        }
    }
    EXPECT_GT(numRefused, rows.size());
}
