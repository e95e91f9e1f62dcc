#include "support/assertions/ExactThrow.hpp"
#include "support/system/ScopedVariable.hpp"
#include "support/system/TemporaryFolder.hpp"
#include "support/toolkit/Paths.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <fstream>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

TEST(PathValidatorWithSystemRoots, TrustsThem)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    TemporaryFolder const folder;
    auto const file = folder.path() / "roots.pem";
    std::ofstream(file) << root.pem();
    ScopedVariable const systemRoots("SSL_CERT_FILE", file.string());

    auto const validator = PathValidator::withSystemRoots();
    expectValid(validator.validate(certificateOf(leaf), {}), {leaf, root});
    auto const other = makeLeaf(makeRoot("other"), "other leaf");
    expectFailure(
        validator.validate(certificateOf(other), {}), X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, 0,
        "CN=other leaf");
}

TEST(PathValidatorWithSystemRoots, TakesThoseOfUsage)
{
    auto const forServers = makeRoot(
        "servers", [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "serverAuth"); });
    auto const forSigning = makeRoot(
        "signing", [](CertificateSpec& spec) { spec.setExtension("extendedKeyUsage", "codeSigning"); });
    TemporaryFolder const folder;
    auto const file = folder.path() / "roots.pem";
    std::ofstream(file) << forServers.pem() << forSigning.pem();
    ScopedVariable const systemRoots("SSL_CERT_FILE", file.string());

    auto const trusts = [](PathValidator const& validator, CertificateAndKey const& root) {
        return validator.validate(certificateOf(makeLeaf(root, "leaf")), {}).isValid();
    };
    auto const servers = PathValidator::withSystemRoots(TrustStore::Usage::ServerAuthentication);
    EXPECT_TRUE(trusts(servers, forServers));
    EXPECT_FALSE(trusts(servers, forSigning));
    auto const signing = PathValidator::withSystemRoots(TrustStore::Usage::Signing);
    EXPECT_FALSE(trusts(signing, forServers));
    EXPECT_TRUE(trusts(signing, forSigning));
}

TEST(PathValidatorWithSystemRoots, FailsWithoutThem)
{
    TemporaryFolder const folder;
    auto const file = (folder.path() / "missing.pem").string();
    ScopedVariable const systemRoots("SSL_CERT_FILE", file);
    EXPECT_THROW(PathValidator::withSystemRoots(), TrustStoreException);
}
