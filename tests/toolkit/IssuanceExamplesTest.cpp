#include "support/Text.hpp"
#include "support/assertions/ProgramRuns.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/toolkit/Issuance.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <openssl/pem.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace fs = std::filesystem;

namespace {

using Kind = AlternativeName::Kind;

class IssuanceExample : public testing::Test
{
protected:
    std::string write(std::string const& name, std::string const& content) const
    {
        return folder.write(name, content).string();
    }

    std::string pathOf(std::string const& name) const { return (folder.path() / name).string(); }
    std::string prefix() const { return pathOf("made"); }
    std::string made(std::string const& suffix) const { return contentOfFile(prefix() + suffix); }

    std::size_t numFiles() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const leaf = makeLeaf(root, "leaf");
    TemporaryFolder const folder;
};

class ImportBundleExample : public IssuanceExample
{
protected:
    ProgramRun import(std::vector<std::string> arguments) const
    {
        arguments.insert(
            arguments.end(), {"--out", prefix(), "--passphrase-file", write("pass", "secret\n")});
        return runProgram(IMPORT_BUNDLE_PROGRAM, arguments);
    }

    std::string bundle() const
    {
        Pkcs12Spec spec;
        spec.passphrase = "secret";
        spec.certificate = leaf.certificate;
        spec.key = leaf.key;
        spec.furtherCertificates = {root.certificate};
        return folder.write("bundle.p12", toDer(makePkcs12(spec))).string();
    }
};

class ProvisionExample : public IssuanceExample
{
protected:
    ProgramRun provision(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.end(), {"--out", prefix()});
        return runProgram(PROVISION_PROGRAM, arguments);
    }
};

bool opens(std::string const& pem, char const* passphrase)
{
    ErrorQueueMark const mark;
    auto const bio = own(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    KeyHandle const key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, const_cast<char*>(passphrase)), EVP_PKEY_free);
    return key != nullptr;
}

} // namespace

TEST_F(ImportBundleExample, WritesCertificatesAndKey)
{
    auto const run = import({bundle()});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.output, "Wrote " + prefix() + ".pem and " + prefix() + ".key\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(made(".pem"), leaf.pem() + root.pem());
    EXPECT_EQ(made(".key"), toPem(leaf.key));
}

TEST_F(ImportBundleExample, MakesKeyReadableByOwnerOnly)
{
    import({bundle()});
    EXPECT_EQ(fs::status(prefix() + ".key").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ImportBundleExample, EncryptsKey)
{
    auto const run = import({bundle(), "--key-passphrase-file", write("new", "other\n")});
    EXPECT_EQ(run.exitStatus, 0) << run.errors;
    EXPECT_TRUE(opens(made(".key"), "other"));
    EXPECT_FALSE(opens(made(".key"), "secret"));
}

TEST_F(ImportBundleExample, ReportsRefusal)
{
    auto const file = bundle();
    auto const wrong = runProgram(
        IMPORT_BUNDLE_PROGRAM, {file, "--out", prefix(), "--passphrase-file", write("wrong", "wrong")});
    expectFailure(
        wrong, 1, "import_bundle: " + file + ": Input passphrase is incorrect. OpenSSL error message=\n");
    expectFailure(
        import({file, "--key-passphrase-file", write("empty", "\n")}), 1,
        "import_bundle: " + file + ": The new passphrase is empty.\n");
    EXPECT_FALSE(fs::exists(prefix() + ".key"));
}

TEST_F(ImportBundleExample, KeepsExistingFiles)
{
    for (char const* const suffix : {".pem", ".key"}) {
        auto const existing = write(std::string("made") + suffix, "precious");
        expectFailure(import({bundle()}), 2, "import_bundle: " + existing + ": File exists\n");
        EXPECT_EQ(contentOfFile(existing), "precious");
        fs::remove(existing);
        EXPECT_FALSE(fs::exists(prefix() + ".pem"));
        EXPECT_FALSE(fs::exists(prefix() + ".key"));
    }
}

TEST_F(ImportBundleExample, RefusesWrongUsage)
{
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {}, {"--unknown", "a"}, {bundle(), "another"}, {pathOf("missing")}, {write("empty", "")}}) {
        expectWrongUsage(import(arguments), "import_bundle: ");
    }
    expectWrongUsage(runProgram(IMPORT_BUNDLE_PROGRAM, {bundle(), "--out"}), "import_bundle: ");
}

