// The adder on the real store of Windows. The number of roots depends on the system: Wine finds none by
// usage.
#include "truststore/windows/WindowsHeader.hpp"

#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"

#include "truststore/TrustStoreImpl.hpp"
#include "truststore/windows/SystemCertificateAdder.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <set>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Usage = TrustStore::Usage;

constexpr Usage everyUsage[] = {Usage::ServerAuthentication, Usage::Signing, static_cast<Usage>(2)};

/// Returns all roots in the current user's root store.
std::set<Bytes> rootsOfWindows()
{
    std::set<Bytes> roots;
    auto* const store = CertOpenSystemStoreA(0, "ROOT");
    PCCERT_CONTEXT root = nullptr;
    while ((root = CertEnumCertificatesInStore(store, root)) != nullptr) {
        roots.insert(Bytes(root->pbCertEncoded, root->pbCertEncoded + root->cbCertEncoded));
    }
    CertCloseStore(store, 0);
    return roots;
}

} // namespace

TEST(WindowsRootStore, SearchEndsForEveryUsage)
{
    for (auto const usage : everyUsage) {
        CleanErrorQueue const clean;
        TrustStoreImpl store;
        windows::SystemCertificateAdder().addCertificatesTo(store, usage, false);
        EXPECT_LE(store.size(), rootsOfWindows().size());
        EXPECT_TRUE(queueIsEmpty());
    }
}

TEST(WindowsRootStore, OnlyRootsOfWindowsAreDelivered)
{
    auto const roots = rootsOfWindows();
    EXPECT_FALSE(roots.empty());
    TrustStore store;
    store.addSystemCertificates(Usage::ServerAuthentication, false);
    for (auto const& certificate : store.getCertificates().getCertificates()) {
        EXPECT_EQ(roots.count(certificate.getAsBytes()), 1U);
    }
}

TEST(WindowsRootStore, DefaultTrustStoreReadsWindowsRoots)
{
    TrustStore const store;
    TrustStore copy(store);
    EXPECT_NO_THROW(copy.addSystemCertificates(Usage::Signing, true));
}

TEST(WindowsRootStore, FileAndFolderAreEmpty)
{
    EXPECT_EQ(getSystemCertificatesFile(), "");
    EXPECT_EQ(getSystemCertificatesFolder(), "");
}

TEST(WindowsRootStore, CloneIsNewAdderOfSameKind)
{
    windows::SystemCertificateAdder const adder;
    std::unique_ptr<ISystemCertificateAdder> const clone(adder.clone());
    EXPECT_NE(clone.get(), &adder);
    EXPECT_NE(dynamic_cast<windows::SystemCertificateAdder*>(clone.get()), nullptr);
}
