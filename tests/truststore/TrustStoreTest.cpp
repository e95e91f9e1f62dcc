#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/err.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const unsupportedEntryText[] = "Unsupported object type found in TrustStore";

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"intermediate", "root"}, {"leaf", "intermediate"}});
    return topology;
}

X509Certificate certificate(std::string const& name)
{
    return X509Certificate(pki()[name].der());
}

TrustStore storeNaming(std::vector<std::string> const& names)
{
    TrustStore store;
    for (std::string const& name : names) {
        store.addCertificate(certificate(name));
    }
    return store;
}

/// Adds an entry of type X509_LU_NONE, which no operation of OpenSSL adds.
void addEntryOfNoType(X509_STORE* store)
{
    require(sk_X509_OBJECT_push(X509_STORE_get0_objects(store), X509_OBJECT_new()));
}

/// Returns a certificate without a signature algorithm. OpenSSL cannot encode it.
X509Handle unencodableCertificate(std::string const& name)
{
    auto const made = own(X509_new());
    require(X509_set_subject_name(made.get(), makeName(commonName(name)).get()));
    return made;
}

X509* certificateIn(X509_STORE* store, int index)
{
    return X509_OBJECT_get0_X509(sk_X509_OBJECT_value(X509_STORE_get0_objects(store), index));
}

X509_CRL* crlIn(X509_STORE* store, int index)
{
    return X509_OBJECT_get0_X509_CRL(sk_X509_OBJECT_value(X509_STORE_get0_objects(store), index));
}

/// Counts its clones and its runs.
class CountingAdder : public ISystemCertificateAdder
{
public:
    struct Counts
    {
        int clones = 0;
        int runs = 0;
    };

    explicit CountingAdder(Counts& target) : counts(target) {}

    ISystemCertificateAdder* clone() const override
    {
        ++counts.clones;
        return new CountingAdder(counts);
    }
    void addCertificatesTo(TrustStoreImpl& /*store*/, TrustStore::Usage /*usage*/, bool /*rethrow*/) override
    {
        ++counts.runs;
    }

private:
    Counts& counts;
};

} // namespace

TEST(TrustStoreUsage, ValuesAreFixed32BitNumbers)
{
    EXPECT_EQ(static_cast<std::uint32_t>(TrustStore::Usage::ServerAuthentication), 0U);
    EXPECT_EQ(static_cast<std::uint32_t>(TrustStore::Usage::Signing), 1U);
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<TrustStore::Usage>, std::uint32_t>));
}

TEST(TrustStoreConstruction, DefaultStoreIsEmpty)
{
    TrustStore const store;
    EXPECT_TRUE(store.empty());
    EXPECT_EQ(store.size(), 0U);
    EXPECT_EQ(store.getCertificates(), X509CertificateChain());
    EXPECT_EQ(store.getPEMStrings(), std::vector<std::string>());
}

TEST(TrustStoreAddCertificate, CertificateIsHeldOnce)
{
    TrustStore store;
    store.addCertificate(certificate("root"));
    store.addCertificate(certificate("root"));
    EXPECT_EQ(store.size(), 1U);
    EXPECT_FALSE(store.empty());
    EXPECT_EQ(store.getCertificates().getCertificates(), std::vector<X509Certificate>{certificate("root")});
}

TEST(TrustStoreAddCertificate, LeafIsAdded)
{
    TrustStore const store = storeNaming({"leaf"});
    EXPECT_EQ(store.getCertificates().getCertificates(), std::vector<X509Certificate>{certificate("leaf")});
}

TEST(TrustStoreAddCertificate, StoreHoldsItsOwnDuplicate)
{
    TrustStore const store = storeNaming({"root"});
    X509Certificate const handedOut = store.getCertificates().getCertificates().front();
    auto const live = getOpenSSLStore(store);
    auto const copy = copyOpenSSLStore(TrustStore(store));
    EXPECT_NE(certificateIn(live.get(), 0), certificateIn(copy.get(), 0));
    EXPECT_EQ(X509_cmp(certificateIn(live.get(), 0), certificateIn(copy.get(), 0)), 0);
    EXPECT_EQ(handedOut, certificate("root"));
}

TEST(TrustStoreAddCertificate, EmptyCertificateIsRefused)
{
    TrustStore store = storeNaming({"root"});
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Input certificate is empty.", store.addCertificate(X509Certificate()));
    X509Certificate source = certificate("leaf");
    X509Certificate const target(std::move(source));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        store.addCertificate(source)); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(store.size(), 1U);
}

