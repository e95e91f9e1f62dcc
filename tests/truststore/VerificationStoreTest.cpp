#include "truststore/VerificationStore.hpp"

#include "support/allocation/Shortage.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509Duplicates.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509v3.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <exception>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

CertificateAndKey rootNamed(std::string const& name, std::string const& key)
{
    return makeRoot(name, [&](CertificateSpec& spec) { spec.key = p256Key(key); });
}

/// Roots of three names; three of them have the same one.
std::vector<CertificateAndKey> const& roots()
{
    static std::vector<CertificateAndKey> const made = {
        rootNamed("b", "1"), rootNamed("a", "2"), rootNamed("b", "3"), rootNamed("c", "4"),
        rootNamed("b", "5")};
    return made;
}

CertificateAndKey const& further()
{
    static auto const made = rootNamed("b", "6");
    return made;
}

/// Whether OpenSSL looks up certificates of other names too, as OpenSSL 4.0 does in a store whose entries
/// were read. Verifications ignore them.
bool isFoundByMistake(X509 const* certificate, X509_NAME const* name)
{
    return OPENSSL_VERSION_MAJOR >= 4 && X509_NAME_cmp(X509_get_subject_name(certificate), name) != 0;
}

/// Returns the certificates that OpenSSL finds for the name, in the order in which it tries them.
std::vector<Bytes> foundIn(X509_STORE* store, std::string const& name)
{
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), store, nullptr, nullptr));
    auto const subject = makeName(commonName(name));
    auto const found = makeX509Stack(X509_STORE_CTX_get1_certs(context.get(), subject.get()));
    std::vector<Bytes> encodings;
    for (int index = 0; index < sk_X509_num(found.get()); ++index) {
        X509* const certificate = sk_X509_value(found.get(), index);
        if (!isFoundByMistake(certificate, subject.get())) {
            encodings.push_back(toDer(share(certificate)));
        }
    }
    return encodings;
}

int entriesIn(X509_STORE* store)
{
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

X509Handle unread(CertificateAndKey const& certificate)
{
    return parseDer(certificate.der());
}

bool isInvalid(X509* certificate)
{
    return (X509_get_extension_flags(certificate) & EXFLAG_INVALID) != 0;
}

/// Lets OpenSSL read the certificate's extensions while it has no memory.
void readWithoutMemory(X509* certificate)
{
    Shortage const shortage(Memory::OpenSSL, 0, unlimited);
    X509_check_purpose(certificate, -1, 0);
}

/// Returns the certificate that a verification finds in a store with one certificate named "b", after OpenSSL
/// has read it.
X509Handle onlyOneIn(TrustStoreImpl& store)
{
    auto const verificationStore = makeVerificationStore(store.trustedCertificates());
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), verificationStore.get(), nullptr, nullptr));
    auto const found = makeX509_OBJECT(
        X509_STORE_CTX_get_obj_by_subject(context.get(), X509_LU_X509, makeName(commonName("b")).get()));
    X509* const certificate = X509_OBJECT_get0_X509(found.get());
    X509_check_purpose(certificate, -1, 0);
    require(X509_up_ref(certificate));
    return own(certificate);
}

/// Returns how many blocks of memory a validation allocates against this number of roots.
std::size_t allocationsOfValidation(std::size_t numRoots, Memory memory)
{
    constexpr auto withRSAKey = [](CertificateSpec& spec) { spec.key = rsaKey(); };
    static auto const root = makeRoot("root", withRSAKey);
    static auto const ca = makeIntermediate(root, "ca", withRSAKey);
    static auto const leaf = load(makeLeaf(ca, "leaf", withRSAKey));
    static auto const chain = chainOf({ca});
    TrustStore store = storeOf({root});
    while (store.size() < numRoots) {
        store.addCertificate(load(makeRoot("other", [&](CertificateSpec& spec) {
            spec.subject = commonName("other " + std::to_string(store.size()));
        })));
    }
    auto const validate = [&] {
        auto const results = leaf.validateCertificate(chain, CertificateValidationOptions(), store);
        EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Valid);
    };
    validate();
    Shortage const counting(memory, unlimited);
    validate();
    return Shortage::numGranted();
}

} // namespace

