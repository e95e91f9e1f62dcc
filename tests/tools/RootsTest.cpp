#include "support/system/ScopedVariable.hpp"
#include "tools/FoundationCerts.hpp"
#include "tools/JsonLines.hpp"

#include <chrono>

using namespace foundation::test;

namespace {

using Roots = FoundationCerts;

} // namespace

TEST_F(Roots, SaysWhatIsKeptAndDropped)
{
    auto const expired = makeRoot(
        "old", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-std::chrono::hours(1)); });
    ScopedVariable const file("SSL_CERT_FILE", write("roots.pem", root.pem() + expired.pem()));
    auto const run = foundationCerts({"roots"});

    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(beginsWith(run.output, "CN=root, until ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\nDropped: Certificate (CN: old) expired ")) << run.output;
    EXPECT_TRUE(endsWith(run.output, "\n1 trusted, 1 dropped\n")) << run.output;

    auto const records =
        jsonLines(foundationCerts({"roots", "--usage", "signing", "--json"}).output, "roots");
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].at("subject"), "CN=root");
    EXPECT_EQ(records[1].at("kept"), false);
}

TEST_F(Roots, SucceedsIfNoneIsDropped)
{
    ScopedVariable const file("SSL_CERT_FILE", rootFile());
    auto const run = foundationCerts({"roots"});

    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(endsWith(run.output, "\n1 trusted, 0 dropped\n")) << run.output;
}

TEST_F(Roots, ReportsMissingRoots)
{
    ScopedVariable const file("SSL_CERT_FILE", pathOf("missing.pem"));
    auto const run = foundationCerts({"roots"});

    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.output, "");
    EXPECT_TRUE(beginsWith(run.errors, "foundation-certs: Failed to ")) << run.errors;
}
