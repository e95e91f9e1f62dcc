#include "support/openssl/TLSServer.hpp"
#include "support/pki/MixedChain.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <string>
#include <vector>

using namespace foundation::test;

namespace {

class TLSClientExample : public testing::Test, protected MixedChain
{
protected:
    TLSClientExample() : MixedChain("IP:127.0.0.1,DNS:www.example.org") {}

    ProgramRun connect(std::string const& host, CertificateAndKey const& trusted) const
    {
        TLSServer const server(makeTLSServer(leaf.certificate, leaf.key, {intermediate.certificate}));
        auto const roots = folder.write("roots.pem", trusted.pem()).string();
        return runProgram(TLS_CLIENT_PROGRAM, {host, server.port(), "--roots", roots});
    }

    TemporaryFolder const folder;
};

class CheckUpdateExample : public testing::Test
{
protected:
    static CertificateAndKey signerFor(CertificateAndKey const& issuer, std::string const& usage)
    {
        return makeLeaf(issuer, "signer", [&](CertificateSpec& spec) {
            spec.setExtension("extendedKeyUsage", usage);
            spec.setExtension("keyUsage", "critical,digitalSignature");
        });
    }

    ProgramRun
    check(std::string const& update, CertificateAndKey const& signedBy, CertificateAndKey const& trusted)
    {
        SignedDataSpec spec;
        spec.content = "update";
        spec.signers = {signedBy};
        spec.detached = true;
        return runProgram(
            CHECK_UPDATE_PROGRAM, {folder.write("update", update).string(),
                                   folder.write("signature", toDer(makeSignedData(spec))).string(), "--root",
                                   folder.write("root.pem", trusted.pem()).string()});
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const signer = signerFor(root, "codeSigning");
    TemporaryFolder const folder;
};

std::string wordsFor(int code)
{
    return X509_verify_cert_error_string(code);
}

} // namespace

TEST_F(TLSClientExample, PrintsVerifiedChain)
{
    auto const run = connect("127.0.0.1", root);
    EXPECT_EQ(
        run.output, "Accepted: 127.0.0.1\nprime256v1 CN=leaf\nsecp384r1 CN=intermediate\nRSA CN=root\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(TLSClientExample, RefusesServerOfOtherName)
{
    auto const run = connect("localhost", root);
    EXPECT_EQ(run.output, "Refused: " + wordsFor(X509_V_ERR_HOSTNAME_MISMATCH) + "\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(TLSClientExample, RefusesServerOfOtherRoot)
{
    auto const run = connect("127.0.0.1", makeRoot("other"));
    EXPECT_EQ(run.output, "Refused: " + wordsFor(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY) + "\n");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(TLSClientExample, NamesRootThatItCannotRead)
{
    auto const roots = folder.write("roots", std::string("text")).string();
    auto const run = runProgram(TLS_CLIENT_PROGRAM, {"127.0.0.1", "1", "--roots", roots});
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, roots + ": The source holds no certificate.\n");
    EXPECT_EQ(run.exitStatus, 2);
}

TEST_F(TLSClientExample, PrintsUsage)
{
    auto const run = runProgram(TLS_CLIENT_PROGRAM, {"127.0.0.1"});
    EXPECT_EQ(run.errors.substr(0, run.errors.find('\n')), "Usage: tls_client HOST PORT [--roots FILE]");
    EXPECT_EQ(run.exitStatus, 2);
}

TEST_F(CheckUpdateExample, AcceptsUpdateOfVendor)
{
    auto const run = check("update", signer, root);
    EXPECT_EQ(run.output, "Signed by CN=signer\nThe update may be installed\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(CheckUpdateExample, RefusesChangedUpdate)
{
    auto const run = check("Update", signer, root);
    EXPECT_EQ(run.output, "Refused: the signature is not valid for this file\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(CheckUpdateExample, RefusesSignerOfOtherPurpose)
{
    auto const run = check("update", signerFor(root, "serverAuth"), root);
    EXPECT_EQ(
        run.output, "Refused: CN=signer\n"
                    "Validation Failed. Return code=26.Errors present: Error code 26  at depth 0"
                    "Certificate Subject Name=CN=signer\n. \nMessage:" +
                        wordsFor(X509_V_ERR_INVALID_PURPOSE) + "\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(CheckUpdateExample, RefusesOtherVendor)
{
    auto const run = check("update", signer, makeRoot("other"));
    EXPECT_EQ(
        run.output,
        "Refused: CN=signer\n"
        "Errors present: Error code 20  at depth 0Certificate Subject Name=CN=signer\n. \nMessage:" +
            wordsFor(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY) + "\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(CheckUpdateExample, PrintsUsage)
{
    auto const run = runProgram(CHECK_UPDATE_PROGRAM, {"update", "signature"});
    EXPECT_EQ(run.errors.substr(0, run.errors.find('\n')), "Usage: check_update FILE SIGNATURE --root FILE");
    EXPECT_EQ(run.exitStatus, 2);
}
