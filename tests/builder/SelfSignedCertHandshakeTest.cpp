#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/SelfSigned.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>

#include <string>

// A TLS server uses the built certificate, and the client trusts only this certificate.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

TLSContextHandle serverWith(X509Certificate const& certificate, std::string const& privateKey)
{
    auto const bio = own(BIO_new_mem_buf(privateKey.data(), static_cast<int>(privateKey.size())));
    auto const key = own(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    return makeTLSServer(parsed(certificate), key);
}

TLSContextHandle clientTrusting(X509Certificate const& certificate)
{
    auto client = makeTLSClient();
    TrustStore trusted;
    trusted.addCertificate(certificate);
    attachTrustStoreToSSLCTX(trusted, client.get());
    return client;
}

} // namespace

TEST(SelfSignedCertHandshake, ClientTrustingTheCertificateSucceeds)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().build();

    for (char const* const host : {"localhost", "127.0.0.1"}) {
        EXPECT_EQ(
            verifyResultOfHandshake(clientTrusting(certificate), serverWith(certificate, privateKey), host),
            X509_V_OK)
            << host;
    }
}

TEST(SelfSignedCertHandshake, ClientTrustingAnotherCertificateFails)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().build();
    auto const other = SelfSignedCertBuilder().withCommonName("other").build().first;

    EXPECT_EQ(
        verifyResultOfHandshake(clientTrusting(other), serverWith(certificate, privateKey), "localhost"),
        X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
}

TEST(SelfSignedCertHandshake, OtherHostNameFails)
{
    auto const [certificate, privateKey] = SelfSignedCertBuilder().withCommonName("build.example").build();

    EXPECT_EQ(
        verifyResultOfHandshake(
            clientTrusting(certificate), serverWith(certificate, privateKey), "localhost"),
        X509_V_ERR_HOSTNAME_MISMATCH);
}
