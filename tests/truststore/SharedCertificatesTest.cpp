#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/x509_vfy.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Trust stores share certificates with handles, with results and with each other. Nobody can tell: what one
// of them does, and what others do with a store that was handed out, stays without effect on the rest.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}, {"other", ""}});
    return topology;
}

Status verdict(TrustStore const& store)
{
    static auto const leaf = load(pki()["leaf"]);
    static auto const chain = chainOf({pki()["ca"]});
    return leaf.validateCertificate(chain, Options(), store).getCertificateChainStatus();
}

STACK_OF(X509_OBJECT) * entriesOf(std::shared_ptr<X509_STORE> const& store)
{
    return X509_STORE_get0_objects(store.get());
}

X509* certificateAt(std::shared_ptr<X509_STORE> const& store, int index)
{
    return X509_OBJECT_get0_X509(sk_X509_OBJECT_value(entriesOf(store), index));
}

/// Declares that the certificate is trusted for nothing.
void reject(X509* certificate)
{
    require(X509_add1_reject_object(certificate, OBJ_nid2obj(NID_anyExtendedKeyUsage)));
}

/// The verdict of bare OpenSSL on the leaf.
int bareVerify(std::shared_ptr<X509_STORE> const& store)
{
    auto const untrusted =
        std::shared_ptr<STACK_OF(X509)>(sk_X509_new_null(), [](auto* s) { sk_X509_free(s); });
    require(sk_X509_push(untrusted.get(), pki()["ca"].certificate.get()));
    std::shared_ptr<X509_STORE_CTX> const context(X509_STORE_CTX_new(), X509_STORE_CTX_free);
    require(
        X509_STORE_CTX_init(context.get(), store.get(), pki()["leaf"].certificate.get(), untrusted.get()));
    X509_verify_cert(context.get());
    return X509_STORE_CTX_get_error(context.get());
}

/// Adds roots of several names, some of them equal, so that sorting would move the last one.
TrustStore storeInOrder()
{
    TrustStore store;
    for (char const* const name : {"m", "z", "a", "root", "z", "k", "b"}) {
        store.addCertificate(load(makeRoot(name)));
    }
    store.addCertificate(load(pki()["root"]));
    store.addCertificate(load(makeRoot("a", [](CertificateSpec& spec) { spec.subject = commonName("aa"); })));
    return store;
}

CertificateAndKey rootOfEqualName(Mutation const& mutate = {})
{
    return makeRoot("root", mutate);
}

} // namespace

TEST(LiveStore, TrustSettingsReachNoOtherStoreAndNoValidation)
{
    auto const root = load(pki()["root"]);
    TrustStore store;
    store.addCertificate(root);
    TrustStore const earlierCopy(store);
    auto const live = getOpenSSLStore(store);
    EXPECT_EQ(verdict(store), Status::Valid);
    TrustStore const laterCopy(store);
    ASSERT_EQ(bareVerify(live), X509_V_OK);

    reject(certificateAt(live, 0));
    EXPECT_EQ(bareVerify(live), X509_V_ERR_CERT_REJECTED);
    EXPECT_EQ(verdict(store), Status::Valid);
    EXPECT_EQ(verdict(earlierCopy), Status::Valid);
    EXPECT_EQ(verdict(laterCopy), Status::Valid);
    EXPECT_EQ(verdict(TrustStore(store)), Status::Valid);
    EXPECT_EQ(bareVerify(getOpenSSLStore(earlierCopy)), X509_V_OK);
    EXPECT_EQ(bareVerify(getOpenSSLStore(laterCopy)), X509_V_OK);
    EXPECT_EQ(bareVerify(copyOpenSSLStore(store)), X509_V_OK);

    TrustStore ofSameHandle;
    ofSameHandle.addCertificate(root);
    ofSameHandle.addCertificates(store.getCertificates());
    EXPECT_EQ(bareVerify(getOpenSSLStore(ofSameHandle)), X509_V_OK);
}

