#include "tools/FoundationCerts.hpp"

#include "support/pki/TestBundles.hpp"

#include <filesystem>

using namespace foundation::test;

namespace fs = std::filesystem;

namespace {

class Unpack : public FoundationCerts
{
protected:
    ProgramRun
    unpack(std::vector<std::string> const& arguments, std::string const& passphrase = "secret\n") const
    {
        std::vector<std::string> all{"unpack", "--passphrase-file", write("passphrase", passphrase)};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return foundationCerts(all);
    }

    std::string bundleOf(Pkcs12Spec spec) const
    {
        spec.passphrase = "secret";
        return folder.write("bundle.p12", toDer(makePkcs12(spec))).string();
    }

    std::string bundle() const
    {
        Pkcs12Spec spec;
        spec.certificate = leaf.certificate;
        spec.key = leaf.key;
        spec.furtherCertificates = {root.certificate};
        return bundleOf(spec);
    }

    static void expectFinding(ProgramRun const& run, std::string const& message)
    {
        expectFailure(run, 1, "foundation-certs: " + message + "\n");
    }

    std::string const key = pathOf("key.pem");
    std::string const certificate = pathOf("certificate.pem");
    std::string const chain = pathOf("chain.pem");
};

} // namespace

TEST_F(Unpack, WritesAllParts)
{
    expectSilence(unpack({bundle(), "--key", key, "--certificate", certificate, "--chain", chain}));
    EXPECT_EQ(contentOfFile(key), toPem(leaf.key));
    EXPECT_EQ(contentOfFile(certificate), leaf.pem());
    EXPECT_EQ(contentOfFile(chain), root.pem());
}

TEST_F(Unpack, WritesOnlyWhatIsAskedFor)
{
    expectSilence(unpack({bundle(), "--certificate", certificate}));
    EXPECT_TRUE(fs::exists(certificate));
    EXPECT_FALSE(fs::exists(key));
    EXPECT_FALSE(fs::exists(chain));
}

TEST_F(Unpack, KeyIsReadableByOwnerOnly)
{
    auto const ownerOnly = fs::perms::owner_read | fs::perms::owner_write;
    expectSilence(unpack({bundle(), "--key", key}));
    EXPECT_EQ(fs::status(key).permissions(), ownerOnly);
    fs::permissions(key, fs::perms::all);
    expectSilence(unpack({bundle(), "--key", key, "--force"}));
    EXPECT_EQ(fs::status(key).permissions(), ownerOnly);
}

TEST_F(Unpack, ReplacesFilesOnlyWithForce)
{
    for (auto const& existing : {key, certificate, chain}) {
        folder.write(existing, std::string("old"));
        std::vector<std::string> arguments{bundle(),    "--key",   key,  "--certificate",
                                           certificate, "--chain", chain};
        expectBadInput(unpack(arguments), existing + ": File exists");
        EXPECT_EQ(contentOfFile(existing), "old");
        EXPECT_EQ(fs::exists(key) + fs::exists(certificate) + fs::exists(chain), 1);
        arguments.emplace_back("--force");
        expectSilence(unpack(arguments));
        EXPECT_NE(contentOfFile(existing), "old");
        for (auto const& file : {key, certificate, chain}) {
            fs::remove(file);
        }
    }
}

TEST_F(Unpack, RefusesWrongPassphrase)
{
    auto const file = bundle();
    expectFinding(unpack({file, "--key", key}, "other"), file + ": The passphrase does not open the bundle.");
    EXPECT_FALSE(fs::exists(key));
}

TEST_F(Unpack, ReportsMissingParts)
{
    Pkcs12Spec spec;
    spec.certificate = leaf.certificate;
    auto const withoutKey = bundleOf(spec);
    expectFinding(unpack({withoutKey, "--key", key}), withoutKey + ": The bundle holds no private key.");
    expectFinding(
        unpack({withoutKey, "--certificate", certificate}),
        withoutKey + ": The bundle holds no certificate for a private key.");
    expectSilence(unpack({withoutKey, "--chain", chain}));
    EXPECT_EQ(contentOfFile(chain), leaf.pem());

    spec.key = leaf.key;
    auto const withoutChain = bundleOf(spec);
    expectFinding(
        unpack({withoutChain, "--key", key, "--chain", chain}),
        withoutChain + ": The bundle holds no further certificates.");
    EXPECT_FALSE(fs::exists(key));
}

TEST_F(Unpack, RefusesUnreadableInput)
{
    expectBadInput(unpack({"missing", "--key", key}), "missing: No such file or directory");
    auto const text = write("text", "no bundle");
    auto const run = unpack({text, "--key", key});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(beginsWith(run.errors, "foundation-certs: " + text + ": ")) << run.errors;
}

TEST_F(Unpack, RefusesWrongUsage)
{
    expectBadInput(unpack({bundle()}), "nothing to write: give --key, --certificate or --chain");
    EXPECT_EQ(unpack({}).exitStatus, 2);
    EXPECT_EQ(unpack({bundle(), "--passphrase", "secret"}).exitStatus, 2);
}
