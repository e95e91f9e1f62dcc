#include "support/Text.hpp"
#include "support/pki/MixedChain.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/RunProgram.hpp"
#include "support/system/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

using namespace foundation::test;

namespace {

class ChainExample : public testing::Test, protected MixedChain
{
protected:
    ChainExample() : MixedChain("DNS:leaf.example") {}

    std::string write(std::string const& name, std::string const& content) const
    {
        return folder.write(name, content).string();
    }

    std::string roots() const { return write("roots.pem", root.pem()); }
    std::string chain() const { return write("chain.pem", leaf.pem() + intermediate.pem()); }

    static void expectWrongUsage(std::string const& program, std::vector<std::string> const& arguments)
    {
        auto const run = runProgram(program, arguments);
        EXPECT_EQ(run.exitStatus, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_NE(run.errors, "");
    }

    static void expectUsage(std::string const& program, std::string const& beginning)
    {
        auto const run = runProgram(program, {"--help"});
        EXPECT_EQ(run.exitStatus, 0);
        EXPECT_TRUE(beginsWith(run.output, beginning)) << run.output;
    }

    TemporaryFolder const folder;
};

class ExpiryMonitorExample : public ChainExample
{
protected:
    std::string certificateWith(std::string const& name, std::chrono::hours left) const
    {
        auto const made =
            makeRoot(name, [&](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(left); });
        return write(name + ".pem", made.pem());
    }

    static ProgramRun monitor(std::vector<std::string> const& arguments)
    {
        return runProgram(EXPIRY_MONITOR_PROGRAM, arguments);
    }
};

class ChainDoctorExample : public ChainExample
{
protected:
    static ProgramRun diagnose(std::vector<std::string> const& arguments)
    {
        return runProgram(CHAIN_DOCTOR_PROGRAM, arguments);
    }
};

class ValidateInParallelExample : public ChainExample
{
protected:
    static ProgramRun validate(std::vector<std::string> const& arguments)
    {
        return runProgram(VALIDATE_IN_PARALLEL_PROGRAM, arguments);
    }
};

using std::chrono::hours;

} // namespace

TEST_F(ExpiryMonitorExample, ReportsWhatExpiresSoon)
{
    auto const expired = certificateWith("a", hours(-1));
    auto const soon = certificateWith("b", hours(24 * 5 + 1));
    certificateWith("c", hours(24 * 40));
    auto const run = monitor({folder.path().string()});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.output, expired + " #1: CN=a expired\n" + soon + " #1: CN=b expires in 5 days\n");
    EXPECT_EQ(run.errors, "");
}

TEST_F(ExpiryMonitorExample, ReportsWhatEndedBeforeTheClockBegins)
{
    auto const old = makeRoot("old", [](CertificateSpec& spec) {
        spec.notAfter = TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "10000101000000Z");
    });
    auto const file = write("old.pem", old.pem());
    EXPECT_EQ(monitor({file}).output, file + " #1: CN=old expired\n");
}

TEST_F(ExpiryMonitorExample, UsesGivenNumberOfDays)
{
    auto const soon = certificateWith("b", hours(24 * 5 + 1));
    EXPECT_EQ(monitor({"--within", "5", soon}).exitStatus, 0);
    EXPECT_EQ(monitor({"--within", "6", soon}).exitStatus, 1);
}

TEST_F(ExpiryMonitorExample, ReportsUnreadableFileAndContinues)
{
    auto const unreadable = write("a.pem", "no certificate");
    auto const soon = certificateWith("b", hours(24));
    auto const run = monitor({unreadable, soon});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_TRUE(contains(run.output, "CN=b")) << run.output;
    EXPECT_TRUE(beginsWith(run.errors, "expiry_monitor: " + unreadable + ": ")) << run.errors;
}

TEST_F(ExpiryMonitorExample, ReadsCertificatesWithAnyKey)
{
    EXPECT_EQ(monitor({chain()}).exitStatus, 0);
}

