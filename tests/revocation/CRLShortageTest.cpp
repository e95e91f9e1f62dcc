#include "certificate/X509CertificateImpl.hpp"

#include "support/allocation/Shortage.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Returns the error code of the leaf's verification with the store's root and CRLs.
int verifyWithCRLs(X509_STORE* store, CertificateAndKey const& leaf)
{
    X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK);
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), store, leaf.certificate.get(), nullptr);
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

class CRLDownload : public LeavesNoTrace
{};

} // namespace

// A CRL for CAs alone does not cover a leaf. Out of memory, OpenSSL reads it as a CRL for all certificates.
TEST_F(CRLDownload, ShortageDoesNotWidenScopeOfCRL)
{
    auto const root = makeRoot("root", [](CertificateSpec& spec) { spec.key = ed25519Key("root"); });
    auto const leaf = makeLeaf(root, "leaf", [](CertificateSpec& spec) {
        spec.key = ed25519Key("leaf");
        spec.setDistributionPoints({"http://127.0.0.2/root.crl"});
    });
    X509Certificate const certificate(leaf.der());
    auto const crlForCAs = makeCrl(root, {}, [](CrlSpec& spec) {
        spec.extensions.push_back({"issuingDistributionPoint", "critical,onlyCA:TRUE"});
    });
    HttpFileServer const server("127.0.0.2", {{"/root.crl", toDer(crlForCAs)}});
    auto const errorAfterDownload = [&](std::size_t allocation, std::size_t numRefusals) {
        auto store = makeX509_STORE(X509_STORE_new());
        X509_STORE_add_cert(store.get(), root.certificate.get());
        auto issuerKey = makeEVP_PKEY(X509_get_pubkey(root.certificate.get()));
        X509CertificateImpl::CRLs crls;
        {
            Shortage const shortage(Memory::OpenSSL, allocation, numRefusals);
            try {
                X509CertificateImpl().downloadCRL(
                    certificate, store, crls, Options::DownloadCRL::Required, issuerKey);
            } catch (std::exception const&) {
                return static_cast<int>(X509_V_ERR_UNABLE_TO_GET_CRL);
            }
        }
        return verifyWithCRLs(store.get(), leaf);
    };

    // Eight refusals lose the scope from at least three neighbouring allocations.
    constexpr std::size_t stride = 2;
    for (std::size_t const numRefusals : {1U, 8U}) {
        std::size_t allocation = 0;
        do {
            auto const error = errorAfterDownload(allocation, numRefusals);
            EXPECT_TRUE(error == X509_V_ERR_DIFFERENT_CRL_SCOPE || error == X509_V_ERR_UNABLE_TO_GET_CRL)
                << error << " after " << numRefusals << " refusals from allocation " << allocation;
            allocation += stride;
        } while (Shortage::hasOccurred());
        EXPECT_GT(allocation, 50U);
    }
}