TEST(LiveStore, TrustSettingsAtHandOutReachNoValidation)
{
    TrustStore store;
    auto const live = getOpenSSLStore(store);
    store.addCertificate(load(pki()["root"]));
    reject(certificateAt(live, 0));
    EXPECT_EQ(bareVerify(live), X509_V_ERR_CERT_REJECTED);
    EXPECT_EQ(verdict(store), Status::Valid);
}

TEST(LiveStore, SharesNoCertificateWithHandlesAndOtherStores)
{
    auto const root = load(pki()["root"]);
    TrustStore first;
    TrustStore second;
    auto const firstLive = getOpenSSLStore(first);
    for (TrustStore* const store : {&first, &second}) {
        store->addCertificate(root);
        store->addCertificates(chainOf({pki()["ca"]}));
    }
    TrustStore const copy(second);
    auto const secondLive = getOpenSSLStore(second);
    auto const copyLive = getOpenSSLStore(copy);
    for (int index = 0; index < 2; ++index) {
        EXPECT_NE(certificateAt(firstLive, index), certificateAt(secondLive, index));
        EXPECT_NE(certificateAt(firstLive, index), certificateAt(copyLive, index));
        EXPECT_NE(certificateAt(secondLive, index), certificateAt(copyLive, index));
    }
}

TEST(LiveStore, ChangesFromOutsideCountAtNextValidation)
{
    TrustStore store = storeOf({pki()["other"]});
    EXPECT_EQ(verdict(store), Status::Untrusted);
    auto const live = getOpenSSLStore(store);
    EXPECT_EQ(verdict(store), Status::Untrusted);

    require(X509_STORE_add_cert(live.get(), pki()["root"].certificate.get()));
    EXPECT_EQ(verdict(store), Status::Valid);
    EXPECT_EQ(verdict(TrustStore(store)), Status::Valid);

    TrustStore const copyWithRoot(store);
    auto* const entries = entriesOf(live);
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        if (X509_cmp(certificateAt(live, index), pki()["root"].certificate.get()) == 0) {
            X509_OBJECT_free(sk_X509_OBJECT_delete(entries, index));
            break;
        }
    }
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(verdict(store), Status::Untrusted);
    EXPECT_EQ(verdict(copyWithRoot), Status::Valid);
    EXPECT_EQ(verdict(TrustStore(store)), Status::Untrusted);
}

TEST(LiveStore, ReplacedCertificateCountsAtNextValidation)
{
    auto const expired =
        rootOfEqualName([](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); });
    TrustStore store;
    auto const live = getOpenSSLStore(store);
    require(X509_STORE_add_cert(live.get(), expired.certificate.get()));
    EXPECT_EQ(verdict(store), Status::Expired);
    X509_OBJECT_free(sk_X509_OBJECT_delete(entriesOf(live), 0));
    require(X509_STORE_add_cert(live.get(), pki()["root"].certificate.get()));
    EXPECT_EQ(verdict(store), Status::Valid);
}

TEST(LiveStore, CertificateChangedInPlaceCountsAtNextValidation)
{
    TrustStore store = storeOf({pki()["root"]});
    auto const live = getOpenSSLStore(store);
    TrustStore const earlierCopy(store);
    EXPECT_EQ(verdict(store), Status::Valid);
    auto const otherName = commonName("renamed");
    require(X509_set_subject_name(certificateAt(live, 0), makeName(otherName).get()));
    require(i2d_re_X509_tbs(certificateAt(live, 0), nullptr) > 0);
    ASSERT_NE(bareVerify(copyOpenSSLStore(store)), X509_V_OK);
    EXPECT_EQ(verdict(store), Status::Untrusted);
    EXPECT_EQ(verdict(TrustStore(store)), Status::Untrusted);
    EXPECT_EQ(verdict(earlierCopy), Status::Valid);
}

