#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/Handles.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/InParallel.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Threads that use one trust store in every way at the same time. For ThreadSanitizer above all.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr int numThreads = 8;
constexpr std::size_t numOtherRoots = 24;

/// Returns roots that the chain does not need. Every third one has the name of the root that it needs.
std::vector<CertificateAndKey> makeOtherRoots()
{
    std::vector<CertificateAndKey> roots;
    for (std::size_t number = 0; number < numOtherRoots; ++number) {
        auto const name = "other root " + std::to_string(number);
        roots.push_back(makeRoot(name, [&](CertificateSpec& spec) {
            spec.key = ed25519Key(name);
            if (number % 3 == 0) {
                spec.subject = commonName("root");
            }
        }));
    }
    return roots;
}

/// Returns the certificate at a place that no other object ever gets. ThreadSanitizer tells locks apart by
/// their addresses, and validations and additions take a certificate's and a store's lock in different
/// orders.
X509Certificate const& atItsOwnPlace(X509Certificate const& certificate)
{
    static std::mutex mutex;
    static std::deque<X509Certificate> places;
    std::lock_guard<std::mutex> const lock(mutex);
    return places.emplace_back(certificate);
}

/// A chain, roots, a server with the chain, and handles that all threads share.
struct Material
{
    Topology const pki{{{"root", ""}, {"ca", "root"}, {"leaf", "ca"}}};
    CertificateAndKey const unknown = makeLeaf(makeRoot("unknown root"), "unknown");
    std::vector<CertificateAndKey> const otherRoots = makeOtherRoots();
    TLSContextHandle const server =
        makeTLSServer(pki["leaf"].certificate, pki["leaf"].key, {pki["ca"].certificate});
    X509Certificate const leaf = load(pki["leaf"]);
    X509Certificate const unknownLeaf = load(unknown);
    X509CertificateChain const chain = chainOf({pki["ca"]});
    X509CertificateChain const wholeChain = chainOf({pki["leaf"], pki["ca"], pki["root"]});
    std::vector<X509Certificate> const others = [this] {
        std::vector<X509Certificate> loaded;
        for (auto const& root : otherRoots) {
            loaded.push_back(load(root));
        }
        return loaded;
    }();

    /// Returns a store with the root and a few others that nobody has asked for its OpenSSL store yet.
    TrustStore newStore() const
    {
        return storeOf({otherRoots[0], otherRoots[1], pki["root"], otherRoots[2], otherRoots[3]});
    }
};

Material const& material()
{
    static Material const made;
    return made;
}

/// What threads do with the store. Each function counts what it expects, so that an unexpected result of
/// thousands does not flood the output.
class Users
{
public:
    explicit Users(TrustStore& theStore) : store(theStore) {}

    void validate(int round)
    {
        auto const& all = material();
        auto const& ownHandle = atItsOwnPlace(all.leaf);
        auto const results =
            (round % 2 == 0 ? all.leaf : ownHandle)
                .validateCertificate(round % 3 == 0 ? all.wholeChain : all.chain, Options(), store);
        expect(results.getCertificateChainStatus() == Status::Valid);
        expect(results.getRootCertificate().has_value());
        auto const refusal = all.unknownLeaf.validateCertificate(all.chain, Options(), store);
        expect(refusal.getCertificateChainStatus() == Status::Untrusted);
        auto const root = all.leaf.getRootCACertificate(all.chain, store);
        expect(root.getSubjectCommonName() == "root" && root == *results.getRootCertificate());
    }

    void add(int round)
    {
        auto const& all = material();
        store.addCertificate(all.others[static_cast<std::size_t>(round) % numOtherRoots]);
        store.addCertificates(all.wholeChain);
        expect(!store.empty());
    }

    void copy(int /*round*/)
    {
        auto const& all = material();
        TrustStore copied(store);
        expect(isValidUnder(copied));
        copied.addCertificate(all.unknownLeaf);
        expect(copied.size() > 5);
        TrustStore assigned;
        assigned = copied;
        getOpenSSLStore(assigned);
        expect(isValidUnder(assigned));
    }

