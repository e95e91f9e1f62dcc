#include "support/pki/TestCrl.hpp"
#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include <chrono>

using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

class Validate : public FoundationCerts
{
protected:
    /// Validates the leaf with the whole chain and more arguments.
    ProgramRun validate(std::vector<std::string> const& more) const
    {
        std::vector<std::string> arguments = {"validate", "--roots",          rootFile(),
                                              "--chain",  intermediateFile(), leafFile()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return foundationCerts(arguments);
    }
};

} // namespace

TEST_F(Validate, PrintsVerdictAndChain)
{
    auto const run = validate({});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "Valid: ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nChain: CN=leaf <- CN=intermediate <- CN=root\n")) << run.output;
}

TEST_F(Validate, SaysWhatIsWrong)
{
    auto const run = foundationCerts({"validate", "--roots", rootFile(), leafFile()});

    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "Not valid: ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nChain: CN=leaf\nCertificate: CN=leaf\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nAdvice: ")) << run.output;
}

TEST_F(Validate, TakesIntermediatesFromTheSameFile)
{
    auto const file = write("chain.pem", leaf.pem() + intermediate.pem());
    EXPECT_EQ(foundationCerts({"validate", "--roots", rootFile(), file}).exitStatus, 0);
}

TEST_F(Validate, ChecksHostPurposeAndTime)
{
    EXPECT_EQ(validate({"--host", "leaf.example"}).exitStatus, 0);
    EXPECT_EQ(validate({"--host", "other.example"}).exitStatus, 1);
    EXPECT_EQ(validate({"--address", "192.0.2.1"}).exitStatus, 1);
    EXPECT_EQ(validate({"--purpose", "server"}).exitStatus, 0);
    EXPECT_EQ(validate({"--purpose", "code-signing"}).exitStatus, 1);
    EXPECT_EQ(validate({"--at", "2038-01-19T03:14:07Z"}).exitStatus, 1); // the last time with 32 bits
    EXPECT_EQ(validate({"--at", "2000-02-29T23:59:59.5+01:00"}).exitStatus, 1);
}

TEST_F(Validate, RefusesWrongValues)
{
    for (auto const* const time :
         {"tomorrow", "2027-02-29T00:00:00Z", "2027-01-31T24:00:00Z", "2027-01-31T12:00:00",
          "2027-13-01T00:00:00Z"}) {
        expectBadInput(
            validate({"--at", time}), "not a time such as 2027-01-31T12:00:00Z: " + std::string(time));
    }
    if (std::chrono::system_clock::duration(1) < 1us) { // otherwise the clock holds every time
        expectBadInput(
            validate({"--at", "9999-12-31T23:59:59Z"}),
            "a time that the system's clock cannot hold: 9999-12-31T23:59:59Z");
    }
    EXPECT_EQ(validate({"--purpose", "fun"}).exitStatus, 2);
    EXPECT_EQ(validate({"--crl-all"}).exitStatus, 2);
    EXPECT_EQ(validate({"--crl", pathOf("missing.crl")}).exitStatus, 2);
    EXPECT_EQ(validate({"--host", ""}).exitStatus, 2);
}

TEST_F(Validate, ChecksRevocation)
{
    auto const clean = write("clean.crl", toPem(makeCrl(intermediate)));
    auto const revoking = write("revoking.crl", toDer(makeCrl(intermediate, {revoke(leaf)})));
    EXPECT_EQ(validate({"--crl", clean}).exitStatus, 0);
    EXPECT_EQ(validate({"--crl", revoking}).exitStatus, 1);
    EXPECT_EQ(validate({"--crl", clean, "--crl-all"}).exitStatus, 1); // nothing covers the intermediate
    auto const both = write("both.crl", toPem(makeCrl(intermediate)) + toPem(makeCrl(root)));
    EXPECT_EQ(validate({"--crl", both, "--crl-all"}).exitStatus, 0);
}

TEST_F(Validate, WritesDocumentedJson)
{
    auto const run = validate({"--json", "--host", "other.example"});

    EXPECT_EQ(run.exitStatus, 1);
    auto const records = jsonLines(run.output, "validate");
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].at("valid"), false);
    EXPECT_EQ(records[0].at("errorCode"), X509_V_ERR_HOSTNAME_MISMATCH);
    EXPECT_EQ(records[0].at("errorSubject"), "CN=leaf");
}
