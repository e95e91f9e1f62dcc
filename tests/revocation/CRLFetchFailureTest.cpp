#include "certificate/X509CertificateImpl.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using DownloadCRL = CertificateValidationOptions::DownloadCRL;

using CRLFetchFailure = LeavesNoTrace;

} // namespace

// The library's download lets no failure out, and a test cannot provoke a failure of the steps after it, such
// as writing the file. So these functions replace the library's download.
namespace foundation::certificates {

std::vector<std::string>
X509CertificateImpl::getCRLDistributionPoints(X509Certificate const& /*certificate*/) const
{
    return {"http://crl.example/root.crl"};
}

std::string X509CertificateImpl::fetchHttpResponse(
    std::string const& host, std::string const& path, DownloadCRL /*mode*/) const
{
    throw std::runtime_error("nothing at " + host + path);
}

void X509CertificateImpl::throwIfRequired(DownloadCRL mode, std::string message) const
{
    if (mode == DownloadCRL::Required) {
        throw X509CertificateException(message);
    }
}

} // namespace foundation::certificates

TEST_F(CRLFetchFailure, ThrowsOnlyIfCrlIsRequired)
{
    auto const root = makeRoot("root");
    X509Certificate const leaf(makeLeaf(root, "leaf").der());
    auto issuerKey = makeEVP_PKEY(X509_get_pubkey(root.certificate.get()));
    auto store = makeX509_STORE(X509_STORE_new());
    X509CertificateImpl::CRLs crls;
    auto const download = [&](DownloadCRL mode) {
        return X509CertificateImpl().downloadCRL(leaf, store, crls, mode, issuerKey);
    };

    CleanErrorQueue const clean;
    EXPECT_FALSE(download(DownloadCRL::None));
    EXPECT_FALSE(download(DownloadCRL::BestEffort));
    EXPECT_TRUE(queueIsEmpty());
    EXPECT_THROWS_EXACTLY(
        X509CertificateException,
        "CRL Download Error: Unable to get Certificate Revocation List HTTP data. nothing at "
        "crl.example/root.crl\n",
        download(DownloadCRL::Required));
    EXPECT_TRUE(crls.empty());
}
