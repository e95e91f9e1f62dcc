#include "support/differential/TwinStores.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/openssl/ReferenceValidator.hpp"

#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <ctime>
#include <numeric>

namespace foundation::test {

using namespace certificates;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t maxNumTwins = 4;

/// Delivers the given certificates in place of an operating system.
class DeliveringAdder : public ISystemCertificateAdder
{
public:
    explicit DeliveringAdder(std::vector<Bytes> content) : certificates(std::move(content)) {}

    ISystemCertificateAdder* clone() const override { return new DeliveringAdder(*this); }

    void addCertificatesTo(TrustStoreImpl& store, TrustStore::Usage /*usage*/, bool /*rethrow*/) override
    {
        for (Bytes const& der : certificates) {
            store.addDERCertificate(der);
        }
    }

private:
    std::vector<Bytes> certificates;
};

int acceptAll(int /*ok*/, X509_STORE_CTX* /*context*/)
{
    return 1;
}

STACK_OF(X509_OBJECT) * entriesOf(StoreHandle const& store)
{
    return X509_STORE_get0_objects(store.get());
}

std::vector<X509*> certificatesIn(StoreHandle const& store)
{
    std::vector<X509*> certificates;
    auto* const entries = entriesOf(store);
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        auto* const entry = sk_X509_OBJECT_value(entries, index);
        if (X509_OBJECT_get_type(entry) == X509_LU_X509) {
            certificates.push_back(X509_OBJECT_get0_X509(entry));
        }
    }
    return certificates;
}

bool hasOnlyCertificates(StoreHandle const& store)
{
    return certificatesIn(store).size() == static_cast<std::size_t>(sk_X509_OBJECT_num(entriesOf(store)));
}

/// Returns a text for each entry, in order.
std::vector<std::string> linesOf(X509_STORE* store)
{
    std::vector<std::string> lines;
    auto* const entries = X509_STORE_get0_objects(store);
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        auto* const entry = sk_X509_OBJECT_value(entries, index);
        auto* const certificate =
            X509_OBJECT_get_type(entry) == X509_LU_X509 ? X509_OBJECT_get0_X509(entry) : nullptr;
        lines.push_back(
            certificate == nullptr ? "entry of type " + std::to_string(X509_OBJECT_get_type(entry))
                                   : toPem(share(certificate)));
    }
    return lines;
}

/// Every look-up sorts the stack.
void sortByLookUp(X509_STORE* store, X509* certificate)
{
    auto const context = own(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), store, nullptr, nullptr));
    auto* const entry =
        X509_STORE_CTX_get_obj_by_subject(context.get(), X509_LU_X509, X509_get_subject_name(certificate));
    X509_OBJECT_free(entry);
}

void giveTrustSettings(Dice& dice, X509* certificate)
{
    auto const purpose = own(OBJ_dup(OBJ_nid2obj(dice.oneIn(2) ? NID_anyExtendedKeyUsage : NID_server_auth)));
    if (dice.oneIn(2)) {
        require(X509_add1_trust_object(certificate, purpose.get()));
    } else {
        require(X509_add1_reject_object(certificate, purpose.get()));
    }
    if (dice.oneIn(3)) {
        unsigned char const name[] = "alias";
        require(X509_alias_set1(certificate, name, static_cast<int>(sizeof name - 1)));
    }
}

constexpr int numKindsOfChange = 2;

/// Changes a certificate in place, in a way that its encoding does not show.
void change(X509* certificate, int kind)
{
    if (kind == 0) {
        require(ASN1_TIME_adj(X509_getm_notAfter(certificate), std::time(nullptr), -3, 0) != nullptr);
    } else {
        X509_check_purpose(certificate, -1, 0); // caches the extensions
    }
}

} // namespace

bool Twins::canBeCopied() const
{
    auto* const entries = entriesOf(reference);
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        if (X509_OBJECT_get_type(sk_X509_OBJECT_value(entries, index)) == X509_LU_NONE) {
            return false;
        }
    }
    return true;
}

void Twins::addToReference(Member const& member) const
{
    require(X509_STORE_add_cert(reference.get(), duplicateOf(member.made.certificate).get()));
}

void Twins::add(Member const& member, X509Certificate const& handle) const
{
    store->addCertificate(handle);
    addToReference(member);
}

void Twins::filterStore() const
{
    constexpr bool rethrowOnFailure = true;
    store->addSystemCertificates(TrustStore::Usage::ServerAuthentication, rethrowOnFailure);
}

void Twins::filterReference() const
{
    for (auto const& der : delivered) {
        require(X509_STORE_add_cert(reference.get(), parseDer(der).get()));
    }
    removeUnsuitableForServers(reference);
}

std::string Twins::describe() const
{
    std::string text = outside.empty() ? "store:\n" : "store that is held outside:\n";
    for (auto const& line : linesOf(reference.get())) {
        text += line;
    }
    return text;
}

TwinStores::TwinStores(Dice& theDice, RandomPki& thePki) : dice(theDice), pki(thePki)
{
    renew();
}

void TwinStores::renew()
{
    twins.clear();
    twins.push_back(newTwins());
}

