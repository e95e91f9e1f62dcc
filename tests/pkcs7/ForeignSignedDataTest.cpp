#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

// Signed data from other makers: the openssl command, GnuTLS, NSS, and Java's archives. At test time,
// foreign/make_signed_data makes each of them sign the same content.

namespace {

enum class Expectation
{
    Verifies,
    /// Some releases of the maker cannot make it, and some releases of OpenSSL cannot verify it. If it was
    /// made, the library gives the verdict of the OpenSSL in use.
    AsOpenSSLSays,
    /// CMS, the successor of PKCS#7: a key identifier names the signer, not issuer and serial number.
    NotPKCS7
};

struct Row
{
    std::string name;
    Expectation expectation = Expectation::Verifies;
    /// Part of the maker's message if it refuses.
    std::string refusal = {};
};

std::vector<Row> const& rows()
{
    static std::vector<Row> const table{
        {"openssl-smime-rsa-sha1"},
        {"openssl-smime-rsa-sha256"},
        {"openssl-smime-rsa-noattr"},
        {"openssl-smime-rsa-detached"},
        {"openssl-smime-p256-sha1"},
        {"openssl-smime-p256-sha256"},
        {"openssl-smime-p256-noattr"},
        {"openssl-smime-p256-detached"},
        {"openssl-smime-ed25519", Expectation::AsOpenSSLSays, "signing not supported for this key type"},
        {"openssl-cms-rsa-sha1"},
        {"openssl-cms-rsa-sha256"},
        {"openssl-cms-rsa-noattr"},
        {"openssl-cms-rsa-detached"},
        {"openssl-cms-rsa-pss", Expectation::AsOpenSSLSays},
        {"openssl-cms-p256-sha1"},
        {"openssl-cms-p256-sha256"},
        {"openssl-cms-p256-noattr"},
        {"openssl-cms-p256-detached"},
        {"openssl-cms-p256-keyid", Expectation::NotPKCS7},
        {"openssl-cms-ed25519", Expectation::AsOpenSSLSays, "invalid digest"},
        {"gnutls-rsa-sha1"},
        {"gnutls-rsa-sha256"},
        {"gnutls-rsa-detached"},
        {"gnutls-p256-sha1"},
        {"gnutls-p256-sha256"},
        {"gnutls-p256-detached"},
        {"gnutls-ed25519", Expectation::AsOpenSSLSays, "not supported"},
        {"nss-rsa-sha1"},
        {"nss-rsa-sha256"},
        {"nss-rsa-detached"},
        {"nss-p256-sha1"},
        {"nss-p256-sha256"},
        {"nss-p256-detached"},
        {"nss-ed25519", Expectation::AsOpenSSLSays, "problem signing"},
        {"java-rsa-sha1"},
        {"java-rsa-sha256"},
        {"java-p256-sha1"},
        {"java-p256-sha256"},
        {"java-ed25519", Expectation::AsOpenSSLSays, "Ed25519"},
    };
    return table;
}

void expectResult(
    PKCS7CertificateValidationResults const& results, bool signature, CertificateChainStatus status,
    std::string const& text)
{
    EXPECT_EQ(results.getSignatureVerificationStatus(), signature);
    EXPECT_EQ(results.getCertificateChainStatus(), status);
    EXPECT_EQ(results.getValidationErrorString(), text);
}

class ForeignSignedData : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        folder = std::make_unique<TemporaryFolder>();
        auto const run = runProgram(MAKE_SIGNED_DATA, {folder->path().string()});
        ASSERT_EQ(run.exitStatus, 0) << run.errors << run.output;
        for (auto const& certificate : X509CertificateChain(read("trusted.pem")).getCertificates()) {
            trusted.addCertificate(certificate);
        }
    }

    static void TearDownTestSuite() { folder.reset(); }

    static std::string read(std::string const& name) { return contentOfFile(folder->path() / name); }

    static bool exists(std::string const& name) { return std::filesystem::exists(folder->path() / name); }

    static Bytes signedData(std::string const& name) { return asBytes(read(name + ".p7")); }

    /// Returns the detached content; nothing if the content is embedded.
    static Bytes detachedContent(std::string const& name) { return asBytes(read(name + ".content")); }

    static PKCS7CertificateValidationResults verify(Bytes const& data, Bytes const& content)
    {
        PKCS7Certificate const loaded(data);
        CleanErrorQueue const clean;
        return loaded.verifySignature(X509CertificateChain(), trusted, content);
    }

    /// Returns OpenSSL's first reason against the signature; nothing if it verifies.
    static std::string reasonAgainst(Bytes const& data, Bytes const& content)
    {
        CleanErrorQueue const clean;
        auto const pkcs7 = parsePkcs7(data);
        auto const reader = content.empty() ? nullptr : readerOf(content);
        int const verified =
            PKCS7_verify(pkcs7.get(), nullptr, nullptr, reader.get(), nullptr, PKCS7_NOVERIFY);
        return verified == 1 ? "" : oldestReasonText();
    }

    static void expectRefusedAsOpenSSLRefuses(Bytes const& data, Bytes const& content)
    {
        auto const reason = reasonAgainst(data, content);
        EXPECT_NE(reason, "");
        expectResult(verify(data, content), false, CertificateChainStatus::Failed, reason);
    }

    static std::unique_ptr<TemporaryFolder> folder;
    static TrustStore trusted;
};

