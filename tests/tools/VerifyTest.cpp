#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/err.h>
#include <openssl/pkcs7.h>

using namespace foundation::test;

namespace {

class Verify : public FoundationCerts
{
protected:
    ProgramRun verify(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "verify");
        arguments.insert(arguments.end(), {"--roots", rootFile()});
        return foundationCerts(arguments);
    }

    static Pkcs7Handle detached(std::string const& content, CertificateAndKey const& by)
    {
        SignedDataSpec spec;
        spec.content = content;
        spec.signers = {by};
        spec.detached = true;
        return makeSignedData(spec);
    }

    static void expectRun(ProgramRun const& run, int exitStatus, std::string const& output)
    {
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.exitStatus, exitStatus);
    }

    CertificateAndKey const signer = makeLeaf(root, "signer");
    std::string const signedData = write("signed.p7", toDer(makeSignedData("content", signer)));
};

constexpr char const goodOutput[] = "Signature: Valid\n"
                                    "Signer: CN=signer\n"
                                    "Valid: The certificate is valid.\n"
                                    "Chain: CN=signer <- CN=root\n"
                                    "Advice: Nothing has to be done.\n";

} // namespace

TEST_F(Verify, AcceptsEmbeddedContent)
{
    expectRun(verify({signedData}), 0, goodOutput);
    expectRun(verify({write("signed.pem", toPem(makeSignedData("content", signer)))}), 0, goodOutput);
}

TEST_F(Verify, AcceptsDetachedContent)
{
    auto const signature = write("signature.p7", toDer(detached("apart", signer)));
    expectRun(verify({signature, "--content", write("content", std::string("apart"))}), 0, goodOutput);
}

TEST_F(Verify, AcceptsEmptyDetachedContent)
{
    auto const signature = write("signature.p7", toDer(detached("", signer)));
    expectRun(verify({signature, "--content", write("content", std::string())}), 0, goodOutput);
}

TEST_F(Verify, AcceptsSignerWithAnyKey)
{
    auto const strong = makeLeaf(root, "signer", [](CertificateSpec& spec) { spec.key = p384Key("signer"); });
    expectRun(verify({write("strong.p7", toDer(makeSignedData("content", strong)))}), 0, goodOutput);
}

TEST_F(Verify, FindsSignerAmongGivenCertificates)
{
    SignedDataSpec spec;
    spec.signers = {signer};
    spec.withoutCertificates = true;
    auto const bare = write("bare.p7", toDer(makeSignedData(spec)));
    EXPECT_EQ(verify({bare}).exitStatus, 1);
    expectRun(verify({bare, "--chain", write("signer.pem", signer.pem())}), 0, goodOutput);
}

TEST_F(Verify, RefusesChangedContent)
{
    auto const digestFailure =
        "Signature: Not valid: " + reasonText(ERR_LIB_PKCS7, PKCS7_R_DIGEST_FAILURE) + "\n";
    auto const tampered = withTamperedContent(makeSignedData("content", signer));
    expectRun(verify({write("tampered.p7", toDer(tampered))}), 1, digestFailure);
    auto const signature = write("signature.p7", toDer(detached("apart", signer)));
    expectRun(verify({signature, "--content", write("content", std::string("Apart"))}), 1, digestFailure);
    EXPECT_EQ(verify({signature}).exitStatus, 1);
}

TEST_F(Verify, RefusesUntrustedSigner)
{
    auto const other = makeLeaf(makeRoot("other"), "stray");
    expectRun(
        verify({write("other.p7", toDer(makeSignedData("content", other)))}), 1,
        "Signature: Valid\n"
        "Signer: CN=stray\n"
        "Not valid: The certificate's issuer was not found.\n"
        "Chain: CN=stray\n"
        "Certificate: CN=stray\n"
        "Advice: Add the missing intermediate certificates to the chain: a server must send them.\n");
}

TEST_F(Verify, JudgesEverySigner)
{
    SignedDataSpec spec;
    spec.signers = {signer, makeLeaf(makeRoot("other"), "stray")};
    auto const run = verify({write("two.p7", toDer(makeSignedData(spec)))});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(contains(run.output, "Signer: CN=signer\nValid: ")) << run.output;
    EXPECT_TRUE(contains(run.output, "Signer: CN=stray\nNot valid: ")) << run.output;
}

TEST_F(Verify, DoesNotTrustEmbeddedRoot)
{
    auto const other = makeRoot("other");
    auto const data = makeSignedData("content", makeLeaf(other, "stray"), {other.certificate});
    EXPECT_EQ(verify({write("other.p7", toDer(data))}).exitStatus, 1);
}

TEST_F(Verify, WritesJSON)
{
    auto const run = verify({signedData, "--json"});
    EXPECT_EQ(run.exitStatus, 0);
    auto const records = jsonLines(run.output, "verify");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].at("source"), signedData);
    EXPECT_EQ(records[0].at("signatureValid"), true);
    EXPECT_EQ(records[0].at("reason"), "");
    ASSERT_EQ(records[0].at("signers").size(), 1U);
    EXPECT_EQ(records[0].at("signers")[0].at("valid"), true);
    EXPECT_EQ(records[0].at("signers")[0].at("status"), "Valid");
}

TEST_F(Verify, RefusesUnreadableInput)
{
    expectBadInput(verify({"missing"}), "missing: No such file or directory");
    expectBadInput(verify({signedData, "--content", "missing"}), "missing: No such file or directory");
    auto const isFolder = folder.path().string();
    expectBadInput(verify({signedData, "--content", isFolder}), isFolder + ": Is a directory");
    for (auto const& content : {std::string("text"), root.pem(), std::string()}) {
        auto const file = write("no.p7", content);
        auto const run = verify({file});
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_TRUE(beginsWith(run.errors, "foundation-certs: " + file + ": ")) << run.errors;
    }
    auto const plain = write("plain.p7", toDer(makePlainData("content")));
    expectBadInput(verify({plain}), plain + ": The input is PKCS#7 and holds no signed data.");
}