TEST(VerificationStore, FindsCertificatesOfFullCopyInTheSameOrder)
{
    TrustStore const store = storeOf(roots());
    auto const verificationStore = makeVerificationStore(store);
    auto const copy = copyOpenSSLStore(store);
    EXPECT_EQ(entriesIn(verificationStore.get()), 0);
    for (char const* const name : {"a", "b", "c", "d", "b"}) {
        EXPECT_EQ(foundIn(verificationStore.get(), name), foundIn(copy.get(), name)) << name;
    }
    EXPECT_EQ(foundIn(verificationStore.get(), "b").size(), 3U);
    EXPECT_EQ(entriesIn(verificationStore.get()), 5);
}

TEST(VerificationStore, FurtherCertificateComesAfterThoseOfTrustStore)
{
    TrustStore const store = storeOf(roots());
    auto const verificationStore = makeVerificationStore(store);
    auto const copy = copyOpenSSLStore(store);
    for (CertificateAndKey const& added : {further(), roots().front()}) {
        addTrustedCertificate(verificationStore.get(), added.certificate.get());
        require(X509_STORE_add_cert(copy.get(), added.certificate.get()));
    }
    auto const found = foundIn(verificationStore.get(), "b");
    EXPECT_EQ(found, foundIn(copy.get(), "b"));
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found.back(), further().der());
    EXPECT_EQ(store.size(), roots().size());
}

TEST(VerificationStore, HoldsCrlsOfTrustStore)
{
    TrustStore const store = storeOf(roots());
    auto const crl = makeCrl(roots().front());
    addCrl(store, crl);
    auto const verificationStore = makeVerificationStore(store);
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), verificationStore.get(), nullptr, nullptr));
    auto* const found = X509_STORE_CTX_get1_crls(context.get(), X509_CRL_get_issuer(crl.get()));
    EXPECT_EQ(sk_X509_CRL_num(found), 1);
    EXPECT_EQ(sk_X509_CRL_value(found, 0), crl.get());
    sk_X509_CRL_pop_free(found, X509_CRL_free);
}

TEST(VerificationStore, KeepsWhatItFindsAfterTrustStoreChanges)
{
    TrustStore store = storeOf(roots());
    auto const verificationStore = makeVerificationStore(store);
    store.addCertificate(load(further()));
    EXPECT_EQ(foundIn(verificationStore.get(), "b").size(), 3U);
    EXPECT_EQ(foundIn(makeVerificationStore(store).get(), "b").size(), 4U);
    store = TrustStore();
    EXPECT_EQ(foundIn(verificationStore.get(), "a").size(), 1U);
}

TEST(VerificationStore, MovedFromTrustStoreHasNone)
{
    TrustStore source = storeOf(roots());
    TrustStore const target(std::move(source));
    // NOLINTNEXTLINE(bugprone-use-after-move): the state of the source is documented
    EXPECT_EQ(makeVerificationStore(source), nullptr);
}

TEST(VerificationStore, ErrorQueueIsUnchanged)
{
    TrustStore const store = storeOf({makeRoot("root", [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", {0x05, 0x00}, true);
    })});
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    makeVerificationStore(store);
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}

TEST(VerificationStore, ReportsLookUpThatRanOutOfMemory)
{
    TrustStore const store = storeOf(roots());
    auto const name = makeName(commonName("b"));
    require(i2d_X509_NAME(name.get(), nullptr)); // certificates that were parsed have encoded names
    constexpr int numOfName = 3;
    std::size_t allocation = 0;
    do {
        auto const verificationStore = makeVerificationStore(store);
        auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
        require(X509_STORE_CTX_init(context.get(), verificationStore.get(), nullptr, nullptr));
        auto const result = makeX509_OBJECT(X509_OBJECT_new());
        bool isFound = false;
        {
            Shortage const shortage(Memory::OpenSSL, allocation);
            isFound =
                X509_STORE_CTX_get_by_subject(context.get(), X509_LU_X509, name.get(), result.get()) == 1;
        }
        EXPECT_EQ(isFound, !Shortage::hasOccurred());
        EXPECT_EQ(isFound, entriesIn(verificationStore.get()) == numOfName);
        if (isFound) {
            EXPECT_NO_THROW(throwIfIncomplete(verificationStore.get()));
        } else {
            EXPECT_THROWS_EXACTLY(
                TrustStoreException, "Failed to add certificate to store, CN: b",
                throwIfIncomplete(verificationStore.get()));
        }
        ++allocation;
    } while (Shortage::hasOccurred());
    EXPECT_GT(allocation, static_cast<std::size_t>(numOfName));
}