TEST(LiveStore, CrlAppearsInCopiesOfCopies)
{
    TrustStore const store = storeOf({pki()["root"]});
    auto const crl = makeCrl(pki()["root"]);
    EXPECT_EQ(verdict(store), Status::Valid);
    addCrl(store, crl);
    EXPECT_EQ(verdict(store), Status::Valid);
    TrustStore const copy(store);
    TrustStore changed(copy);
    changed.addCertificate(load(pki()["other"]));
    EXPECT_EQ(copy.size(), 2U);
    EXPECT_EQ(changed.size(), 3U);
    EXPECT_EQ(verdict(copy), Status::Valid);
    EXPECT_EQ(verdict(changed), Status::Valid);
    auto const live = getOpenSSLStore(changed);
    int numCrls = 0;
    for (int index = 0; index < sk_X509_OBJECT_num(entriesOf(live)); ++index) {
        X509_OBJECT const* const entry = sk_X509_OBJECT_value(entriesOf(live), index);
        numCrls += X509_OBJECT_get0_X509_CRL(entry) == crl.get() ? 1 : 0;
    }
    EXPECT_EQ(numCrls, 1);
}

TEST(LiveStore, ValidationSeesWhatIsAddedAfterHandOut)
{
    TrustStore store = storeOf({pki()["other"]});
    auto const client = makeTLSClient();
    attachTrustStoreToSSLCTX(store, client.get());
    EXPECT_EQ(verdict(store), Status::Untrusted);
    store.addCertificate(load(pki()["root"]));
    EXPECT_EQ(verdict(store), Status::Valid);
    auto const server =
        makeTLSServer(pki()["leaf"].certificate, pki()["leaf"].key, {pki()["ca"].certificate});
    EXPECT_EQ(verifyResultOfHandshake(client, server), X509_V_OK);
    EXPECT_EQ(verdict(store), Status::Valid);
}

TEST(TrustStoreOrder, ValidationsCopiesAndHandOutKeepIt)
{
    TrustStore store = storeInOrder();
    auto const before = store.getPEMStrings();
    EXPECT_EQ(verdict(store), Status::Valid);
    EXPECT_EQ(store.getPEMStrings(), before);

    TrustStore copy(store);
    EXPECT_EQ(copy.getPEMStrings(), before);
    EXPECT_EQ(verdict(copy), Status::Valid);
    EXPECT_EQ(copy.getPEMStrings(), before);
    EXPECT_EQ(derOf(copy.getCertificates()), derOf(store.getCertificates()));

    getOpenSSLStore(copy);
    EXPECT_EQ(copy.getPEMStrings(), before);
    EXPECT_EQ(verdict(copy), Status::Valid);
    EXPECT_EQ(copy.getPEMStrings(), before);
    EXPECT_EQ(TrustStore(copy).getPEMStrings(), before);
    EXPECT_EQ(store.getPEMStrings(), before);
}

TEST(TrustStoreOrder, AdditionToCopyGivesOrderOfAdditionToOriginal)
{
    TrustStore store = storeInOrder();
    TrustStore copy(store);
    auto const added = load(makeRoot("c"));
    copy.addCertificate(added);
    EXPECT_EQ(store.size() + 1, copy.size());
    store.addCertificate(added);
    EXPECT_EQ(store.getPEMStrings(), copy.getPEMStrings());
}

TEST(TrustStoreCopy, IsIndependentInBothDirections)
{
    TrustStore store = storeOf({pki()["other"]});
    EXPECT_EQ(verdict(store), Status::Untrusted);
    TrustStore copy(store);
    TrustStore const untouched(copy);
    copy.addCertificate(load(pki()["root"]));
    EXPECT_EQ(verdict(copy), Status::Valid);
    EXPECT_EQ(verdict(store), Status::Untrusted);
    EXPECT_EQ(verdict(untouched), Status::Untrusted);
    store.addCertificates(chainOf({pki()["root"]}));
    EXPECT_EQ(verdict(store), Status::Valid);
    EXPECT_EQ(verdict(untouched), Status::Untrusted);
    EXPECT_EQ(untouched.size(), 1U);

    store = untouched;
    EXPECT_EQ(verdict(store), Status::Untrusted);
    store.swap(copy);
    EXPECT_EQ(verdict(store), Status::Valid);
    EXPECT_EQ(verdict(copy), Status::Untrusted);
}

