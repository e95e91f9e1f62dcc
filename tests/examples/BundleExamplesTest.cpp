#include "support/Text.hpp"
#include "support/assertions/ProgramRuns.hpp"
#include "support/pki/SelfSigned.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace fs = std::filesystem;

namespace {

class BundleExample : public testing::Test
{
protected:
    std::string pathOf(std::string const& name) const { return (folder.path() / name).string(); }

    std::string write(std::string const& name, std::string const& content) const
    {
        return folder.write(name, content).string();
    }

    TemporaryFolder const folder;
};

class OpenBundleExample : public BundleExample
{
protected:
    static ProgramRun open(std::vector<std::string> const& arguments)
    {
        return runProgram(OPEN_BUNDLE_PROGRAM, arguments);
    }

    std::string bundle(Pkcs12Spec spec) const
    {
        spec.passphrase = "secret";
        return folder.write("bundle.p12", toDer(makePkcs12(spec))).string();
    }

    std::string wholeBundle() const
    {
        Pkcs12Spec spec;
        spec.certificate = leaf.certificate;
        spec.key = leaf.key;
        spec.furtherCertificates = {root.certificate};
        // Only the legacy provider can decrypt this, and the new process has not loaded it yet.
        spec.certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC;
        return bundle(spec);
    }

    std::string passphraseFile() const { return write("passphrase", "secret\nand more\n"); }

    std::string expectedOutput() const
    {
        return "Private Key: prime256v1\n\n" + streamed(X509Certificate(leaf.der())) +
               "Other Certificates: 1\n\n" + streamed(X509Certificate(root.der()));
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const leaf = makeLeaf(root, "leaf");
};

class MakeSelfSignedExample : public BundleExample
{
protected:
    static ProgramRun make(std::vector<std::string> const& arguments)
    {
        return runProgram(MAKE_SELF_SIGNED_PROGRAM, arguments);
    }

    std::size_t numFiles() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
    }

    std::string prefix() const { return pathOf("made"); }
};

KeyHandle keyFrom(std::string const& pem, char const* passphrase)
{
    ErrorQueueMark const queue;
    auto const bio = own(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return KeyHandle(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, const_cast<char*>(passphrase)), EVP_PKEY_free);
}

} // namespace

TEST_F(OpenBundleExample, PrintsCertificatesAndKindOfKey)
{
    auto const result = open({wholeBundle(), "--passphrase-file", passphraseFile()});

    expectSuccess(result, expectedOutput());
}

TEST_F(OpenBundleExample, PrintsWhatIsMissing)
{
    Pkcs12Spec keyOnly;
    keyOnly.key = ed25519Key();
    auto const withKey = open({bundle(keyOnly), "--passphrase-file", passphraseFile()});
    expectSuccess(
        withKey, "Private Key: Ed25519\n\nNo certificate matches the private key.\n\n"
                 "Other Certificates: 0\n\n");

    Pkcs12Spec certificateOnly;
    certificateOnly.certificate = leaf.certificate;
    auto const withCertificate = open({bundle(certificateOnly), "--passphrase-file", passphraseFile()});
    expectSuccess(
        withCertificate, "Private Key: none\n\nNo certificate matches the private key.\n\n"
                         "Other Certificates: 1\n\n" +
                             streamed(X509Certificate(leaf.der())));
}

TEST_F(OpenBundleExample, ReportsRefusal)
{
    auto const file = wholeBundle();
    auto const wrong = open({file, "--passphrase-file", write("wrong", "other")});
    expectFailure(
        wrong, 1, "open_bundle: " + file + ": Input passphrase is incorrect. OpenSSL error message=\n");

    auto const noBundle = open({write("text", "no bundle"), "--passphrase-file", passphraseFile()});
    EXPECT_EQ(noBundle.exitStatus, 1);
    EXPECT_TRUE(contains(noBundle.errors, "Error: Loading PKSC12 certificate failed.")) << noBundle.errors;
}

TEST_F(OpenBundleExample, RefusesWrongUsage)
{
    auto const file = wholeBundle();
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {},
             {"--unknown"},
             {file, "--passphrase-file"},
             {file, file},
             {pathOf("missing"), "--passphrase-file", passphraseFile()},
             {write("empty", ""), "--passphrase-file", passphraseFile()},
             {folder.path().string(), "--passphrase-file", passphraseFile()},
             {file, "--passphrase-file", pathOf("missing")}}) {
        expectWrongUsage(open(arguments), "open_bundle: ");
    }
}