Twins TwinStores::newTwins()
{
    Twins made;
    made.reference = makeStore();
    for (int left = dice.below(3); left > 0; --left) {
        made.delivered.push_back(pki.any().made.der());
    }
    made.store = std::make_unique<TrustStore>(std::make_unique<DeliveringAdder>(made.delivered));
    for (int left = dice.below(6); left > 0; --left) {
        addThroughLibrary(made);
    }
    return made;
}

StoreHandle TwinStores::handOut(Twins& chosen)
{
    auto live = getOpenSSLStore(*chosen.store);
    if (dice.oneIn(2)) {
        chosen.outside.push_back(live);
    }
    return live;
}

void TwinStores::addThroughLibrary(Twins& chosen)
{
    auto const& member = pki.anyLoaded();
    chosen.add(member, pki.handleOf(member));
}

void TwinStores::addChain(Twins& chosen)
{
    X509CertificateChain chain;
    for (int left = 1 + dice.below(4); left > 0; --left) {
        auto const& member = pki.anyLoaded();
        chain.addCertificate(pki.handleOf(member));
        auto const duplicate = duplicateOf(member.made.certificate);
        ErrorQueueMark const mark;
        if (X509_check_ca(duplicate.get()) > 0) {
            require(X509_STORE_add_cert(chosen.reference.get(), duplicate.get()));
        }
    }
    chosen.store->addCertificates(chain);
}

void TwinStores::addThroughOpenSSL(Twins& chosen)
{
    auto const& member = pki.any();
    auto const given = duplicateOf(member.made.certificate);
    auto const givenToReference = duplicateOf(member.made.certificate);
    require(X509_STORE_add_cert(handOut(chosen).get(), given.get()));
    require(X509_STORE_add_cert(chosen.reference.get(), givenToReference.get()));
    if (dice.oneIn(4)) { // one certificate in two live stores
        auto& other = any();
        require(X509_STORE_add_cert(handOut(other).get(), given.get()));
        require(X509_STORE_add_cert(other.reference.get(), givenToReference.get()));
    }
}

void TwinStores::addCrlThroughOpenSSL(Twins& chosen)
{
    auto const& crl = pki.any().crl;
    if (crl != nullptr) {
        require(X509_STORE_add_crl(handOut(chosen).get(), crl.get()));
        require(X509_STORE_add_crl(chosen.reference.get(), crl.get()));
    }
}

std::optional<std::pair<X509*, X509*>> TwinStores::anyCertificateOf(Twins& chosen)
{
    auto const live = certificatesIn(handOut(chosen));
    auto const references = certificatesIn(chosen.reference);
    if (live.size() != references.size() || live.empty()) {
        return std::nullopt;
    }
    auto const index = dice.indexIn(live.size());
    return std::pair(live[index], references[index]);
}

void TwinStores::changeEntry(Twins& chosen)
{
    auto const live = handOut(chosen);
    auto* const entries = X509_STORE_get0_objects(live.get());
    int const count = sk_X509_OBJECT_num(entries);
    if (count == 0 || count != sk_X509_OBJECT_num(entriesOf(chosen.reference))) {
        return;
    }
    int const index = dice.below(count);
    if (dice.oneIn(2)) {
        X509_OBJECT_free(sk_X509_OBJECT_delete(entries, index));
        X509_OBJECT_free(sk_X509_OBJECT_delete(entriesOf(chosen.reference), index));
        return;
    }
    auto const& member = pki.any();
    auto const replace = [&](STACK_OF(X509_OBJECT) * stack) {
        auto const duplicate = duplicateOf(member.made.certificate);
        require(X509_OBJECT_set1_X509(sk_X509_OBJECT_value(stack, index), duplicate.get()));
    };
    replace(entries);
    replace(entriesOf(chosen.reference));
}

void TwinStores::addOddEntry(Twins& chosen)
{
    auto const add = [](X509_STORE* store) {
        require(sk_X509_OBJECT_push(X509_STORE_get0_objects(store), X509_OBJECT_new()));
    };
    add(handOut(chosen).get());
    add(chosen.reference.get());
}

/// Settings of the live store, which are not the trust store's.
void TwinStores::changeSettings(Twins& chosen)
{
    auto const live = handOut(chosen);
    switch (dice.below(4)) {
    case 0:
        require(X509_STORE_set_flags(live.get(), X509_V_FLAG_PARTIAL_CHAIN));
        break;
    case 1:
        X509_STORE_set_verify_cb(live.get(), acceptAll);
        break;
    case 2:
        require(X509_STORE_set_purpose(live.get(), X509_PURPOSE_TIMESTAMP_SIGN));
        break;
    default:
        require(X509_STORE_set_depth(live.get(), 0));
        break;
    }
}

void TwinStores::filter(Twins& chosen)
{
    chosen.filterReference();
    chosen.filterStore();
}