TEST(TrustStoreCopy, FilterLeavesOriginalUnchanged)
{
    TrustStore store = storeOf({pki()["root"], pki()["other"]});
    auto const before = store.getPEMStrings();
    TrustStore copy(store);
    constexpr auto unknownUsage = static_cast<TrustStore::Usage>(99);
    copy.addSystemCertificates(unknownUsage);
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(store.getPEMStrings(), before);
    EXPECT_EQ(verdict(store), Status::Valid);
}

TEST(TrustStoreFilter, KeepsIdentityOfHandedOutStore)
{
    TrustStore store = storeOf({pki()["root"]});
    auto const live = getOpenSSLStore(store);
    EXPECT_EQ(verdict(store), Status::Valid);
    constexpr auto unknownUsage = static_cast<TrustStore::Usage>(99);
    store.addSystemCertificates(unknownUsage);
    EXPECT_EQ(sk_X509_OBJECT_num(entriesOf(live)), 0);
    store.addCertificate(load(pki()["other"]));
    EXPECT_EQ(sk_X509_OBJECT_num(entriesOf(live)), 1);
    EXPECT_EQ(getOpenSSLStore(store), live);
    EXPECT_EQ(verdict(store), Status::Untrusted);
}

TEST(SharedRoot, OutlivesStoreAndValidatesElsewhere)
{
    std::optional<X509Certificate> root;
    {
        TrustStore const store = storeOf({pki()["root"], pki()["other"]});
        auto const results =
            load(pki()["leaf"]).validateCertificate(chainOf({pki()["ca"]}), Options(), store);
        root = results.getRootCertificate();
    }
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(root->getAsBytes(), pki()["root"].der());
    TrustStore next;
    next.addCertificate(*root);
    EXPECT_EQ(verdict(next), Status::Valid);
    EXPECT_EQ(bareVerify(getOpenSSLStore(next)), X509_V_OK);
}

TEST(RootsOfEqualName, ValidOneIsFoundInEveryOrder)
{
    auto const expired =
        rootOfEqualName([](CertificateSpec& spec) { spec.notAfter = TimeSpec::fromNow(-1h); });
    auto const otherKey = rootOfEqualName([](CertificateSpec& spec) { spec.key = p256Key("another key"); });
    std::vector<std::vector<CertificateAndKey>> const orders = {
        {pki()["root"], expired, otherKey},
        {expired, pki()["root"], otherKey},
        {otherKey, expired, pki()["root"]},
        {otherKey, pki()["root"], expired}};
    for (auto const& order : orders) {
        TrustStore const store = storeOf(order);
        auto const results =
            load(pki()["leaf"]).validateCertificate(chainOf({pki()["ca"]}), Options(), store);
        EXPECT_EQ(results.getCertificateChainStatus(), Status::Valid);
        ASSERT_TRUE(results.getRootCertificate().has_value());
        EXPECT_EQ(results.getRootCertificate()->getAsBytes(), pki()["root"].der());
    }
}

TEST(SelfIssuedLeaf, GetsSameVerdictWithAndWithoutItsOwnStoreEntry)
{
    auto const root = load(pki()["root"]);
    auto const results = [&](TrustStore const& store, X509CertificateChain const& chain) {
        return root.validateCertificate(chain, Options(), store).getCertificateChainStatus();
    };
    X509CertificateChain withItself;
    withItself.addCertificate(root);
    withItself.addCertificate(root);
    TrustStore trusting;
    trusting.addCertificate(root);
    for (auto const& chain : {X509CertificateChain(), withItself}) {
        EXPECT_EQ(results(trusting, chain), Status::Valid);
        EXPECT_EQ(results(storeOf({pki()["other"]}), chain), Status::SelfSigned);
    }
}