TEST_F(OpenBundleExample, PrintsUsage)
{
    auto const result = open({"--help"});

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(beginsWith(result.output, "Usage: open_bundle FILE ")) << result.output;
}

TEST_F(MakeSelfSignedExample, WritesCertificateAndKey)
{
    auto const result = make(
        {"--name", "build.example", "--dns", "www.build.example", "--ip", "192.0.2.1", "--ip", "2001:db8::1",
         "--days", "30", "--out", prefix()});
    ASSERT_EQ(result.exitStatus, 0) << result.errors;
    X509Certificate const certificate(contentOfFile(prefix() + ".pem"));
    auto const x509 = parsed(certificate);

    expectSuccess(result, streamed(certificate) + "Wrote " + prefix() + ".pem and " + prefix() + ".key\n");
    EXPECT_EQ(certificate.getSubjectCommonName(), "build.example");
    EXPECT_EQ(lifetimeOf(x509), 30 * 86400L);
    EXPECT_EQ(
        extensionOf(x509, NID_subject_alt_name),
        extensionFrom(
            NID_subject_alt_name, "DNS:build.example,DNS:www.build.example,IP:192.0.2.1,IP:2001:db8::1"));
    EXPECT_EQ(
        X509_check_private_key(x509.get(), keyFrom(contentOfFile(prefix() + ".key"), nullptr).get()), 1);
}

TEST_F(MakeSelfSignedExample, MakesKeyReadableByOwnerOnly)
{
    make({"--name", "build.example", "--out", prefix()});

    EXPECT_EQ(fs::status(prefix() + ".key").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(MakeSelfSignedExample, EncryptsKeyWithPassphraseFromFile)
{
    auto const file = write("passphrase", "secret\r\n");
    auto const result = make({"--name", "localhost", "--out", prefix(), "--passphrase-file", file});
    ASSERT_EQ(result.exitStatus, 0) << result.errors;
    auto const key = contentOfFile(prefix() + ".key");

    EXPECT_NE(keyFrom(key, "secret"), nullptr);
    EXPECT_EQ(keyFrom(key, "other"), nullptr);
}

TEST_F(MakeSelfSignedExample, KeepsExistingFiles)
{
    for (char const* const suffix : {".pem", ".key"}) {
        auto const existing = write(std::string("made") + suffix, "precious");

        auto const result = make({"--name", "localhost", "--out", prefix()});

        expectFailure(result, 2, "make_self_signed: " + existing + ": File exists\n");
        EXPECT_EQ(contentOfFile(existing), "precious");
        EXPECT_EQ(numFiles(), 1U);
        fs::remove(existing);
    }
}

TEST_F(MakeSelfSignedExample, ReportsImpossibleCertificate)
{
    auto const tooLong = make({"--name", "localhost", "--days", "398", "--out", prefix()});
    expectFailure(
        tooLong, 1,
        "make_self_signed: Certificate validity period must be within the range of 1 and 397 days.\n");

    auto const noAddress = make({"--name", "localhost", "--ip", "nowhere", "--out", prefix()});
    EXPECT_EQ(noAddress.exitStatus, 1);
    EXPECT_TRUE(beginsWith(noAddress.errors, "make_self_signed: Failed to generate a certificate: "))
        << noAddress.errors;
    EXPECT_EQ(numFiles(), 0U);
}

TEST_F(MakeSelfSignedExample, RefusesWrongUsage)
{
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {},
             {"--name"},
             {"--name", ""},
             {"--days", "30"},
             {"--name", "a", "--unknown", "b"},
             {"--name", "a", "--days", "many"},
             {"--name", "a", "--days", "-1"},
             {"--name", "a", "--days", "30x"},
             {"--name", "a", "--days", ""},
             {"--name", "a", "--days", "4294967296"},
             {"--name", "a,IP:192.0.2.1"},
             {"--name", "a", "--dns", "b,c"},
             {"--name", "a", "--ip", "192.0.2.1,DNS:b"},
             {"--name", "a", "--passphrase-file", pathOf("missing")},
             {"--name", "a", "--out", pathOf("missing/made")}}) {
        expectWrongUsage(make(arguments), "make_self_signed: ");
    }
    EXPECT_EQ(numFiles(), 0U);
}

TEST_F(MakeSelfSignedExample, PrintsUsage)
{
    auto const result = make({"--help"});

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(beginsWith(result.output, "Usage: make_self_signed --name NAME ")) << result.output;
}