TEST_F(ExpiryMonitorExample, RefusesWrongUsage)
{
    expectUsage(EXPIRY_MONITOR_PROGRAM, "Usage: expiry_monitor ");
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {}, {"--within"}, {"--within", "many", "a"}, {"--within", "-1", "a"}, {"--unknown", "a"}}) {
        expectWrongUsage(EXPIRY_MONITOR_PROGRAM, arguments);
    }
}

TEST_F(ChainDoctorExample, ShowsValidChain)
{
    auto const run = diagnose({chain(), "--roots", roots(), "--host", "leaf.example"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(
        run.output, "Verdict: Valid\n"
                    "  0: CN=leaf (prime256v1)\n"
                    "  1: CN=intermediate (secp384r1)\n"
                    "  2: CN=root (RSA)\n"
                    "The certificate is valid.\n"
                    "Nothing has to be done.\n");
    EXPECT_EQ(run.errors, "");
}

TEST_F(ChainDoctorExample, ExplainsMissingIntermediate)
{
    auto const run = diagnose({write("leaf.pem", leaf.pem()), "--roots", roots()});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(
        run.output, "Verdict: Untrusted\n"
                    "  0: CN=leaf (prime256v1)\n"
                    "Certificate: 0: CN=leaf\n"
                    "The certificate's issuer was not found.\n"
                    "Add the missing intermediate certificates to the chain: a server must send them.\n");
}

TEST_F(ChainDoctorExample, ExplainsWrongHost)
{
    auto const run = diagnose({chain(), "--roots", roots(), "--host", "other.example"});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(contains(
        run.output, "The certificate is for another host name.\nConnect with a name that the certificate "
                    "lists, or get a certificate for this name.\n"))
        << run.output;
}

TEST_F(ChainDoctorExample, RefusesWrongUsage)
{
    expectUsage(CHAIN_DOCTOR_PROGRAM, "Usage: chain_doctor ");
    for (auto const& arguments : std::vector<std::vector<std::string>>{
             {},
             {"--roots"},
             {chain(), chain()},
             {chain(), "--host"},
             {chain(), "--host", ""},
             {write("text", "no certificate")}}) {
        expectWrongUsage(CHAIN_DOCTOR_PROGRAM, arguments);
    }
}

TEST_F(ValidateInParallelExample, PrintsVerdictsInOrder)
{
    std::vector<std::string> arguments{roots()};
    std::string expected;
    auto const good = chain();
    auto const untrusted = write("leaf.pem", leaf.pem());
    for (int round = 0; round < 20; ++round) {
        arguments.insert(arguments.end(), {good, untrusted});
        expected += good + ": Valid: The certificate is valid.\n";
        expected += untrusted + ": Untrusted: The certificate's issuer was not found.\n";
    }
    auto const run = validate(arguments);
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.output, expected);
    EXPECT_EQ(run.errors, "");
}

TEST_F(ValidateInParallelExample, SucceedsIfAllAreValid)
{
    EXPECT_EQ(validate({roots(), chain(), chain()}).exitStatus, 0);
}

TEST_F(ValidateInParallelExample, ReportsUnreadableFile)
{
    auto const text = write("text", "no certificate");
    auto const run = validate({roots(), text, chain()});
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_TRUE(beginsWith(run.output, text + ": ")) << run.output;
    EXPECT_TRUE(contains(run.output, ": Valid: ")) << run.output;
}

TEST_F(ValidateInParallelExample, RefusesWrongUsage)
{
    expectUsage(VALIDATE_IN_PARALLEL_PROGRAM, "Usage: validate_in_parallel ");
    expectWrongUsage(VALIDATE_IN_PARALLEL_PROGRAM, {});
    expectWrongUsage(VALIDATE_IN_PARALLEL_PROGRAM, {roots()});
    expectWrongUsage(VALIDATE_IN_PARALLEL_PROGRAM, {write("text", "no certificate"), chain()});
}
