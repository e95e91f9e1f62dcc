#include "truststore/windows/WindowsHeader.hpp"

#include "support/allocation/RefusedAllocation.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/LogCapture.hpp"
#include "support/system/windows/SystemStores.hpp"

#include "truststore/TrustStoreImpl.hpp"
#include "truststore/windows/SystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using Usage = TrustStore::Usage;
using Names = std::vector<std::string>;
using Calls = std::vector<std::string>;

constexpr Usage serverAuthentication = Usage::ServerAuthentication;
constexpr Usage signing = Usage::Signing;
constexpr auto unknownUsage = static_cast<Usage>(2);

constexpr char const opened[] = "CertOpenSystemStoreA(0, ROOT)";
constexpr char const searchedForServers[] =
    "CertFindCertificateInStore(1, 0x11, 0xa0000, 2: 1.3.6.1.5.5.7.3.1 2.5.29.37.0)";
constexpr char const closed[] = "CertCloseStore(0)";

constexpr char const garbageText[] =
    "Failed to parse DER data to X509 certificate. Cert size = 3\nCert Bytes =  0x01 0x02 0x03 \n";

/// Returns a root with the extended key usage; without the extension if the text is empty.
CertificateAndKey rootFor(std::string const& name, std::string const& extendedKeyUsage = "")
{
    return makeRoot(name, [&](CertificateSpec& spec) {
        if (!extendedKeyUsage.empty()) {
            spec.setExtension("extendedKeyUsage", extendedKeyUsage);
        }
    });
}

CertificateAndKey expiredRoot()
{
    return makeRoot(
        "expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1)); });
}

/// Plants roots in the user's store. Expects that the adder closes and frees all that it opens.
class WindowsSystemCertificateAdder : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(windows.numOpenStores(), 0);
        EXPECT_EQ(windows.numOpenContexts(), 0);
        EXPECT_TRUE(queueIsEmpty());
    }

    void plant(std::string const& name, CertificateAndKey const& root)
    {
        planted.emplace_back(root.der());
        roots.emplace_back(name, root);
    }

    void plantOneDamagedAmongOthers()
    {
        for (std::string const name : {"one", "damaged", "other"}) {
            plant(name, rootFor(name));
        }
        windows.replace(roots.at(1).second.der(), {1, 2, 3});
    }

    /// Returns the planted roots that the trust store holds.
    template <class Store>
    Names plantedIn(Store const& store) const
    {
        auto const pems = store.getPEMStrings();
        return namesOf([&](CertificateAndKey const& root) {
            return std::find(pems.begin(), pems.end(), root.pem()) != pems.end();
        });
    }

    /// Returns the planted roots that the search found before the one that ended the run, in Windows' order.
    Names plantedBeforeTheEnd() const
    {
        return namesOf([&](CertificateAndKey const& root) {
            auto const place = std::find(windows.found().begin(), windows.found().end(), root.der());
            return place < windows.found().end() - 1;
        });
    }

    /// Returns the planted roots that the adder delivers. No filter runs.
    Names delivered(Usage usage, bool rethrowOnFailure = true) const
    {
        TrustStoreImpl store;
        adder().addCertificatesTo(store, usage, rethrowOnFailure);
        return plantedIn(store);
    }

    static foundation::certificates::windows::SystemCertificateAdder adder() { return {}; }

    SystemStores windows;
    CleanErrorQueue const clean;

private:
    using NamedRoot = std::pair<std::string, CertificateAndKey>;

    template <class Predicate>
    Names namesOf(Predicate isWanted) const
    {
        Names names;
        for (auto const& [name, root] : roots) {
            if (isWanted(root)) {
                names.push_back(name);
            }
        }
        return names;
    }

    std::list<PlantedRoot> planted;
    std::vector<NamedRoot> roots;
};

} // namespace

TEST_F(WindowsSystemCertificateAdder, ExtendedKeyUsageDecides)
{
    for (auto const& [name, usages] : std::vector<std::pair<std::string, std::string>>{
             {"unrestricted", ""},
             {"servers", "serverAuth"},
             {"clients", "clientAuth"},
             {"code", "codeSigning"},
             {"mail", "emailProtection"},
             {"time", "timeStamping"},
             {"any", "anyExtendedKeyUsage"},
             {"revocation", "OCSPSigning"},
             {"clients and servers", "clientAuth,serverAuth"},
             {"clients and time", "critical,clientAuth,timeStamping"}}) {
        plant(name, rootFor(name, usages));
    }

    EXPECT_EQ(
        delivered(serverAuthentication), (Names{"unrestricted", "servers", "any", "clients and servers"}));
    EXPECT_EQ(delivered(signing), (Names{"unrestricted", "code", "mail", "time", "any", "clients and time"}));
}

TEST_F(WindowsSystemCertificateAdder, ServerAuthenticationNamesItsUsagesInOrder)
{
    delivered(serverAuthentication);
    EXPECT_EQ(windows.calls(), (Calls{opened, searchedForServers, closed}));
}

TEST_F(WindowsSystemCertificateAdder, SigningNamesItsUsagesInOrder)
{
    delivered(signing);
    EXPECT_EQ(
        windows.calls(),
        (Calls{
            opened,
            "CertFindCertificateInStore(1, 0x11, 0xa0000, 4: 1.3.6.1.5.5.7.3.3 1.3.6.1.5.5.7.3.4 "
            "1.3.6.1.5.5.7.3.8 2.5.29.37.0)",
            closed}));
}

