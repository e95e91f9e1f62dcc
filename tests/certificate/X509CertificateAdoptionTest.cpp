#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509Access.hpp"
#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/x509.h>

#include <exception>
#include <ostream>
#include <string>
#include <typeinfo>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct Failed
{
    /// Empty if nothing was thrown.
    std::string thrown;
    std::string text;
    std::vector<unsigned long> queue;

    bool operator==(Failed const& other) const
    {
        return thrown == other.thrown && text == other.text && queue == other.queue;
    }
};

std::ostream& operator<<(std::ostream& out, Failed const& failed)
{
    return out << failed.thrown << " \"" << failed.text << "\", " << failed.queue.size() << " queued";
}

/// Makes an implementation from the object, with an entry in the error queue.
template <class Make>
Failed failureOf(X509Handle const& object, Make const& make)
{
    CleanErrorQueue const clean;
    queueForeignError();
    Failed failed;
    try {
        make(object.get());
    } catch (std::exception const& failure) {
        failed.thrown = typeid(failure).name();
        failed.text = failure.what();
    }
    failed.queue = drainErrorQueue();
    return failed;
}

Failed failureToDuplicate(X509Handle const& object)
{
    return failureOf(object, [](X509* certificate) { X509CertificateImpl{certificate}; });
}

Failed failureToAdopt(X509Handle const& object)
{
    return failureOf(object, [](X509* certificate) { X509CertificateImpl::adopt(certificate); });
}

CertificateAndKey withKey(KeyHandle const& key)
{
    static auto const root = makeRoot("root");
    return makeLeaf(root, "leaf", [&](CertificateSpec& spec) { spec.key = key; });
}

CertificateAndKey withFault(PublicKeyFault fault)
{
    return makeRoot("faulty", [&](CertificateSpec& spec) { spec.publicKeyFault = fault; });
}

X509Certificate adopted(X509Handle const& object)
{
    return X509Certificate(X509CertificateImpl::adopt(object.get()));
}

} // namespace

TEST(X509CertificateAdoption, KeepsParsedObject)
{
    for (auto const& key : {rsaKey(), p256Key(), ed25519Key()}) {
        auto const made = withKey(key);
        auto object = parseDer(made.der());
        X509* const address = object.get();
        auto const certificate = adopted(object);
        object.reset();
        EXPECT_EQ(X509Access::share(certificate).get(), address);
        EXPECT_EQ(certificate.getAsBytes(), made.der());
    }
}

TEST(X509CertificateAdoption, RemovesWhatDuplicateDoesNotHave)
{
    auto const object = parseDer(makeRoot("root").der());
    Bytes const name{'n', 'a', 'm', 'e'};
    require(X509_add1_trust_object(object.get(), OBJ_nid2obj(NID_server_auth)));
    require(X509_add1_reject_object(object.get(), OBJ_nid2obj(NID_email_protect)));
    require(X509_alias_set1(object.get(), name.data(), static_cast<int>(name.size())));
    require(X509_keyid_set1(object.get(), name.data(), static_cast<int>(name.size())));
    auto const certificate = adopted(object);
    auto const shared = X509Access::share(certificate);
    ASSERT_EQ(shared.get(), object.get());
    EXPECT_EQ(X509_get0_trust_objects(shared.get()), nullptr);
    EXPECT_EQ(X509_get0_reject_objects(shared.get()), nullptr);
    EXPECT_EQ(X509_alias_get0(shared.get(), nullptr), nullptr);
    EXPECT_EQ(X509_keyid_get0(shared.get(), nullptr), nullptr);
}

TEST(X509CertificateAdoption, FailsAsDuplicateDoes)
{
    std::vector<CertificateAndKey> const refused = {
        withKey(rsaKey(1023)),
        withKey(p384Key()),
        withKey(ed448Key()),
        withKey(dsaKey()),
        withKey(rsaPssKey(1024)),
        withFault(PublicKeyFault::Undecodable),
        withFault(PublicKeyFault::UnknownType),
        withFault(PublicKeyFault::NamelessCurve),
    };
    for (auto const& made : refused) {
        auto const expected = failureToDuplicate(parseDer(made.der()));
        EXPECT_FALSE(expected.thrown.empty());
        EXPECT_EQ(failureToAdopt(parseDer(made.der())), expected);
    }
    auto const noObject = failureToDuplicate(nullptr);
    EXPECT_EQ(noObject.text, "Error: X509Certificate has no content.");
    EXPECT_EQ(failureToAdopt(nullptr), noObject);
}

TEST(X509CertificateAdoption, LeavesErrorQueueOnSuccess)
{
    auto const unreadable = [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", {0x30, 0x05, 0x01});
    };
    for (auto const& made : {makeRoot("root"), makeRoot("unreadable", unreadable)}) {
        auto const expected = failureToDuplicate(parseDer(made.der()));
        EXPECT_EQ(expected.thrown, "");
        EXPECT_EQ(expected.queue.size(), 1U);
        EXPECT_EQ(failureToAdopt(parseDer(made.der())), expected);
    }
}
