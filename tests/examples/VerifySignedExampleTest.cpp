#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <string>
#include <vector>

using namespace foundation::test;

namespace {

class VerifySignedExample : public testing::Test
{
protected:
    ProgramRun verifySigned(std::vector<std::string> const& arguments) const
    {
        return runProgram(VERIFY_SIGNED_PROGRAM, arguments);
    }

    template <class Content>
    std::string file(std::string const& name, Content const& content) const
    {
        return folder.write(name, content).string();
    }

    Pkcs7Handle detached() const
    {
        SignedDataSpec spec;
        spec.content = "apart";
        spec.signers = {signer};
        spec.detached = true;
        return makeSignedData(spec);
    }

    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const signer = makeLeaf(root, "signer");
    TemporaryFolder const folder;
    std::string const trusted = file("trusted.pem", root.pem());
    std::string const signedData = file("signed.p7", toDer(makeSignedData("content", signer)));
};

} // namespace

TEST_F(VerifySignedExample, PrintsThatSignedDataIsValidAndTrusted)
{
    auto const run = verifySigned({signedData, "--trust", trusted});
    EXPECT_EQ(run.output, "Signature: valid\nChain: trusted\n");
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.exitStatus, 0);
}

TEST_F(VerifySignedExample, AcceptsSeveralTrustFilesAndPem)
{
    auto const other = file("other.pem", makeRoot("other root").pem());
    auto const pem = file("signed.pem", toPem(makeSignedData("content", signer)));
    EXPECT_EQ(verifySigned({"--trust", other, "--trust", trusted, pem}).exitStatus, 0);
    auto const leafAlone = file("leaf.pem", signer.pem());
    EXPECT_EQ(verifySigned({"--trust", leafAlone, "--trust", trusted, pem}).exitStatus, 0);
}

TEST_F(VerifySignedExample, VerifiesDetachedContent)
{
    auto const data = file("data", std::string("apart"));
    auto const otherData = file("other data", std::string("other"));
    auto const signature = file("signature.p7", toDer(detached()));
    EXPECT_EQ(verifySigned({signature, "--data", data, "--trust", trusted}).exitStatus, 0);

    auto const run = verifySigned({signature, "--data", otherData, "--trust", trusted});
    EXPECT_EQ(
        run.output, "Signature: not valid\nChain: failed\nReason: " +
                        reasonText(ERR_LIB_PKCS7, PKCS7_R_DIGEST_FAILURE) + "\n");
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(verifySigned({signature, "--trust", trusted}).exitStatus, 1);
}

TEST_F(VerifySignedExample, RefusesEmptyDetachedContent)
{
    auto const empty = file("empty", std::string());
    auto const run = verifySigned({signedData, "--data", empty, "--trust", trusted});
    EXPECT_EQ(run.errors, empty + ": is empty\n");
    EXPECT_EQ(run.exitStatus, 2);
}

TEST_F(VerifySignedExample, PrintsWhySignerIsNotTrusted)
{
    auto const other = file("other.pem", makeRoot("other root").pem());
    auto const run = verifySigned({signedData, "--trust", other});
    std::string const beginning =
        "Signature: valid\nChain: not trusted\nReason: Errors present: Error code 20";
    EXPECT_EQ(run.output.substr(0, beginning.size()), beginning);
    EXPECT_EQ(run.exitStatus, 1);

    // Without a trust file the operating system's roots count. The test's root is not one of them.
    EXPECT_EQ(verifySigned({signedData}).exitStatus, 1);
}

TEST_F(VerifySignedExample, PrintsThatSignerIsSelfSigned)
{
    auto const own = file("own.p7", toDer(makeSignedData("content", makeSelfSignedLeaf("self"))));
    auto const run = verifySigned({own, "--trust", trusted});
    EXPECT_EQ(run.output, "Signature: valid\nChain: self-signed\n");
    EXPECT_EQ(run.exitStatus, 1);
}

TEST_F(VerifySignedExample, ReportsUnreadableInput)
{
    auto const missing = (folder.path() / "missing").string();
    auto const noCertificates = file("text", std::string("no certificates"));
    struct Row
    {
        std::vector<std::string> arguments;
        std::string errors;
    };
    std::vector<Row> const rows{
        {{missing}, missing + ": cannot be read\n"},
        {{signedData, "--trust", missing}, missing + ": cannot be read\n"},
        {{signedData, "--data", missing}, missing + ": cannot be read\n"},
        {{trusted},
         "Input certificate data was autodetected to be DER-encoded, but is not in DER encoding. Please "
         "verify "
         "the input data.\n"},
        {{signedData, "--trust", noCertificates}, "Error: Loading a certificate chain failed. Reason="},
    };
    for (auto const& row : rows) {
        auto const run = verifySigned(row.arguments);
        EXPECT_EQ(run.errors.substr(0, row.errors.size()), row.errors);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.exitStatus, 2);
    }
}

TEST_F(VerifySignedExample, PrintsUsage)
{
    auto const help = verifySigned({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.output.substr(0, 26), "Usage: verify_signed FILE ");
    struct Row
    {
        std::vector<std::string> arguments;
        std::string complaint;
    };
    std::vector<Row> const rows{
        {{}, "no file given"},
        {{signedData, "--trust"}, "--trust needs a file"},
        {{signedData, "--data"}, "--data needs a file"},
        {{signedData, signedData}, "unknown argument: " + signedData},
        {{signedData, "--verbose"}, "unknown argument: --verbose"},
    };
    for (auto const& row : rows) {
        auto const run = verifySigned(row.arguments);
        EXPECT_EQ(run.errors, row.complaint + "\n\n" + help.output);
        EXPECT_EQ(run.exitStatus, 2);
    }
}