TEST(TrustedCertificates, AreReadOnceUntilStoreChanges)
{
    TrustStoreImpl store;
    store.addX509(roots().front().certificate.get());
    auto const first = store.trustedCertificates();
    EXPECT_EQ(store.trustedCertificates(), first);
    store.addX509(further().certificate.get());
    auto const second = store.trustedCertificates();
    EXPECT_NE(second, first);
    EXPECT_EQ(store.trustedCertificates(), second);

    store.handOutStore();
    auto const third = store.trustedCertificates();
    EXPECT_NE(third, second);
    EXPECT_EQ(store.trustedCertificates(), third);
    store.addX509(roots().back().certificate.get());
    auto const range = store.trustedCertificates()->withSubject(makeName(commonName("b")).get());
    EXPECT_EQ(range.end - range.begin, 3);
    // The certificates that the store had before are not duplicated again.
    EXPECT_EQ(store.trustedCertificates()->at(range.begin), third->at(0));
}

TEST(TrustedCertificates, AreSharedUntilStoreIsHandedOut)
{
    TrustStoreImpl store;
    auto const certificate = parseDer(roots().front().der());
    store.addX509(certificate.get());
    EXPECT_EQ(store.trustedCertificates()->at(0), certificate.get());
    store.handOutStore();
    EXPECT_NE(store.trustedCertificates()->at(0), certificate.get());
    EXPECT_NE(store.trustedCertificates()->at(0), store.x509At(0));
}

TEST(VerificationStore, CertificateThatWasReadWithoutMemoryIsReadAgain)
{
    for (bool const isHandedOut : {false, true}) {
        TrustStoreImpl store;
        if (isHandedOut) {
            store.handOutStore();
        }
        auto const certificate = unread(roots().front());
        readWithoutMemory(certificate.get());
        ASSERT_TRUE(isInvalid(certificate.get()));
        store.addX509(certificate.get());
        EXPECT_FALSE(isInvalid(onlyOneIn(store).get()));
    }
}

TEST(VerificationStore, ReadingWithoutMemoryHasNoLastingEffect)
{
    for (bool const isHandedOut : {false, true}) {
        std::size_t allocation = 0;
        do {
            TrustStoreImpl store;
            if (isHandedOut) {
                store.handOutStore();
            }
            store.addX509(unread(roots().front()).get());
            try {
                Shortage const shortage(Memory::OpenSSL, allocation, unlimited);
                store.trustedCertificates();
            } catch (TrustStoreException const&) {
            }
            EXPECT_FALSE(isInvalid(onlyOneIn(store).get())) << allocation;
            ++allocation;
        } while (Shortage::hasOccurred());
        EXPECT_GT(allocation, 10U);
    }
}

TEST(VerificationStore, VerificationReadsInvalidExtensionItself)
{
    TrustStoreImpl store;
    auto const damaged = makeRoot("b", [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", {0x05, 0x00}, true);
    });
    store.addX509(damaged.certificate.get());
    auto const first = onlyOneIn(store);
    EXPECT_NE(first, onlyOneIn(store));
    EXPECT_TRUE(isInvalid(first.get()));
}

TEST(TrustStoreAddX509, CertificateWithTrustSettingsIsDuplicated)
{
    auto const certificate = unread(roots().front());
    require(X509_add1_reject_object(certificate.get(), OBJ_nid2obj(NID_anyExtendedKeyUsage)));
    TrustStoreImpl store;
    store.addX509(certificate.get());
    EXPECT_NE(store.x509At(0), certificate.get());
    EXPECT_FALSE(hasTrustSettings(store.x509At(0)));
}

TEST(ValidationCost, AllocationsDoNotGrowWithNumberOfRoots)
{
    for (Memory const memory : {Memory::OpenSSL, Memory::Heap}) {
        EXPECT_EQ(allocationsOfValidation(150, memory), allocationsOfValidation(2, memory));
    }
}

TEST(ValidationCost, AllocationsAreFew)
{
    EXPECT_LE(
        allocationsOfValidation(150, Memory::OpenSSL) + allocationsOfValidation(150, Memory::Heap), 200U);
}