/// Copies a store into a new place or over another store.
void TwinStores::copy(Twins& chosen)
{
    Twins made;
    made.delivered = chosen.delivered;
    if (!chosen.canBeCopied()) {
        EXPECT_THROWS_EXACTLY(
            TrustStoreException, "Unsupported object type found in TrustStore", TrustStore(*chosen.store));
        return;
    }
    made.store = std::make_unique<TrustStore>(*chosen.store);
    made.reference = duplicateOf(chosen.reference);
    if (twins.size() < maxNumTwins) {
        twins.push_back(std::move(made));
        return;
    }
    auto& target = twins[dice.indexIn(twins.size())];
    if (dice.oneIn(2)) {
        *target.store = *made.store; // a copy of the copy
        target.reference = duplicateOf(made.reference);
        target.delivered = made.delivered;
    } else {
        target = std::move(made);
    }
}

/// The caller's copy of a store is his own.
void TwinStores::copyToOpenSSL(Twins& chosen)
{
    if (!chosen.canBeCopied()) {
        return;
    }
    auto const copy = copyOpenSSLStore(*chosen.store);
    EXPECT_EQ(linesOf(copy.get()), linesOf(duplicateOf(chosen.reference).get()));
    for (auto* const certificate : certificatesIn(StoreHandle(copy.get(), [](X509_STORE*) {}))) {
        giveTrustSettings(dice, certificate);
        change(certificate, dice.below(numKindsOfChange));
    }
    require(X509_STORE_add_cert(copy.get(), pki.any().made.certificate.get()));
    require(X509_STORE_set_flags(copy.get(), X509_V_FLAG_PARTIAL_CHAIN));
}

void TwinStores::readBack(Twins& chosen)
{
    EXPECT_EQ(
        chosen.store->size(), static_cast<std::size_t>(sk_X509_OBJECT_num(entriesOf(chosen.reference))));
    if (!hasOnlyCertificates(chosen.reference)) {
        EXPECT_THROW(chosen.store->getPEMStrings(), TrustStoreException);
        return;
    }
    EXPECT_EQ(chosen.store->getPEMStrings(), linesOf(chosen.reference.get()));
    try {
        for (auto const& handle : chosen.store->getCertificates().getCertificates()) {
            pki.keep(handle);
        }
    } catch (CertificateException const&) {
        // A store may hold a key that a certificate may not.
    }
}

void TwinStores::exchange(Twins& left)
{
    auto& right = any();
    if (dice.oneIn(2)) {
        left.store->swap(*right.store);
    } else {
        TrustStore moved(std::move(*left.store));
        *left.store = std::move(*right.store); // exchanges: the right one holds nothing then
        *right.store = std::move(moved);
    }
    if (&left != &right) {
        std::swap(left.reference, right.reference);
        std::swap(left.delivered, right.delivered);
        std::swap(left.outside, right.outside);
    }
}

void TwinStores::giveTrust(Twins& chosen)
{
    if (auto const both = anyCertificateOf(chosen)) {
        giveTrustSettings(dice, both->first);
    }
}

void TwinStores::changeCertificate(Twins& chosen)
{
    if (auto const both = anyCertificateOf(chosen)) {
        int const kind = dice.below(numKindsOfChange);
        change(both->first, kind);
        change(both->second, kind);
    }
}

void TwinStores::lookUp(Twins& chosen)
{
    auto const& certificate = pki.any().made.certificate;
    sortByLookUp(handOut(chosen).get(), certificate.get());
    sortByLookUp(chosen.reference.get(), certificate.get());
}

void TwinStores::compareEntries(Twins& chosen)
{
    EXPECT_EQ(linesOf(handOut(chosen).get()), linesOf(chosen.reference.get()));
}

void TwinStores::attach(Twins& chosen)
{
    chosen.contexts.push_back(makeTLSContext());
    attachTrustStoreToSSLCTX(*chosen.store, chosen.contexts.back().get());
}

void TwinStores::release(Twins& chosen)
{
    chosen.outside.clear();
    chosen.contexts.clear();
}

void TwinStores::happen()
{
    struct Event
    {
        int weight;
        void (TwinStores::*happen)(Twins&);
    };
    static std::vector<Event> const events = {
        {120, &TwinStores::addThroughLibrary},
        {12, &TwinStores::addChain},
        {24, &TwinStores::addThroughOpenSSL},
        {12, &TwinStores::addCrlThroughOpenSSL},
        {24, &TwinStores::giveTrust},
        {18, &TwinStores::changeCertificate},
        {12, &TwinStores::changeEntry},
        {1, &TwinStores::addOddEntry},
        {6, &TwinStores::changeSettings},
        {12, &TwinStores::lookUp},
        {6, &TwinStores::filter},
        {48, &TwinStores::copy},
        {12, &TwinStores::copyToOpenSSL},
        {24, &TwinStores::readBack},
        {12, &TwinStores::exchange},
        {12, &TwinStores::compareEntries},
        {12, &TwinStores::attach},
        {12, &TwinStores::release},
    };
    static int const sumOfWeights = std::accumulate(
        events.begin(), events.end(), 0, [](int sum, Event const& event) { return sum + event.weight; });
    int number = dice.below(sumOfWeights);
    for (auto const& event : events) {
        if (number < event.weight) {
            (this->*event.happen)(any());
            return;
        }
        number -= event.weight;
    }
}

} // namespace foundation::test
