#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <algorithm>
#include <iostream>
#include <optional>

#ifdef __linux__
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>
#endif

using namespace foundation::certificates;
using namespace foundation::test;
namespace fs = std::filesystem;

namespace {

/// The certificates in a text of PEM blocks, as OpenSSL reads them.
std::vector<X509Handle> certificatesIn(std::string const& text)
{
    auto const infos = std::shared_ptr<STACK_OF(X509_INFO)>(
        PEM_X509_INFO_read_bio(readerOf(Bytes(text.begin(), text.end())).get(), nullptr, nullptr, nullptr),
        [](STACK_OF(X509_INFO) * stack) { sk_X509_INFO_pop_free(stack, X509_INFO_free); });
    std::vector<X509Handle> certificates;
    for (int index = 0; index < sk_X509_INFO_num(infos.get()); ++index) {
        if (auto* const certificate = sk_X509_INFO_value(infos.get(), index)->x509) {
            certificates.push_back(share(certificate));
        }
    }
    return certificates;
}

std::vector<X509Handle> rootsOfTheSystem()
{
    if (auto const file = getSystemCertificatesFile(); !file.empty()) {
        return certificatesIn(contentOfFile(file));
    }
    std::vector<X509Handle> roots;
    if (auto const folder = getSystemCertificatesFolder(); !folder.empty()) {
        for (auto const& entry : fs::directory_iterator(folder)) {
            auto const found = certificatesIn(contentOfFile(entry.path()));
            roots.insert(roots.end(), found.begin(), found.end());
        }
    }
    return roots;
}

/// Returns the trust store that replaces an empty one.
TrustStore storeOfSystemRoots()
{
    TrustStore store;
    store.addSystemCertificates(TrustStore::Usage::Signing, false);
    store.addSystemCertificates(TrustStore::Usage::ServerAuthentication, false);
    return store;
}

/// Nothing if the certificate's key is refused.
std::optional<X509Certificate> tryToLoad(X509Handle const& certificate)
{
    try {
        return X509Certificate(toDer(certificate));
    } catch (CertificateException const&) {
        return std::nullopt;
    }
}

#ifdef __linux__

/// Within its scope the file system is an empty folder, so that the operating system has no roots.
class NoFileSystem
{
public:
    NoFileSystem()
    {
        auto const allowed = enter() || (unshare(CLONE_NEWUSER) == 0 && enter());
        if (!allowed) {
            close(outside);
            outside = -1;
        }
    }

    ~NoFileSystem()
    {
        if (outside >= 0 && (fchdir(outside) != 0 || chroot(".") != 0)) {
            std::cerr << "Cannot return to the file system.\n";
            std::abort();
        }
        close(outside);
    }

    NoFileSystem(NoFileSystem const&) = delete;
    NoFileSystem& operator=(NoFileSystem const&) = delete;

    bool isInForce() const { return outside >= 0; }

private:
    bool enter() const { return chroot(folder.path().c_str()) == 0; }

    TemporaryFolder const folder;
    int outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
};

#endif

} // namespace

#ifdef __linux__
// A process reads the system's roots once and keeps them. Another test may have read them before, so this
// test runs in a process of its own.
TEST(SystemRootsUnreadableDeathTest, NextCallTriesAgain)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            ScopedVariable const noFile("SSL_CERT_FILE", "");
            ScopedVariable const noFolder("SSL_CERT_DIR", "");
            auto const leaf = load(makeSelfSignedLeaf("leaf"));
            auto const validate = [&] {
                return leaf.validateCertificate(X509CertificateChain(), Options(), TrustStore());
            };
            std::string cause = "none";
            {
                NoFileSystem const hidden;
                if (!hidden.isInForce()) {
                    std::cerr << "left out: the system does not allow a change of the root folder\n";
                    std::_Exit(0);
                }
                try {
                    TrustStore().addSystemCertificates(TrustStore::Usage::Signing, false);
                } catch (TrustStoreException const& failure) {
                    cause = failure.what();
                }
                EXPECT_THROWS_EXACTLY(X509CertificateException, "Internal error:" + cause, validate());
                EXPECT_THROWS_EXACTLY(X509CertificateException, "Internal error:" + cause, validate());
            }
            EXPECT_EQ(cause.rfind("Failed to open system certificate store: ", 0), std::string::size_type(0));
            if (!rootsOfTheSystem().empty()) {
                EXPECT_EQ(validate().getCertificateChainStatus(), Status::SelfSigned);
            }
            std::_Exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}
#endif

TEST(SystemRootsValidation, AgreesWithOpenSslOnEachRoot)
{
    auto const systemRoots = storeOfSystemRoots();
    ReferenceVerifier verifier;
    for (auto const& pem : systemRoots.getPEMStrings()) {
        verifier.trusted.push_back(certificatesIn(pem).at(0));
    }
    int numValid = 0;
    auto const candidates = rootsOfTheSystem();
    for (auto const& candidate : candidates) {
        auto const certificate = tryToLoad(candidate);
        if (!certificate) {
            continue;
        }
        SCOPED_TRACE(certificate->getSubjectName());
        verifier.leaf = candidate;
        verifier.untrusted = {candidate};
        auto const expected = verifier.verify();

        auto const results =
            certificate->validateCertificate(X509CertificateChain(), Options(), TrustStore());

        expectSame(results, expected);
        numValid += expected.result == 1 ? 1 : 0;
    }
    std::cout << numValid << " of " << candidates.size() << " system certificates are valid\n";
    EXPECT_EQ(numValid > 0, !candidates.empty());
}

TEST(SystemRootsValidation, RootLookupUsesSystemRoots)
{
    for (auto const& pem : storeOfSystemRoots().getPEMStrings()) {
        auto const certificate = tryToLoad(certificatesIn(pem).at(0));
        if (certificate && certificate->isSelfSigned() &&
            certificate->validateCertificate(X509CertificateChain(), Options(), TrustStore())
                    .getCertificateChainStatus() == Status::Valid) {
            EXPECT_EQ(certificate->getRootCACertificate(X509CertificateChain(), TrustStore()), *certificate);
            return;
        }
    }
}

TEST(SystemRootsValidation, EmptyFallbackStoreMeansSystemRoots)
{
    auto const fallback = std::make_shared<TrustStore>();
    auto const options = optionsWith({}, Options::CheckCRL::None, Options::DownloadCRL::None, fallback);
    auto const other = storeOf({makeRoot("other")});
    auto candidates = rootsOfTheSystem();
    candidates.resize(std::min<std::size_t>(candidates.size(), 10));
    for (auto const& candidate : candidates) {
        auto const certificate = tryToLoad(candidate);
        if (!certificate) {
            continue;
        }
        auto const first = certificate->validateCertificate(X509CertificateChain(), Options(), TrustStore());
        auto const second = certificate->validateCertificate(X509CertificateChain(), options, other);
        EXPECT_EQ(second.getCertificateChainStatus(), first.getCertificateChainStatus());
        EXPECT_EQ(second.getValidationErrorString(), first.getValidationErrorString());
    }
}
