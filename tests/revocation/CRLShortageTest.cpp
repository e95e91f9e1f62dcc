#include "certificate/X509CertificateImpl.hpp"

#include "support/allocation/Shortage.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/LeavesNoTrace.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/Revocable.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/ScriptedServer.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <memory>

#include <dlfcn.h>

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

constexpr int noCall = -1;
int callWithoutMemory = noCall; // of the function below, counted from 0

} // namespace

/// Replaces OpenSSL's function: calls it, or fails as it does without memory.
int X509_STORE_add_crl(X509_STORE* store, X509_CRL* crl)
{
    static auto* const original =
        reinterpret_cast<decltype(&X509_STORE_add_crl)>(dlsym(RTLD_NEXT, "X509_STORE_add_crl"));
    return callWithoutMemory-- == 0 ? 0 : original(store, crl);
}

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

// A bad signature leads to the fallback store only if a second verification, in a new store, finds it again.
TEST_F(CRLDownload, SecondVerificationFailsIfNewStoreTakesNoCRL)
{
    Revocable const damaged([](CertificateSpec& spec) { spec.damagedSignature = true; });
    HttpFileServer const server("127.0.0.1", filesOf(damaged.leafCrl(), damaged.caCrl()));
    auto const store = storeOf({damaged.root});
    auto const options = optionsWith(
        {}, Options::CheckCRL::LeafOnly, Options::DownloadCRL::Required, std::make_shared<TrustStore>(store));
    auto const leaf = load(damaged.leaf);
    auto const chain = chainOf({damaged.ca, damaged.root});
    ASSERT_EQ(
        leaf.validateCertificate(chain, options, store).getCertificateChainStatus(),
        CertificateChainStatus::BadSignature);

    callWithoutMemory = 1; // the first one adds the CRL that was downloaded
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to add CRL to store", leaf.validateCertificate(chain, options, store));
    EXPECT_LT(callWithoutMemory, 0);
    callWithoutMemory = noCall;
}