    void copyForOpenSSL(int /*round*/)
    {
        auto const copied = copyOpenSSLStore(store);
        auto* const entries = X509_STORE_get0_objects(copied.get());
        expect(sk_X509_OBJECT_num(entries) >= 5);
        for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
            auto* const certificate = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(entries, index));
            require(X509_add1_reject_object(certificate, OBJ_nid2obj(NID_anyExtendedKeyUsage)));
        }
    }

    void read(int /*round*/)
    {
        auto const certificates = store.getCertificates().getCertificates();
        expect(certificates.size() >= 5);
        for (auto const& certificate : certificates) {
            expect(certificate.isCACertificate() || !certificate.getSHA256Fingerprint().empty());
        }
        // A root as the leaf: the store's certificates take all parts.
        auto const results =
            atItsOwnPlace(certificates.front())
                .validateCertificate(store.getCertificates(), optionsWith(everyTolerance()), store);
        expect(results.getCertificateChainStatus() == Status::Valid);
        expect(store.getPEMStrings().size() >= 5 && store.size() >= 5);
    }

    void handOut(int /*round*/)
    {
        auto const live = getOpenSSLStore(store);
        expect(live != nullptr && live == getOpenSSLStore(store));
    }

    void shakeHands(int /*round*/)
    {
        auto const client = makeTLSClient();
        attachTrustStoreToSSLCTX(store, client.get());
        expect(verifyResultOfHandshake(client, material().server) == X509_V_OK);
    }

    bool isValidUnder(TrustStore const& other) const
    {
        auto const& all = material();
        return all.leaf.validateCertificate(all.chain, Options(), other).getCertificateChainStatus() ==
               Status::Valid;
    }

    int numUnexpected() const { return unexpected; }

private:
    void expect(bool isAsExpected)
    {
        if (!isAsExpected) {
            ++unexpected;
        }
    }

    TrustStore& store;
    std::atomic<int> unexpected{0};
};

using Use = void (Users::*)(int round);

/// Each thread uses the store in all the ways, and begins with another one.
int numUnexpectedOf(TrustStore& store, std::vector<Use> const& uses, int numRounds)
{
    Users users(store);
    inParallel(numThreads, [&](int thread) {
        for (int round = thread; round < thread + numRounds; ++round) {
            (users.*uses[static_cast<std::size_t>(round) % uses.size()])(round);
        }
    });
    return users.numUnexpected();
}

/// A verifier that uses OpenSSL alone. It looks for issuers in the store, as a TLS connection does.
class OpenSSLVerifier
{
public:
    explicit OpenSSLVerifier(StoreHandle const& store)
    {
        auto const& pki = material().pki;
        require(X509_STORE_CTX_init(
            context.get(), store.get(), pki["leaf"].certificate.get(), intermediates.get()));
    }

    bool findsIssuer() const
    {
        X509* issuer = nullptr;
        auto const found =
            X509_STORE_CTX_get1_issuer(&issuer, context.get(), material().pki["ca"].certificate.get());
        return found == 1 && own(issuer) != nullptr;
    }

    bool accepts() const { return X509_verify_cert(context.get()) == 1; }

private:
    X509StackHandle intermediates = makeStack({material().pki["ca"].certificate});
    StoreContextHandle context = own(X509_STORE_CTX_new());
};

/// Returns a store with so many roots that it takes a while to rearrange it.
TrustStore manyRootsAnd(CertificateAndKey const& root)
{
    static std::vector<CertificateAndKey> const others = [] {
        std::vector<CertificateAndKey> made;
        for (int number = 0; number < 500; ++number) {
            made.push_back(makeRoot("root " + std::to_string(number)));
        }
        return made;
    }();
    auto store = storeOf(others);
    store.addCertificate(load(root));
    return store;
}

} // namespace

TEST(SharedStoreThreads, UseStoreThatIsNeverHandedOut)
{
    auto store = material().newStore();
    EXPECT_EQ(
        numUnexpectedOf(
            store, {&Users::validate, &Users::add, &Users::copy, &Users::copyForOpenSSL, &Users::read}, 25),
        0);
    EXPECT_GT(store.size(), 5U);
}