TEST(TrustStoreAddCertificates, OnlyCACertificatesAreAdded)
{
    struct Row
    {
        std::vector<std::string> chain;
        std::size_t sizeOfStore;
    };
    for (Row const& row : std::vector<Row>{
             {/*chain=*/{}, /*sizeOfStore=*/0},
             {/*chain=*/{"leaf"}, /*sizeOfStore=*/0},
             {/*chain=*/{"root", "leaf"}, /*sizeOfStore=*/1},
             {/*chain=*/{"leaf", "intermediate", "root"}, /*sizeOfStore=*/2},
             {/*chain=*/{"root", "root", "leaf", "root"}, /*sizeOfStore=*/1}}) {
        X509CertificateChain const chain =
            row.chain.empty() ? X509CertificateChain() : X509CertificateChain(pki().pemBundle(row.chain));
        TrustStore store;
        store.addCertificates(chain);
        EXPECT_EQ(store.size(), row.sizeOfStore);
        for (X509Certificate const& member : store.getCertificates().getCertificates()) {
            EXPECT_TRUE(member.isCACertificate());
        }
    }
}

TEST(TrustStoreAddCertificates, MovedFromChainIsRefused)
{
    X509CertificateChain source;
    X509CertificateChain const target(std::move(source));
    TrustStore store;
    EXPECT_THROWS_EXACTLY(
        X509CertificateChainException, "Error: X509CertificateChain is uninitialized.",
        store.addCertificates(source)); // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(store.empty());
}

TEST(TrustStoreCopy, CopyAndSourceAreIndependent)
{
    TrustStore original = storeNaming({"root"});
    TrustStore copy(original);
    original.addCertificate(certificate("leaf"));
    EXPECT_EQ(copy.size(), 1U);
    copy.addCertificate(certificate("intermediate"));
    copy.addCertificate(certificate("leaf"));
    EXPECT_EQ(original.size(), 2U);
    EXPECT_EQ(copy.size(), 3U);
}

TEST(TrustStoreCopy, CertificatesAreDuplicatedAndCrlsShared)
{
    TrustStore const original = storeNaming({"root"});
    addCrl(original, makeCrl(pki()["root"]));
    TrustStore const copy(original);
    EXPECT_EQ(copy.size(), 2U);
    auto const left = getOpenSSLStore(original);
    auto const right = getOpenSSLStore(copy);
    int shared = 0;
    for (int leftIndex = 0; leftIndex < 2; ++leftIndex) {
        for (int rightIndex = 0; rightIndex < 2; ++rightIndex) {
            X509* const duplicate = certificateIn(left.get(), leftIndex);
            EXPECT_TRUE(duplicate == nullptr || duplicate != certificateIn(right.get(), rightIndex));
            X509_CRL* const crl = crlIn(left.get(), leftIndex);
            shared += crl != nullptr && crl == crlIn(right.get(), rightIndex) ? 1 : 0;
        }
    }
    EXPECT_EQ(shared, 1);
}

TEST(TrustStoreCopy, EveryEntryIsCopied)
{
    TrustStore original;
    addCrl(original, makeCrl(pki()["root"]));
    addCrl(original, makeCrl(makeRoot("a root that comes first")));
    require(X509_STORE_add_cert(getOpenSSLStore(original).get(), pki()["root"].certificate.get()));
    require(X509_STORE_add_cert(getOpenSSLStore(original).get(), pki()["leaf"].certificate.get()));
    TrustStore const copy(original);
    EXPECT_EQ(copy.size(), 4U);
    auto const store = getOpenSSLStore(copy);
    int certificates = 0;
    int crls = 0;
    for (int index = 0; index < 4; ++index) {
        certificates += certificateIn(store.get(), index) != nullptr ? 1 : 0;
        crls += crlIn(store.get(), index) != nullptr ? 1 : 0;
    }
    EXPECT_EQ(certificates, 2);
    EXPECT_EQ(crls, 2);
}

TEST(TrustStoreCopy, CertificateThatCannotBeDuplicatedIsReported)
{
    struct Row
    {
        X509Handle certificate;
        std::string text;
    };
    auto const nameless = own(X509_new());
    for (Row const& row : std::vector<Row>{
             {unencodableCertificate("unencodable"), "Failed to add certificate to store, CN: unencodable"},
             {nameless, "Failed to add certificate to store, CN: "}}) {
        TrustStore store = storeNaming({"root"});
        require(X509_STORE_add_cert(getOpenSSLStore(store).get(), row.certificate.get()));
        EXPECT_THROWS_EXACTLY(TrustStoreException, row.text, TrustStore(store));
        EXPECT_THROWS_EXACTLY(TrustStoreException, row.text, copyOpenSSLStore(store));
        TrustStore target = storeNaming({"leaf"});
        EXPECT_THROWS_EXACTLY(TrustStoreException, row.text, target = store);
        EXPECT_EQ(target.size(), 1U);
        EXPECT_EQ(store.size(), 2U);
    }
}