TEST_F(WindowsSystemCertificateAdder, UnknownUsageNamesNoUsages)
{
    delivered(unknownUsage);
    EXPECT_EQ(
        windows.calls(),
        (Calls{opened, "CertFindCertificateInStore(1, 0x11, 0xa0000, 0: no array)", closed}));
}

TEST_F(WindowsSystemCertificateAdder, FilterRemovesWhatDoesNotFit)
{
    plant("unrestricted", rootFor("unrestricted"));
    plant("servers", rootFor("servers", "serverAuth"));
    plant("expired", makeRoot("expired", [](CertificateSpec& spec) {
              spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1));
          }));
    TrustStore store;

    store.addSystemCertificates(serverAuthentication, true);
    EXPECT_EQ(plantedIn(store), (Names{"unrestricted", "servers"}));
    store.addSystemCertificates(signing, true);
    EXPECT_EQ(plantedIn(store), Names{"unrestricted"});
    store.addSystemCertificates(unknownUsage, true);
    EXPECT_TRUE(store.empty());
}

TEST_F(WindowsSystemCertificateAdder, DamagedCertificateIsLoggedAndSkipped)
{
    plantOneDamagedAmongOthers();
    LogCapture const log;

    EXPECT_EQ(delivered(serverAuthentication, false), (Names{"one", "other"}));

    ASSERT_EQ(log.records().size(), 1U);
    EXPECT_EQ(log.records().front().severity, 16);
    EXPECT_EQ(
        log.messages().front(),
        std::string("Exception caught: foundation::certificates::TrustStoreException: ") + garbageText);
}

TEST_F(WindowsSystemCertificateAdder, DamagedCertificateEndsRunIfFailuresAreRethrown)
{
    plantOneDamagedAmongOthers();
    LogCapture const log;
    TrustStoreImpl store;

    EXPECT_THROWS_EXACTLY(
        TrustStoreException, garbageText, adder().addCertificatesTo(store, serverAuthentication, true));

    EXPECT_EQ(plantedIn(store), plantedBeforeTheEnd());
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(windows.calls(), (Calls{opened, searchedForServers, closed}));
}

TEST_F(WindowsSystemCertificateAdder, FilterDoesNotRunAfterRethrownFailure)
{
    plantOneDamagedAmongOthers();
    auto const expired = expiredRoot();
    TrustStore store;
    store.addCertificate(X509Certificate(expired.der()));

    EXPECT_THROWS_EXACTLY(
        TrustStoreException, garbageText, store.addSystemCertificates(serverAuthentication, true));

    EXPECT_EQ(plantedIn(store), plantedBeforeTheEnd());
    auto const pems = store.getPEMStrings();
    EXPECT_EQ(std::count(pems.begin(), pems.end(), expired.pem()), 1);
}

TEST_F(WindowsSystemCertificateAdder, OtherExceptionsAreNotHandled)
{
    plant("first", rootFor("first"));
    auto const large = makeRoot(
        "large", [](CertificateSpec& spec) { spec.setRawExtension("1.3.6.1.4.1.99999.1", Bytes(54321, 0)); });
    plant("large", large);
    TrustStoreImpl store;
    {
        RefusedAllocation const noMemory(large.der().size());
        EXPECT_THROW(adder().addCertificatesTo(store, serverAuthentication, false), std::bad_alloc);
    }

    auto const added = plantedIn(store);
    EXPECT_EQ(std::count(added.begin(), added.end(), "large"), 0);
}

TEST_F(WindowsSystemCertificateAdder, MachinesStoreIsReadIfUsersCannotBeOpened)
{
    windows.failToOpenTheUsersStore(ERROR_ACCESS_DENIED);
    delivered(serverAuthentication);

    EXPECT_EQ(
        windows.calls(),
        (Calls{opened, "CertOpenStore(10, 0, 0, 0x28000, ROOT)", searchedForServers, closed}));
}

TEST_F(WindowsSystemCertificateAdder, ExceptionNamesWindowsErrorIfNoStoreOpens)
{
    plant("planted", rootFor("planted"));
    windows.failToOpenTheUsersStore(ERROR_FILE_NOT_FOUND);
    windows.failToOpenTheMachinesStore(ERROR_ACCESS_DENIED);
    auto const text = "Failed to open system certificate store: (5) " + windowsErrorText(5);
    EXPECT_GT(windowsErrorText(5).size(), 0U);
    LogCapture const log;
    TrustStoreImpl impl;

    EXPECT_THROWS_EXACTLY(
        TrustStoreException, text, adder().addCertificatesTo(impl, serverAuthentication, false));
    EXPECT_TRUE(impl.empty());

    auto const expired = makeRoot(
        "expired", [](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(std::chrono::hours(-1)); });
    TrustStore store;
    store.addCertificate(X509Certificate(expired.der()));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, text, store.addSystemCertificates(serverAuthentication, false));
    EXPECT_EQ(store.size(), 1U);
    EXPECT_TRUE(log.records().empty());
}

TEST_F(WindowsSystemCertificateAdder, ErrorWithoutTextIsReportedByItsCode)
{
    windows.failToOpenTheUsersStore(ERROR_ACCESS_DENIED);
    windows.failToOpenTheMachinesStore(3735928559);
    ASSERT_EQ(windowsErrorText(3735928559), "");

    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to open system certificate store: (3735928559) ",
        delivered(serverAuthentication));
}
