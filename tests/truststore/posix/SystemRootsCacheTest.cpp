#include "support/assertions/ExactThrow.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/system/posix/FailingFileAccess.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/err.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Status = CertificateChainStatus;

/// Two hierarchies. The first root is the system's, until a test changes that.
struct SystemRootsCache : testing::Test
{
    CertificateAndKey const firstRoot = makeRoot("first root");
    CertificateAndKey const secondRoot = makeRoot("second root");
    CertificateAndKey const firstSigner = makeLeaf(firstRoot, "first signer");
    CertificateAndKey const secondSigner = makeLeaf(secondRoot, "second signer");
    TemporaryFolder const folder;
    std::string const firstFile = folder.write("first.pem", firstRoot.pem()).string();
    std::string const secondFile = folder.write("second.pem", secondRoot.pem()).string();
    ScopedVariable const namedFile = ScopedVariable("SSL_CERT_FILE", firstFile);
    ScopedVariable const noFolder = ScopedVariable("SSL_CERT_DIR", "");

    Status verdictOn(CertificateAndKey const& leaf) const
    {
        return load(leaf).validateCertificate({}, {}, TrustStore()).getCertificateChainStatus();
    }

    void expectUnreadable() const
    {
        EXPECT_THROWS_EXACTLY(
            X509CertificateException, "Internal error:Failed to read " + firstFile, verdictOn(firstSigner));
    }
};

/// Runs the test's body in a process of its own, which has no roots in its cache yet.
template <class Body>
void inFreshProcess(Body const& body)
{
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "The child process reports the failures above.";
}

PKCS7CertificateValidationResults
verify(CertificateAndKey const& signer, X509CertificateChain const& intermediates = {})
{
    ERR_clear_error();
    PKCS7Certificate const signedData(toDer(makeSignedData("content", signer)));
    return signedData.verifySignature(intermediates, TrustStore(), ByteArray());
}

} // namespace

TEST_F(SystemRootsCache, FailureToOpenTheBundleIsNotCached)
{
    for (int const error : {EMFILE, ENFILE, ENOMEM, EIO}) {
        inFreshProcess([&] {
            {
                FailingFileAccess const failing(FileAccess::OpenFile, firstFile, error);
                expectUnreadable();
                expectUnreadable();
            }
            EXPECT_EQ(verdictOn(firstSigner), Status::Valid);
        });
    }
}

TEST_F(SystemRootsCache, LackOfDescriptorsIsNotCached)
{
    inFreshProcess([&] {
        {
            // UndefinedBehaviorSanitizer needs descriptors for the first check of each type. This failure
            // takes the same path.
            FailingFileAccess const failing(FileAccess::OpenFile, firstFile, EIO);
            expectUnreadable();
        }
        {
            NoFreeDescriptor const none;
            expectUnreadable();
        }
        EXPECT_EQ(verdictOn(firstSigner), Status::Valid);
    });
}

TEST_F(SystemRootsCache, ValidationKeepsTheRootsOfItsFirstUse)
{
    inFreshProcess([&] {
        EXPECT_EQ(verdictOn(firstSigner), Status::Valid);
        ScopedVariable const otherFile("SSL_CERT_FILE", secondFile);
        EXPECT_EQ(verdictOn(firstSigner), Status::Valid);
        EXPECT_EQ(verdictOn(secondSigner), Status::Untrusted);
    });
}

TEST_F(SystemRootsCache, VerifySignatureReadsTheRootsEachTime)
{
    inFreshProcess([&] {
        EXPECT_EQ(verify(firstSigner).getCertificateChainStatus(), Status::Valid);
        ScopedVariable const otherFile("SSL_CERT_FILE", secondFile);
        auto const results = verify(secondSigner);
        EXPECT_TRUE(results.getSignatureVerificationStatus());
        EXPECT_EQ(results.getCertificateChainStatus(), Status::Valid);
        EXPECT_EQ(results.getValidationErrorString(), "");
    });
}

TEST_F(SystemRootsCache, VerifySignatureIgnoresUnreadableRoots)
{
    inFreshProcess([&] {
        FailingFileAccess const failing(FileAccess::OpenFile, firstFile, EMFILE);
        auto const results = verify(firstSigner, chainOf({firstRoot}));
        EXPECT_TRUE(results.getSignatureVerificationStatus());
        EXPECT_EQ(results.getCertificateChainStatus(), Status::Valid);
        EXPECT_EQ(results.getValidationErrorString(), "");
    });
}

TEST_F(SystemRootsCache, RootOfServersIsTrustedAndRootOfSignersIsNot)
{
    auto const limitedTo = [](char const* usage) {
        return [=](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", usage); };
    };
    auto const forServers = makeRoot("for servers", limitedTo("serverAuth"));
    auto const forSigners = makeRoot("for signers", limitedTo("codeSigning"));
    folder.write("first.pem", forSigners.pem() + forServers.pem());
    inFreshProcess([&] {
        EXPECT_EQ(verdictOn(makeLeaf(forServers, "of servers")), Status::Valid);
        // The second of two filters, which is the one for servers, removes it.
        EXPECT_EQ(verdictOn(makeLeaf(forSigners, "of signers")), Status::Untrusted);
    });
}