TEST(TrustStoreCopy, SelfAssignmentMakesNewEqualStore)
{
    TrustStore store = storeNaming({"root", "leaf"});
    auto const before = store.getPEMStrings();
    auto const oldStore = getOpenSSLStore(store);
    auto const& same = store;
    store = same;
    EXPECT_EQ(store.getPEMStrings(), before);
    EXPECT_NE(getOpenSSLStore(store), oldStore);
}

TEST(TrustStoreMovedFrom, SourceReadsAsEmptyAndCannotBeCopied)
{
    TrustStore source = storeNaming({"root"});
    TrustStore const target(std::move(source));
    // NOLINTBEGIN(bugprone-use-after-move): the state of the source is documented
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.size(), 0U);
    EXPECT_EQ(source.getCertificates(), X509CertificateChain());
    EXPECT_EQ(source.getPEMStrings(), std::vector<std::string>());
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Error: TrustStore is uninitialized.", TrustStore(source));
    source.addCertificates(X509CertificateChain());
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Error: TrustStore is uninitialized.", TrustStore(source));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Input certificate is empty.", source.addCertificate(X509Certificate()));
    // NOLINTEND(bugprone-use-after-move)
    EXPECT_EQ(target.size(), 1U);
}

TEST(TrustStoreMovedFrom, AddingMakesSourceUsable)
{
    auto const addSystemCertificates = [](TrustStore& store) {
        try {
            store.addSystemCertificates(TrustStore::Usage::Signing);
        } catch (TrustStoreException const& noRootsOnThisMachine) {
            EXPECT_EQ(
                std::string(noRootsOnThisMachine.what())
                    .rfind("Failed to open system certificate store: ", 0),
                0U);
        }
    };
    std::vector<std::function<void(TrustStore&)>> const additions = {
        [](TrustStore& store) { store.addCertificate(certificate("root")); },
        [](TrustStore& store) { store.addCertificates(X509CertificateChain(pki()["root"].pem())); },
        addSystemCertificates};
    for (auto const& add : additions) {
        TrustStore source = storeNaming({"leaf", "intermediate"});
        TrustStore const target(std::move(source));
        add(source); // NOLINT(bugprone-use-after-move): the state of the source is documented
        EXPECT_NO_THROW(TrustStore{source});
    }
    TrustStore source = storeNaming({"leaf", "intermediate"});
    TrustStore const target(std::move(source));
    source.addCertificate(certificate("root")); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.size(), 1U);
}

TEST(TrustStoreSwap, ContentsAreExchanged)
{
    TrustStore left = storeNaming({"root"});
    TrustStore right = storeNaming({"leaf", "intermediate"});
    left.swap(right);
    EXPECT_EQ(left.size(), 2U);
    EXPECT_EQ(right.size(), 1U);
    left.swap(left);
    EXPECT_EQ(left.size(), 2U);
    left = std::move(right);
    EXPECT_EQ(left.size(), 1U);
    EXPECT_EQ(right.size(), 2U); // NOLINT(bugprone-use-after-move): the state of the source is documented
}

TEST(TrustStoreAdder, CopyClonesAdderAndMoveLosesIt)
{
    CountingAdder::Counts counts;
    TrustStore store(std::make_unique<CountingAdder>(counts));
    EXPECT_EQ(counts.clones, 0);
    TrustStore copy(store);
    EXPECT_EQ(counts.clones, 1);
    copy.addSystemCertificates(TrustStore::Usage::Signing);
    store.addSystemCertificates(TrustStore::Usage::Signing);
    EXPECT_EQ(counts.runs, 2);

    TrustStore const target(std::move(store));
    store.addCertificate(certificate("root")); // NOLINT(bugprone-use-after-move)
    TrustStore const copyWithDefaultAdder(store);
    EXPECT_EQ(counts.clones, 1);
}

TEST(TrustStoreAdder, NullAdderIsReportedOnUse)
{
    TrustStore store{std::unique_ptr<ISystemCertificateAdder>()};
    store.addCertificate(certificate("root"));
    EXPECT_EQ(store.size(), 1U);
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Error: TrustStore is uninitialized.", TrustStore(store));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Error: TrustStore is uninitialized.",
        store.addSystemCertificates(TrustStore::Usage::Signing));
    EXPECT_EQ(store.size(), 1U);
}

TEST(TrustStoreOutput, PEMTextAndOrderAreThoseOfOpenSSL)
{
    TrustStore const store = storeNaming({"root", "leaf", "intermediate"});
    auto const live = getOpenSSLStore(store);
    std::vector<std::string> expected;
    for (int index = 0; index < 3; ++index) {
        expected.push_back(toPem(share(certificateIn(live.get(), index))));
    }
    EXPECT_EQ(store.getPEMStrings(), expected);

    auto const certificates = store.getCertificates().getCertificates();
    ASSERT_EQ(certificates.size(), 3U);
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(X509Certificate(expected[index]), certificates[index]);
    }
}

