#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include <chrono>

using namespace foundation::test;

namespace {

class Expiry : public FoundationCerts
{
protected:
    std::string fileWith(std::string const& name, std::chrono::hours left) const
    {
        auto const made =
            makeRoot(name, [&](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(left); });
        return write(name + ".pem", made.pem());
    }
};

constexpr std::chrono::hours day(24);

} // namespace

TEST_F(Expiry, SortsByTimeLeft)
{
    auto const later = fileWith("later", 100 * day + day / 2);
    auto const soon = fileWith("soon", 10 * day + day / 2);
    auto const run = foundationCerts({"expiry", later, soon});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "   10 days  ")) << run.output;
    auto const second = run.output.find("\n  100 days  ");
    ASSERT_NE(second, std::string::npos) << run.output;
    EXPECT_TRUE(endsWith(run.output.substr(0, second), "  " + soon + " #1: CN=soon")) << run.output;
    EXPECT_TRUE(endsWith(run.output, "  " + later + " #1: CN=later\n")) << run.output;
}

TEST_F(Expiry, WithinSetsExitStatus)
{
    auto const soon = fileWith("soon", 10 * day + day / 2);
    EXPECT_EQ(foundationCerts({"expiry", "--within", "10d", soon}).exitStatus, 0);
    EXPECT_EQ(foundationCerts({"expiry", "--within", "11d", soon}).exitStatus, 1);
    EXPECT_EQ(foundationCerts({"expiry", "--within", "2w", soon}).exitStatus, 1);

    // That is a time that the clock of most systems cannot hold.
    EXPECT_EQ(foundationCerts({"expiry", "--within", "1000000d", soon}).exitStatus, 1);

    auto const expired = foundationCerts({"expiry", fileWith("expired", -day)});
    EXPECT_EQ(expired.exitStatus, 1);
    EXPECT_TRUE(beginsWith(expired.output, "   expired  ")) << expired.output;

    expectBadInput(foundationCerts({"expiry", "--within", "soon", soon}), "not a duration such as 30d: soon");
}

TEST_F(Expiry, WritesDocumentedJson)
{
    auto const run = foundationCerts({"expiry", "--json", fileWith("expired", -day / 2), leafFile()});

    EXPECT_EQ(run.exitStatus, 1);
    auto const records = jsonLines(run.output, "expiry");
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].at("subject"), "CN=expired");
    EXPECT_EQ(records[0].at("daysLeft"), -1);
    EXPECT_EQ(records[0].at("expires"), true);
    EXPECT_EQ(records[1].at("subject"), "CN=leaf");
    EXPECT_EQ(records[1].at("expires"), false);
}
