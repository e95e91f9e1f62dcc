#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

// Bundles from the common makers, with old and new algorithms, made at test time.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const passphrase[] = "correct horse battery";
constexpr char const wrongPassphraseText[] = "Input passphrase is incorrect. OpenSSL error message=";

struct Row
{
    char const* maker;
    char const* key;
    /// Part of the maker's message if it cannot make the bundle; no value if every version in use can make
    /// it.
    std::optional<std::string> refusal;
};

std::ostream& operator<<(std::ostream& out, Row const& row)
{
    return out << row.maker << ' ' << row.key;
}

Row const rows[] = {
    {"openssl", "rsa", std::nullopt},
    {"openssl", "p256", std::nullopt},
    {"openssl", "ed25519", std::nullopt},
    {"gnutls", "rsa", std::nullopt},
    {"gnutls", "p256", std::nullopt},
    {"gnutls", "ed25519", std::nullopt},
    {"nss", "rsa", std::nullopt},
    {"nss", "p256", std::nullopt},
    // Older versions of NSS cannot import Ed25519 keys.
    {"nss", "ed25519", "SEC_ERROR_PKCS12_UNABLE_TO_IMPORT_KEY"},
    {"java", "rsa", std::nullopt},
    {"java", "p256", std::nullopt},
    {"java", "ed25519", std::nullopt},
};

class ForeignBundles : public testing::TestWithParam<Row>
{
protected:
    static void SetUpTestSuite()
    {
        folder.emplace();
        makers = runProgram(MAKE_BUNDLES_SCRIPT, {folder->path().string()});
    }

    static void TearDownTestSuite() { folder.reset(); }

    void SetUp() override { ASSERT_EQ(makers.exitStatus, 0) << makers.errors << makers.output; }

    static std::filesystem::path fileOf(std::string const& name) { return folder->path() / name; }

    static std::string contentOf(std::string const& name) { return contentOfFile(fileOf(name)); }

    static std::string nameOf(std::string const& algorithms)
    {
        return std::string(GetParam().maker) + '-' + GetParam().key + '-' + algorithms;
    }

    /// Returns the bundle. Returns nothing if its maker refused it for the reason in the table.
    static ByteArray bundleOf(std::string const& algorithms)
    {
        auto const name = nameOf(algorithms);
        auto const content = contentOf(name + ".p12");
        if (content.empty()) {
            EXPECT_TRUE(GetParam().refusal.has_value()) << "no such bundle: " << contentOf(name + ".refused");
            EXPECT_NE(contentOf(name + ".refused").find(GetParam().refusal.value_or("")), std::string::npos)
                << contentOf(name + ".refused");
        }
        return {content.begin(), content.end()};
    }

    static std::optional<TemporaryFolder> folder;
    static ProgramRun makers;
};

std::optional<TemporaryFolder> ForeignBundles::folder;
ProgramRun ForeignBundles::makers;

void expectKeyOf(std::string const& kind, PrivateKeyInfo const& key)
{
    if (kind == "rsa") {
        EXPECT_EQ(key.getType(), KeyType::RSA);
        EXPECT_LE(key.getRSAPrivateExponent().size(), 256U);
        return;
    }
    EXPECT_EQ(key.getType(), KeyType::ECC);
    EXPECT_EQ(key.getECCCurve(), kind == "p256" ? EllipticCurve::Prime256v1 : EllipticCurve::Ed25519);
    EXPECT_LE(key.getECCPrivateInteger().size(), 32U);
}

} // namespace

TEST_P(ForeignBundles, OnlyUnchangedBundleWithItsPassphraseOpens)
{
    for (std::string const algorithms : {"aes-256", "3des", "rc2-40"}) {
        SCOPED_TRACE(algorithms);
        auto const bytes = bundleOf(algorithms);
        if (bytes.empty()) {
            continue;
        }

        PKCS12Certificate const bundle(bytes, passphrase);
        EXPECT_EQ(bundle.getCertificate(), X509Certificate(contentOf(GetParam().key + std::string(".pem"))));
        EXPECT_EQ(bundle.getCAChain(), X509CertificateChain(contentOf("ca.pem")));
        ASSERT_TRUE(bundle.getPrivateKeyInfo().has_value());
        expectKeyOf(GetParam().key, *bundle.getPrivateKeyInfo());

        EXPECT_THROWS_EXACTLY(
            IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(bytes, "correct horse"));
        auto changed = bytes; // inside the encrypted content, which the MAC covers
        changed[changed.size() / 2] = static_cast<unsigned char>(changed[changed.size() / 2] ^ 1U);
        EXPECT_THROWS_EXACTLY(
            IncorrectPassphrase, wrongPassphraseText, PKCS12Certificate(changed, passphrase));
    }
}

INSTANTIATE_TEST_SUITE_P(Makers, ForeignBundles, testing::ValuesIn(rows), [](auto const& test) {
    return std::string(test.param.maker) + '_' + test.param.key;
});
