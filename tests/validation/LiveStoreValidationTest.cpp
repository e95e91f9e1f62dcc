#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/ReferenceValidator.hpp"
#include "support/pki/Signing.hpp"
#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

// A program that has the OpenSSL store of a trust store may change the certificates in it. The next
// validation sees the change, as if it read the whole store.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

/// A change of a certificate in place.
struct Change
{
    std::string name;
    std::function<void(X509*)> apply;
};

std::ostream& operator<<(std::ostream& out, Change const& change)
{
    return out << change.name;
}

Topology const& pki()
{
    static std::vector<Topology::Node> const nodes = {{"root", ""}, {"leaf", "root"}};
    static Topology const made(nodes);
    return made;
}

void signAnew(X509* certificate, KeyHandle const& key)
{
    require(X509_sign_ctx(certificate, startSigning(key, EVP_sha256()).get()));
}

void rename(X509* certificate, Name const& name)
{
    require(X509_set_subject_name(certificate, makeName(name).get()));
    require(X509_set_issuer_name(certificate, makeName(name).get()));
}

/// OpenSSL encodes a certificate anew after it was signed. Whether it does so after each other change depends
/// on its version.
std::vector<Change> changesOfRoot()
{
    auto const expire = [](X509* root) {
        require(X509_set1_notAfter(root, TimeSpec::fromNow(-1h).toAsn1().get()));
    };
    return {
        {"EndOfValidity", expire},
        {"EndOfValiditySignedAnew",
         [=](X509* root) {
             expire(root);
             signAnew(root, pki()["root"].key);
         }},
        {"EndOfValiditySignedByOtherKey",
         [=](X509* root) {
             expire(root);
             signAnew(root, p256Key("other"));
         }},
        {"SubjectAndIssuer", [](X509* root) { rename(root, commonName("other")); }},
        {"SubjectAndIssuerSignedAnew",
         [](X509* root) {
             rename(root, commonName("other"));
             signAnew(root, pki()["root"].key);
         }},
        {"PublicKey", [](X509* root) { require(X509_set_pubkey(root, p256Key("other").get())); }},
        {"PublicKeySignedAnew",
         [](X509* root) {
             require(X509_set_pubkey(root, p256Key("other").get()));
             signAnew(root, p256Key("other"));
         }},
    };
}

X509* firstCertificateIn(X509_STORE* store)
{
    return X509_OBJECT_get0_X509(sk_X509_OBJECT_value(X509_STORE_get0_objects(store), 0));
}

class LiveStoreValidation : public testing::TestWithParam<Change>
{};

} // namespace

TEST_P(LiveStoreValidation, SeesChangeOfCertificateInPlace)
{
    auto const leaf = load(pki()["leaf"]);
    auto const store = storeOf({pki()["root"]});
    auto const live = getOpenSSLStore(store);
    auto const statusOf = [&](TrustStore const& judged) {
        return leaf.validateCertificate({}, Options(), judged).getCertificateChainStatus();
    };
    ASSERT_EQ(statusOf(store), Status::Valid);
    TrustStore const copiedBefore(store);

    GetParam().apply(firstCertificateIn(live.get()));

    ReferenceValidator reference;
    reference.leaf = pki()["leaf"].certificate;
    reference.store = live;
    auto const expected = static_cast<Status>(reference.validate().status);
    EXPECT_EQ(statusOf(store), expected);
    EXPECT_EQ(statusOf(TrustStore(store)), expected);
    EXPECT_EQ(statusOf(copiedBefore), Status::Valid);
    EXPECT_TRUE(expected != Status::Valid || !contains(GetParam().name, "Signed"));
}

INSTANTIATE_TEST_SUITE_P(
    EveryChange, LiveStoreValidation, testing::ValuesIn(changesOfRoot()), testing::PrintToStringParamName());

TEST(LiveStoreValidation, SeesCertificateThatBecomesTheRoot)
{
    auto const leaf = load(pki()["leaf"]);
    auto const store = storeOf({makeRoot("other")});
    auto const live = getOpenSSLStore(store);
    auto const status = [&] {
        return leaf.validateCertificate({}, Options(), store).getCertificateChainStatus();
    };
    ASSERT_EQ(status(), Status::Untrusted);

    auto* const certificate = firstCertificateIn(live.get());
    auto const root = pki()["root"];
    require(X509_set_subject_name(certificate, X509_get_subject_name(root.certificate.get())));
    require(X509_set_issuer_name(certificate, X509_get_subject_name(root.certificate.get())));
    require(X509_set_pubkey(certificate, root.key.get()));
    // The key identifier of the other key would not fit.
    X509_EXTENSION_free(
        X509_delete_ext(certificate, X509_get_ext_by_NID(certificate, NID_subject_key_identifier, -1)));
    auto const identifier = X509_get0_subject_key_id(root.certificate.get());
    require(X509_add1_ext_i2d(
        certificate, NID_subject_key_identifier, const_cast<ASN1_OCTET_STRING*>(identifier), 0, 0));
    signAnew(certificate, root.key);

    EXPECT_EQ(status(), Status::Valid);
}

TEST(LiveStoreValidation, IgnoresTrustSettings)
{
    auto const leaf = load(pki()["leaf"]);
    auto const store = storeOf({pki()["root"], makeRoot("other")});
    auto const live = getOpenSSLStore(store);
    auto* const entries = X509_STORE_get0_objects(live.get());
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        auto* const certificate = X509_OBJECT_get0_X509(sk_X509_OBJECT_value(entries, index));
        require(X509_add1_reject_object(certificate, OBJ_nid2obj(NID_anyExtendedKeyUsage)));
    }
    EXPECT_EQ(leaf.validateCertificate({}, Options(), store).getCertificateChainStatus(), Status::Valid);
}

TEST(LiveStoreValidation, DoesNotTrustIntermediateForItsTrustSettings)
{
    Topology const path({{"root", ""}, {"ca", "root"}, {"leaf", "ca"}});
    auto const leaf = load(path["leaf"]);
    auto const store = storeOf({path["ca"]});
    auto const live = getOpenSSLStore(store);
    require(X509_add1_trust_object(firstCertificateIn(live.get()), OBJ_nid2obj(NID_anyExtendedKeyUsage)));
    require(X509_STORE_set_flags(live.get(), X509_V_FLAG_PARTIAL_CHAIN));
    EXPECT_EQ(leaf.validateCertificate({}, Options(), store).getCertificateChainStatus(), Status::Untrusted);
}