TEST(SharedStoreThreads, UseStoreThatServesTLS)
{
    auto store = material().newStore();
    EXPECT_EQ(
        numUnexpectedOf(
            store,
            {&Users::shakeHands, &Users::validate, &Users::copy, &Users::handOut, &Users::copyForOpenSSL,
             &Users::read},
            30),
        0);
    EXPECT_EQ(store.size(), 5U);
}

TEST(SharedStoreThreads, HandOutNewStoresForTheFirstTime)
{
    for (int repetition = 0; repetition < 20; ++repetition) {
        auto store = material().newStore();
        EXPECT_EQ(
            numUnexpectedOf(
                store,
                {&Users::validate, &Users::handOut, &Users::read, &Users::shakeHands, &Users::validate,
                 &Users::copy, &Users::validate, &Users::copyForOpenSSL},
                2),
            0);
    }
}

// The first look at the entries of a store may change how OpenSSL keeps them, so each repetition needs a new
// store.
TEST(SharedStoreThreads, ReadWhileOpenSSLVerifiesWithHandedOutStore)
{
    auto const original = manyRootsAnd(material().pki["root"]);
    for (int repetition = 0; repetition < 10; ++repetition) {
        TrustStore const store(original);
        auto const live = getOpenSSLStore(store);
        std::atomic<int> numVerifying{0};
        std::atomic<bool> isRead{false};
        std::atomic<int> numWrong{0};
        inParallel(numThreads, [&](int thread) {
            if (thread == 0) {
                while (numVerifying < numThreads - 1) {
                    std::this_thread::yield();
                }
                numWrong += store.size() == 501 ? 0 : 1;
                isRead = true;
                return;
            }
            OpenSSLVerifier const verifier(live);
            ++numVerifying;
            // Not endless: the lock prefers these readers to the trust store, which waits for them.
            auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
            while (!isRead && std::chrono::steady_clock::now() < end) {
                numWrong += verifier.findsIssuer() ? 0 : 1;
            }
            numWrong += verifier.accepts() ? 0 : 1;
        });
        EXPECT_EQ(numWrong, 0);
        EXPECT_EQ(store.getPEMStrings().size(), 501U);
    }
}

TEST(SharedStoreThreads, DoEverythingWithOneStore)
{
    auto store = material().newStore();
    EXPECT_EQ(
        numUnexpectedOf(
            store,
            {&Users::validate, &Users::add, &Users::copy, &Users::handOut, &Users::shakeHands,
             &Users::copyForOpenSSL, &Users::read},
            35),
        0);
}

TEST(SharedStoreThreads, UseCopiesWhileTheirSourceChanges)
{
    auto source = material().newStore();
    TrustStore const first(source);
    TrustStore const second(source);
    getOpenSSLStore(second);
    Users users(source);
    std::atomic<int> numWrong{0};
    inParallel(numThreads, [&](int thread) {
        for (int round = 0; round < 10; ++round) {
            switch (thread % 4) {
            case 0:
                users.add(thread + round);
                break;
            case 1:
                users.handOut(round);
                users.validate(round);
                break;
            default:
                numWrong += users.isValidUnder(thread % 4 == 2 ? first : second) ? 0 : 1;
                break;
            }
        }
    });
    EXPECT_EQ(users.numUnexpected(), 0);
    EXPECT_EQ(numWrong, 0);
    EXPECT_EQ(first.size(), 5U);
    EXPECT_EQ(second.size(), 5U);
}

TEST(SharedStoreThreads, UseResultsAfterTheirStoresAreGone)
{
    auto const& all = material();
    inParallel(numThreads, [&](int) {
        std::vector<X509Certificate> kept;
        for (int round = 0; round < 10; ++round) {
            auto store = all.newStore();
            for (auto const& certificate : store.getCertificates().getCertificates()) {
                kept.push_back(certificate);
            }
            kept.push_back(all.leaf.getRootCACertificate(all.chain, store));
            getOpenSSLStore(store);
            kept.push_back(all.leaf.getRootCACertificate(all.wholeChain, store));
        }
        for (auto const& certificate : kept) {
            EXPECT_TRUE(certificate.isCACertificate());
            EXPECT_FALSE(certificate.getAsPEMString().empty());
        }
    });
}
