#include "support/Text.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

using namespace foundation::test;
using foundation::certificates::X509Certificate;

namespace {

class InspectExample : public testing::Test
{
protected:
    ProgramRun inspect(std::vector<std::string> const& arguments) const
    {
        return runProgram(INSPECT_PROGRAM, arguments);
    }

    template <class Content>
    std::string file(std::string const& name, Content const& content) const
    {
        return folder.write(name, content).string();
    }

    std::string missing() const { return (folder.path() / "missing").string(); }

    TemporaryFolder const folder;
};

CertificateAndKey refusedCertificate()
{
    return makeRoot("refused", [](CertificateSpec& spec) { spec.key = rsaKey(512); });
}

constexpr char const refusal[] = "Refused: RSA key size does not meet minimum cryptographic requirements\n\n";

} // namespace

TEST_F(InspectExample, PrintsContentsOfCertificate)
{
    auto const made = makeRoot("root", [](CertificateSpec& spec) {
        spec.key = rsaKey();
        spec.serialNumber = "0x0100";
        spec.notBefore = TimeSpec::at(0);
        spec.notAfter = TimeSpec::at(2524608000);
        spec.setExtension("extendedKeyUsage", "serverAuth,clientAuth");
        spec.setExtension("certificatePolicies", "1.2.3.4");
    });
    std::ostringstream report;
    report << X509Certificate(made.der());

    auto const outcome = inspect({file("root.der", made.der())});

    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(
        outcome.output, report.str() + "Key: RSA, 2048 bits\n"
                                       "Serial Number: 256\n"
                                       "Signature: RSA-SHA256\n"
                                       "Valid From: Jan  1 00:00:00 1970 GMT\n"
                                       "Valid Until: Jan  1 00:00:00 2050 GMT\n"
                                       "Extended Key Usages: 1.3.6.1.5.5.7.3.1, 1.3.6.1.5.5.7.3.2\n"
                                       "Policies: 1.2.3.4\n"
                                       "\n"
                                       "Certificates: 1 printed, 0 refused\n");
}

TEST_F(InspectExample, PrintsKindOfEachKey)
{
    auto const ecc = makeRoot("ecc");
    auto const edwards = makeRoot("edwards", [](CertificateSpec& spec) { spec.key = ed25519Key(); });
    auto const outcome = inspect({file("ecc.pem", ecc.pem()), file("edwards.pem", edwards.pem())});
    EXPECT_NE(outcome.output.find("Key: prime256v1, 256 bits\n"), std::string::npos);
    EXPECT_NE(outcome.output.find("Key: Ed25519, "), std::string::npos);
    EXPECT_NE(outcome.output.find("Extended Key Usages: none\nPolicies: none\n"), std::string::npos);
}

TEST_F(InspectExample, ContinuesAfterRefusedCertificate)
{
    auto const bundle =
        "comment\n" + makeRoot("first").pem() + refusedCertificate().pem() + makeRoot("last").pem();
    auto const outcome = inspect({file("bundle.pem", bundle)});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("Subject Name: CN=first;"), std::string::npos);
    EXPECT_NE(outcome.output.find(refusal), std::string::npos);
    EXPECT_NE(outcome.output.find("Subject Name: CN=last;"), std::string::npos);
    EXPECT_TRUE(endsWith(outcome.output, "Certificates: 2 printed, 1 refused\n"));
}

TEST_F(InspectExample, ContinuesAfterTruncatedCertificate)
{
    auto const first = makeRoot("first").pem();
    auto const outcome =
        inspect({file("bundle.pem", first.substr(0, first.size() / 2) + "\n" + makeRoot("last").pem())});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_NE(
        outcome.output.find("Refused: Error: Loading a certificate failed. Reason="), std::string::npos);
    EXPECT_NE(outcome.output.find("Subject Name: CN=last;"), std::string::npos);
}

TEST_F(InspectExample, PrintsNoCertificateInPart)
{
    auto const made = makeRoot("root", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::unreadable(); });
    auto const outcome = inspect({file("root.pem", made.pem())});
    EXPECT_EQ(outcome.exitStatus, 1);
    EXPECT_EQ(
        outcome.output,
        "Refused: Error: printing the ASN1 time failed.\n\nCertificates: 0 printed, 1 refused\n");
}

TEST_F(InspectExample, ReportsFileWithoutReadableCertificate)
{
    for (std::string const& content :
         {std::string(), std::string("no certificate"), refusedCertificate().pem()}) {
        auto const path = file("file", content);
        auto const outcome = inspect({path});
        EXPECT_EQ(outcome.exitStatus, 1);
        EXPECT_EQ(outcome.errors, "inspect: " + path + ": contains no readable certificate\n");
        EXPECT_TRUE(endsWith(outcome.output, "\n\nCertificates: 0 printed, 1 refused\n"));
    }
}

TEST_F(InspectExample, ContinuesAfterMissingFile)
{
    auto const outcome = inspect({missing(), file("root.pem", makeRoot("root").pem())});
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.errors, "inspect: " + missing() + ": does not exist\n");
    EXPECT_TRUE(endsWith(outcome.output, "Certificates: 1 printed, 0 refused\n"));
}

TEST_F(InspectExample, RefusesFolder)
{
    auto const outcome = inspect({folder.path().string()});
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.errors, "inspect: " + folder.path().string() + ": is a folder\n");
}

TEST_F(InspectExample, RefusesUnknownOption)
{
    auto const outcome = inspect({"--verbose"});
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.errors, "inspect: unknown option --verbose, try --help\n");
    EXPECT_EQ(outcome.output, "");
}

TEST_F(InspectExample, PrintsUsage)
{
    auto const outcome = inspect({"--help"});
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output.compare(0, 23, "Usage: inspect [FILE...]", 0, 23), 0);
}

TEST_F(InspectExample, InspectsSystemRootsByDefault)
{
    auto const outcome = inspect({});
    bool const hasRoots = !foundation::certificates::getSystemCertificatesFile().empty() ||
                          !foundation::certificates::getSystemCertificatesFolder().empty();
    if (hasRoots) {
        // The number of refused ones depends on the system.
        EXPECT_TRUE(outcome.exitStatus == 0 || outcome.exitStatus == 1) << outcome.errors;
        EXPECT_TRUE(endsWith(outcome.output, " refused\n"));
    } else {
        EXPECT_EQ(outcome.exitStatus, 2);
        EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1);
    }
}

TEST_F(InspectExample, CountsSystemRootsForEachUsage)
{
    using foundation::certificates::TrustStore;
    auto const kept = [](TrustStore::Usage usage) {
        TrustStore store;
        store.addSystemCertificates(usage);
        return std::to_string(store.size()) + " kept, ";
    };
    std::string forServers;
    std::string forSigning;
    try {
        forServers = "TLS servers: " + kept(TrustStore::Usage::ServerAuthentication);
        forSigning = "Signing: " + kept(TrustStore::Usage::Signing);
    } catch (foundation::certificates::TrustStoreException const& noRootsOnThisMachine) {
        auto const outcome = inspect({"--system"});
        EXPECT_EQ(outcome.exitStatus, 2);
        EXPECT_EQ(outcome.errors, std::string("inspect: ") + noRootsOnThisMachine.what() + "\n");
        return;
    }
    auto const outcome = inspect({"--system"});
    EXPECT_EQ(outcome.exitStatus, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(outcome.output.rfind(forServers, 0), 0U) << outcome.output;
    EXPECT_NE(outcome.output.find("\n" + forSigning), std::string::npos) << outcome.output;
}