TEST_F(ImportBundleExample, PrintsUsage)
{
    auto const run = runProgram(IMPORT_BUNDLE_PROGRAM, {"--help"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(beginsWith(run.output, "Usage: import_bundle BUNDLE ")) << run.output;
}

TEST_F(ProvisionExample, WritesIdentityOfDevice)
{
    auto const run = provision(
        {"--name", "device 7", "--dns", "seven.example", "--ip", "192.0.2.7", "--days", "30", "--ca",
         write("ca.pem", root.pem()), "--ca-key", write("ca.key", toPem(root.key))});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(
        run.output, "Subject: CN=device 7\nIssuer: CN=root\nWrote " + prefix() + ".key, " + prefix() +
                        ".csr and " + prefix() + ".pem\n");
    EXPECT_EQ(run.errors, "");
    auto const certificate = Certificate::fromPEM(made(".pem"));
    std::vector<AlternativeName> const names{{Kind::DNS, "seven.example"}, {Kind::IPAddress, "192.0.2.7"}};
    EXPECT_EQ(certificate.getAlternativeNames(), names);
    constexpr auto earlierStart = std::chrono::hours(1);
    EXPECT_EQ(
        certificate.getNotAfter() - certificate.getNotBefore(), earlierStart + std::chrono::hours(24 * 30));
    auto const request = CertificateRequest::fromPEM(made(".csr"));
    EXPECT_EQ(request.getSubject(), "CN=device 7");
    EXPECT_EQ(request.getAlternativeNames(), names);
    EXPECT_TRUE(request.isSignatureValid());
    EXPECT_TRUE(opens(made(".key"), ""));
    PathOptions options;
    options.host = "seven.example";
    options.purpose = Purpose::TLSServer;
    PathValidator const validator({Certificate::fromDER(root.der())});
    EXPECT_TRUE(validator.validate(certificate, {}, options).isValid());
}

TEST_F(ProvisionExample, DeviceSignsItselfWithoutCA)
{
    auto const run = provision({"--name", "a,CN=b"});
    EXPECT_EQ(run.exitStatus, 0);
    auto const certificate = Certificate::fromPEM(made(".pem"));
    EXPECT_EQ(certificate.getSubject(), "CN=a\\,CN=b");
    EXPECT_TRUE(certificate.isIssuedBy(certificate));
}

TEST_F(ProvisionExample, ReportsImpossibleCertificate)
{
    expectFailure(
        provision({"--name", "a", "--ip", "nowhere"}), 1, "provision: Invalid alternative name: nowhere\n");
    expectFailure(
        provision(
            {"--name", "a", "--ca", write("ca.pem", leaf.pem()), "--ca-key",
             write("ca.key", toPem(leaf.key))}),
        1, "provision: The authority is no CA.\n");
    expectFailure(
        provision(
            {"--name", "a", "--ca", write("ca.pem", root.pem()), "--ca-key",
             write("ca.key", toPem(leaf.key))}),
        1, "provision: The key is not that of the authority.\n");
    EXPECT_EQ(numFiles(), 2U);
}

TEST_F(ProvisionExample, KeepsExistingFiles)
{
    for (char const* const suffix : {".key", ".csr", ".pem"}) {
        auto const existing = write(std::string("made") + suffix, "precious");
        expectFailure(provision({"--name", "a"}), 2, "provision: " + existing + ": File exists\n");
        EXPECT_EQ(contentOfFile(existing), "precious");
        EXPECT_EQ(numFiles(), 1U);
        fs::remove(existing);
    }
}

TEST_F(ProvisionExample, RefusesWrongUsage)
{
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {},
             {"--name", ""},
             {"--name", "a", "--unknown", "b"},
             {"--name", "a", "--days", "0"},
             {"--name", "a", "--days", "3651"},
             {"--name", "a", "--days", "30x"},
             {"--name", "a", "--ca", pathOf("missing")},
             {"--name", "a", "--ca", pathOf("missing"), "--ca-key", pathOf("missing")}}) {
        expectWrongUsage(provision(arguments), "provision: ");
    }
    expectWrongUsage(runProgram(PROVISION_PROGRAM, {"--name"}), "provision: ");
    EXPECT_EQ(numFiles(), 0U);
}

TEST_F(ProvisionExample, PrintsUsage)
{
    auto const run = runProgram(PROVISION_PROGRAM, {"--help"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(beginsWith(run.output, "Usage: provision --name NAME ")) << run.output;
}
