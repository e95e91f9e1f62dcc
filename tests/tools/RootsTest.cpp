#include "tools/FoundationCerts.hpp"

#include "support/system/ScopedVariable.hpp"

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
}