TEST(TrustStoreOutput, CertificateWithWeakKeyIsListedAsPEMOnly)
{
    TrustStoreImpl store;
    auto const weak = makeRoot("weak", [](CertificateSpec& spec) { spec.key = rsaKey(1023); });
    store.addDERCertificate(weak.der());
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "RSA key size does not meet minimum cryptographic requirements",
        store.getCertificates());
    EXPECT_EQ(store.getPEMStrings(), std::vector<std::string>{weak.pem()});
}

TEST(TrustStoreOutput, CertificateThatCannotBeEncodedIsReported)
{
    TrustStore const store;
    require(X509_STORE_add_cert(getOpenSSLStore(store).get(), unencodableCertificate("unencodable").get()));
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to convert X509 to PEM", store.getPEMStrings());
}

TEST(TrustStoreOutput, CrlIsCountedAndCannotBeListed)
{
    TrustStore const store;
    addCrl(store, makeCrl(pki()["root"]));
    EXPECT_EQ(store.size(), 1U);
    EXPECT_FALSE(store.empty());
    EXPECT_THROWS_EXACTLY(TrustStoreException, unsupportedEntryText, store.getCertificates());
    EXPECT_THROWS_EXACTLY(TrustStoreException, unsupportedEntryText, store.getPEMStrings());
    EXPECT_EQ(TrustStore(store).size(), 1U);
}

TEST(TrustStoreOutput, EntryOfNoTypeCannotBeListedOrCopied)
{
    TrustStore const store = storeNaming({"root"});
    addEntryOfNoType(getOpenSSLStore(store).get());
    EXPECT_EQ(store.size(), 2U);
    EXPECT_THROWS_EXACTLY(TrustStoreException, unsupportedEntryText, store.getCertificates());
    EXPECT_THROWS_EXACTLY(TrustStoreException, unsupportedEntryText, store.getPEMStrings());
    EXPECT_THROWS_EXACTLY(TrustStoreException, unsupportedEntryText, TrustStore(store));
}

TEST(TrustStoreErrorQueue, ErrorQueueIsUnchanged)
{
    CountingAdder::Counts counts;
    TrustStore store(std::make_unique<CountingAdder>(counts));
    TrustStoreImpl implementation;
    // Made before the loop, because loading a certificate clears the queue.
    X509Certificate const root = certificate("root");
    X509CertificateChain const chain(pki().pemBundle({"root", "leaf"}));
    TrustStore const withCrl;
    addCrl(withCrl, makeCrl(pki()["root"]));
    TrustStore const withUnencodable;
    require(X509_STORE_add_cert(getOpenSSLStore(withUnencodable).get(), unencodableCertificate("x").get()));
    TrustStoreImpl withUndecodableKey;
    withUndecodableKey.addX509(makeRoot("undecodable", [](CertificateSpec& spec) {
                                   spec.publicKeyFault = PublicKeyFault::Undecodable;
                               }).certificate.get());
    std::vector<std::pair<std::string, std::function<void()>>> const operations = {
        {"construct", [] { TrustStore const made; }},
        {"copy", [&] { TrustStore const copy(store); }},
        {"copy that fails", [&] { TrustStore const copy(withUnencodable); }},
        {"copy for OpenSSL that fails", [&] { copyOpenSSLStore(withUnencodable); }},
        {"addCertificate", [&] { store.addCertificate(root); }},
        {"addCertificate again", [&] { store.addCertificate(root); }},
        {"addCertificate that fails", [&] { store.addCertificate(X509Certificate()); }},
        {"addCertificates", [&] { store.addCertificates(chain); }},
        {"addSystemCertificates",
         [&] { store.addSystemCertificates(TrustStore::Usage::ServerAuthentication); }},
        {"size", [&] { store.size(); }},
        {"getCertificates", [&] { store.getCertificates(); }},
        {"getCertificates that fails", [&] { withCrl.getCertificates(); }},
        {"getCertificates that fails because of a key", [&] { withUndecodableKey.getCertificates(); }},
        {"getPEMStrings", [&] { store.getPEMStrings(); }},
        {"getPEMStrings that fails", [&] { withUnencodable.getPEMStrings(); }},
        {"addDERCertificate that fails",
         [&] {
             implementation.addDERCertificate({1, 2, 3});
         }},
        {"addX509 that fails", [&] { implementation.addX509(nullptr); }},
    };
    for (auto const& [name, operation] : operations) {
        SCOPED_TRACE(name);
        CleanErrorQueue const clean;
        auto const older = queueForeignError();
        auto const newer = queueForeignError();
        try {
            operation();
        } catch (std::runtime_error const&) {
            EXPECT_NE(name.find(" that fails"), std::string::npos);
        }
        EXPECT_EQ(drainErrorQueue(), (std::vector<unsigned long>{older, newer}));
    }
}