std::unique_ptr<TemporaryFolder> ForeignSignedData::folder;
TrustStore ForeignSignedData::trusted;

} // namespace

TEST_F(ForeignSignedData, MakersProduceWhatTheTableLists)
{
    std::set<std::string> made;
    for (auto const& entry : std::filesystem::directory_iterator(folder->path())) {
        auto const extension = entry.path().extension();
        if (extension == ".p7" || extension == ".refusal") {
            made.insert(entry.path().stem().string());
        }
    }
    std::set<std::string> expected;
    for (auto const& row : rows()) {
        expected.insert(row.name);
        EXPECT_TRUE(row.expectation == Expectation::AsOpenSSLSays || exists(row.name + ".p7"))
            << row.name << ": " << read(row.name + ".refusal");
    }
    EXPECT_EQ(made, expected);
}

TEST_F(ForeignSignedData, SignaturesOfAllMakersVerify)
{
    for (auto const& row : rows()) {
        if (row.expectation != Expectation::Verifies) {
            continue;
        }
        SCOPED_TRACE(row.name);
        auto const detached = detachedContent(row.name);
        expectResult(verify(signedData(row.name), detached), true, CertificateChainStatus::Valid, "");
        PKCS7Certificate const loaded(signedData(row.name));
        EXPECT_EQ(loaded.getSignerCerts().getNumCertificates(), 1u);
        EXPECT_EQ(asText(loaded.getSignedData()), detached.empty() ? read("content") : "");
        expectResult(verify(loaded.getAsBytes(), detached), true, CertificateChainStatus::Valid, "");
    }
}

TEST_F(ForeignSignedData, ChangedContentDoesNotVerify)
{
    for (auto const& row : rows()) {
        if (row.expectation != Expectation::Verifies) {
            continue;
        }
        SCOPED_TRACE(row.name);
        auto detached = detachedContent(row.name);
        auto data = signedData(row.name);
        if (detached.empty()) {
            auto const at = asText(data).find(read("content"));
            ASSERT_NE(at, std::string::npos);
            data[at] ^= 1;
        } else {
            detached[0] ^= 1;
        }
        expectRefusedAsOpenSSLRefuses(data, detached);
        EXPECT_EQ(PKCS7Certificate(data).getSignedData(), ByteArray());
    }
}

TEST_F(ForeignSignedData, ChangedSignatureDoesNotVerify)
{
    for (auto const& row : rows()) {
        if (row.expectation != Expectation::Verifies) {
            continue;
        }
        SCOPED_TRACE(row.name);
        auto const damaged = withDamagedSignature(parsePkcs7(signedData(row.name)));
        expectRefusedAsOpenSSLRefuses(toDer(damaged), detachedContent(row.name));
    }
}

TEST_F(ForeignSignedData, OptionalFormsGetOpenSSLsVerdict)
{
    for (auto const& row : rows()) {
        if (row.expectation != Expectation::AsOpenSSLSays) {
            continue;
        }
        SCOPED_TRACE(row.name);
        if (!exists(row.name + ".p7")) {
            ASSERT_NE(row.refusal, "");
            EXPECT_NE(read(row.name + ".refusal").find(row.refusal), std::string::npos)
                << read(row.name + ".refusal");
            continue;
        }
        auto const reason = reasonAgainst(signedData(row.name), detachedContent(row.name));
        expectResult(
            verify(signedData(row.name), detachedContent(row.name)), reason.empty(),
            reason.empty() ? CertificateChainStatus::Valid : CertificateChainStatus::Failed, reason);
    }
}

TEST_F(ForeignSignedData, CmsWithKeyIdentifiersIsRefused)
{
    for (auto const& row : rows()) {
        if (row.expectation == Expectation::NotPKCS7) {
            EXPECT_THROWS_EXACTLY(
                InvalidArgument,
                "Input certificate data was autodetected to be DER-encoded, but is not in DER encoding. "
                "Please "
                "verify the input data.",
                PKCS7Certificate(signedData(row.name)));
        }
    }
}
