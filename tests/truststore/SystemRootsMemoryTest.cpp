#include "truststore/DefaultSystemCertificateAdder.hpp"
#include "truststore/posix/SystemCertificateAdder.hpp"

#include "support/allocation/Shortage.hpp"
#include "support/assertions/Failures.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>

#include <sys/wait.h>
#include <unistd.h>

// A process reads the operating system's roots once, in the first validation that needs them. Memory may run
// out during that validation, so each run is a process of its own.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

void withCheapKey(CertificateSpec& spec)
{
    spec.key = ed25519Key(spec.subject.front().value);
}

/// The operating system's roots: two in one file.
struct SystemRoots
{
    CertificateAndKey const root = makeRoot("root", withCheapKey);
    TemporaryFolder folder;
    std::string const file = folder.write("roots.pem", makeRoot("other", withCheapKey).pem() + root.pem());
};

SystemRoots const& systemRoots()
{
    static SystemRoots const made;
    return made;
}

using Status = CertificateChainStatus;

/// Returns the verdict under the system's roots, which replace an empty trust store.
Status verdictOn(X509Certificate const& leaf, TrustStore const& empty)
{
    return leaf.validateCertificate({}, {}, empty).getCertificateChainStatus();
}

/// Whether a validation that runs out of memory may throw this exception.
bool isListed(std::exception const& thrown)
{
    auto const failures = validationUnfinished() +
                          Failures{
                              failure<std::bad_alloc>(std::bad_alloc().what()),
                              failure<X509CertificateException>("Internal error:Failed to create X509_STORE"),
                          };
    return std::any_of(failures.begin(), failures.end(), [&](Failure const& listed) {
        return listed.fits(typeid(thrown), thrown.what());
    });
}

enum ExitStatus
{
    Acceptable,
    /// Also, the validation makes fewer allocations than that.
    AcceptableAndTheLast,
    Unacceptable
};

ExitStatus complain(std::size_t allocation, std::string const& about)
{
    std::cerr << "without allocation " << allocation << ": " << about << "\n";
    return Unacceptable;
}

/// Runs in a process that has not read the system's roots yet. The first validation runs out of memory and
/// may fail. The second one has memory and must succeed: the first one lost no root.
ExitStatus validateTwice(X509Certificate const& leaf, Memory memory, std::size_t allocation)
{
    TrustStore const empty;
    try {
        Shortage const shortage(memory, allocation);
        verdictOn(leaf, empty);
    } catch (std::exception const& thrown) {
        if (!isListed(thrown)) {
            return complain(allocation, describe(typeid(thrown), thrown.what()));
        }
    }
    bool const isShort = Shortage::hasOccurred();
    auto const verdict = verdictOn(leaf, empty);
    if (verdict != Status::Valid) {
        return complain(allocation, "status " + std::to_string(static_cast<int>(verdict)) + " afterwards");
    }
    return isShort ? Acceptable : AcceptableAndTheLast;
}

template <class Work>
int exitStatusOfChild(Work const& work)
{
    auto const child = fork();
    if (child == 0) {
        _exit(work());
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void expectEveryRootAfterAShortage(Memory memory, std::size_t stride)
{
    LogCapture const log(LogCapture::everySeverity); // captures the log, so that the test prints none of it
    auto const leaf = load(makeLeaf(systemRoots().root, "leaf", withCheapKey));
    // OpenSSL makes its permanent allocations here, before the first child starts.
    EXPECT_EQ(verdictOn(leaf, storeOf({systemRoots().root})), Status::Valid);

    int status = Acceptable;
    std::size_t allocation = 0;
    for (; status == Acceptable; allocation += stride) {
        status = exitStatusOfChild([&] { return validateTwice(leaf, memory, allocation); });
    }
    EXPECT_EQ(status, static_cast<int>(AcceptableAndTheLast));
    EXPECT_GT(allocation, stride);
    testing::Test::RecordProperty("allocations", static_cast<int>(allocation));
}

} // namespace

// Replace the library's functions, so that the operating system's roots are the same everywhere.
namespace foundation::certificates {

std::unique_ptr<ISystemCertificateAdder> makeDefaultSystemCertificateAdder()
{
    using Locations = posix::SystemCertificateLocations;
    return std::make_unique<posix::SystemCertificateAdder>(Locations{{systemRoots().file}, {}});
}

std::string getSystemCertificatesFile()
{
    return systemRoots().file;
}

std::string getSystemCertificatesFolder()
{
    return {};
}

} // namespace foundation::certificates

TEST(SystemRoots, SurviveShortageOfOpenSSLMemory)
{
    // A process for each of the 14000 allocations would take a minute.
    expectEveryRootAfterAShortage(Memory::OpenSSL, 97);
}

TEST(SystemRoots, SurviveShortageOfHeap)
{
    expectEveryRootAfterAShortage(Memory::Heap, 1);
}
