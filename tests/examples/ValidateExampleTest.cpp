#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/Revocable.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/ScriptedServer.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

class ValidateExample : public testing::Test
{
protected:
    ProgramRun validate(std::vector<std::string> const& arguments) const
    {
        return runProgram(VALIDATE_PROGRAM, arguments);
    }

    template <class Content>
    std::string file(std::string const& name, Content const& content) const
    {
        return folder.write(name, content).string();
    }

    void expect(ProgramRun const& run, int exitStatus, std::string const& output) const
    {
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.exitStatus, exitStatus);
    }

    void expectFailure(ProgramRun const& run, std::string const& errors) const
    {
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, "validate: " + errors + "\n");
        EXPECT_EQ(run.exitStatus, 2);
    }

    TemporaryFolder const folder;
    Revocable const pki{[](CertificateSpec& spec) { spec.serialNumber = "4711"; }};
    std::string const root = file("root.pem", pki.root.pem());
    std::string const other = file("other.pem", makeRoot("other").pem());
    std::string const ca = file("ca.pem", pki.ca.pem());
    std::string const leaf = file("leaf.pem", pki.leaf.pem());
    std::string const lonely = file("lonely.der", makeSelfSignedLeaf("lonely").der());
    std::string const aged = file("aged.pem", makeLeaf(pki.ca, "aged", [](CertificateSpec& spec) {
                                                  spec.notAfter = TimeSpec::fromNow(-1h);
                                              }).pem());
};

constexpr char const validText[] = "Certificate: CN=leaf\nVerdict: valid\nRoot: CN=root\n";

} // namespace

TEST_F(ValidateExample, PrintsValidVerdictAndRoot)
{
    expect(validate({leaf, "--chain", ca, "--trust", root}), 0, validText);
    expect(validate({"--trust", other, "--trust", root, "--chain", ca, leaf}), 0, validText);
}

TEST_F(ValidateExample, TrustsCertificateInDer)
{
    auto const der = file("root.der", pki.root.der());
    expect(validate({leaf, "--chain", ca, "--trust", der}), 0, validText);
}

TEST_F(ValidateExample, PrintsWhyCertificateIsNotTrusted)
{
    expect(
        validate({leaf, "--trust", root}), 1,
        "Certificate: CN=leaf\nVerdict: untrusted\nReport: " +
            report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 0, "CN=leaf"));
}

TEST_F(ValidateExample, UsesSystemRootsByDefault)
{
    expect(
        validate({leaf, "--chain", ca}), 1,
        "Certificate: CN=leaf\nVerdict: untrusted\nReport: " +
            report(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 1, "CN=ca"));
}

TEST_F(ValidateExample, FallsBackToSecondTrustFile)
{
    expect(validate({leaf, "--chain", ca, "--trust", other, "--fallback", root}), 0, validText);
}

TEST_F(ValidateExample, ToleratesWhatOptionsAllow)
{
    expect(validate({lonely, "--trust", root}), 1, "Certificate: CN=lonely\nVerdict: self-signed\n");
    expect(
        validate({lonely, "--trust", root, "--allow-self-signed"}), 0,
        "Certificate: CN=lonely\nVerdict: valid\nRoot: CN=lonely\n");
    expect(
        validate({aged, "--chain", ca, "--trust", root}), 1,
        "Certificate: CN=aged\nVerdict: expired\nReport: " +
            report(X509_V_ERR_CERT_HAS_EXPIRED, 0, "CN=aged"));
    expect(
        validate({"--allow-expired", aged, "--chain", ca, "--trust", root}), 0,
        "Certificate: CN=aged\nVerdict: valid\nRoot: CN=root\n");
}

TEST_F(ValidateExample, PrintsRevocation)
{
    HttpFileServer const server(
        "127.0.0.1", filesOf(pki.leafCrl({revoke(pki.leaf, TimeSpec::at(1577836800))}), pki.caCrl()));
    std::string const revokedText =
        "Certificate: CN=leaf\nVerdict: revoked\nRevoked: serial number 4711 on Jan  1 00:00:00 2020 GMT\n"
        "Report: " +
        report(X509_V_ERR_CERT_REVOKED, 0, "CN=leaf");
    std::vector<std::string> const base = {leaf, "--chain", ca, "--trust", root};
    auto const with = [&](std::vector<std::string> const& more) {
        auto arguments = base;
        arguments.insert(arguments.end(), more.begin(), more.end());
        return validate(arguments);
    };

    expect(with({"--crl", "chain", "--download", "required"}), 1, revokedText);
    expect(with({"--crl", "leaf", "--download", "best-effort"}), 1, revokedText);
    expect(with({"--crl", "none", "--download", "required"}), 0, validText);
    expect(with({"--crl", "chain", "--download", "none"}), 0, validText);
    expect(with({"--crl", "chain", "--download", "required", "--allow-revoked"}), 0, validText);
}

TEST_F(ValidateExample, ReportsFailureOnOneLine)
{
    auto const missing = (folder.path() / "missing").string();
    auto const garbage = file("garbage", std::string(300, 'A'));
    expectFailure(validate({missing}), missing + ": cannot be read, or is empty");
    expectFailure(validate({leaf, "--trust", missing}), missing + ": cannot be read, or is empty");
    expectFailure(
        validate({garbage}), garbage +
                                 ": Input certificate data was autodetected to be DER-encoded, but is not "
                                 "in DER encoding. Please verify the input data.");
    expectFailure(
        validate({leaf, "--chain", ca, "--trust", root, "--crl", "leaf", "--download", "required"}),
        "CRL Download Error: Unable to get Certificate Revocation List HTTP data. CRL Download Error: CRL "
        "HTTP "
        "data is empty");
}

TEST_F(ValidateExample, PrintsUsage)
{
    auto const help = validate({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.output.substr(0, 21), "Usage: validate LEAF ");

    expectFailure(validate({}), "no certificate given, try --help");
    expectFailure(validate({leaf, ca}), "only one certificate is allowed: " + ca + ", try --help");
    expectFailure(validate({leaf, "--trust"}), "no value for --trust, try --help");
    expectFailure(validate({leaf, "--verbose", "x"}), "unknown option --verbose, try --help");
    expectFailure(validate({leaf, "--crl", "all"}), "unknown value for --crl: all, try --help");
    expectFailure(validate({leaf, "--download", "now"}), "unknown value for --download: now, try --help");
}
