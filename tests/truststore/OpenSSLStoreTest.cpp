#include "support/openssl/OpenSSLErrors.hpp"
#include "support/openssl/TLSHandshake.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>

#include <openssl/ssl.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

Topology const& pki()
{
    static Topology const topology({{"root", ""}, {"intermediate", "root"}, {"server", "intermediate"}});
    return topology;
}

X509Certificate certificate(std::string const& name)
{
    return X509Certificate(pki()[name].der());
}

TrustStore storeOf(std::string const& name)
{
    TrustStore store;
    store.addCertificate(certificate(name));
    return store;
}

int entriesIn(X509_STORE* store)
{
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

/// Returns a server that sends the leaf of the test PKI and its intermediate.
TLSContextHandle makeServer()
{
    return makeTLSServer(
        pki()["server"].certificate, pki()["server"].key, {pki()["intermediate"].certificate});
}

bool clientAcceptsServer(TLSContextHandle const& client, TLSContextHandle const& server)
{
    return verifyResultOfHandshake(client, server) == X509_V_OK;
}

} // namespace

TEST(GetOpenSSLStore, ReturnsFurtherOwnerOfLiveStore)
{
    TrustStore store = storeOf("root");
    auto const live = getOpenSSLStore(store);
    EXPECT_EQ(getOpenSSLStore(store), live);
    store.addCertificate(certificate("intermediate"));
    EXPECT_EQ(entriesIn(live.get()), 2);
    store = TrustStore();
    EXPECT_EQ(entriesIn(live.get()), 2);
    EXPECT_EQ(live.use_count(), 1);
}

TEST(CopyOpenSSLStore, CopyIsIndependent)
{
    TrustStore store = storeOf("root");
    auto const copy = copyOpenSSLStore(store);
    EXPECT_EQ(copy.get_deleter(), X509_STORE_free);
    EXPECT_NE(copy.get(), getOpenSSLStore(store).get());
    require(X509_STORE_add_cert(copy.get(), pki()["intermediate"].certificate.get()));
    require(X509_STORE_add_crl(copy.get(), makeCrl(pki()["root"]).get()));
    require(X509_STORE_set_flags(copy.get(), X509_V_FLAG_CRL_CHECK));
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(TrustStore(store).size(), 1U);
    auto const secondCopy = copyOpenSSLStore(store);
    EXPECT_EQ(X509_VERIFY_PARAM_get_flags(X509_STORE_get0_param(secondCopy.get())), 0U);
    store.addCertificate(certificate("server"));
    EXPECT_EQ(entriesIn(copy.get()), 3);
}

TEST(CopyOpenSSLStore, CopyOfEmptyStoreIsEmptyStore)
{
    auto const copy = copyOpenSSLStore(TrustStore());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(entriesIn(copy.get()), 0);
    require(X509_STORE_add_cert(copy.get(), pki()["root"].certificate.get()));
}

TEST(CopyOpenSSLStore, CopySharesCrlsAndDuplicatesCertificates)
{
    TrustStore const store = storeOf("root");
    auto const live = getOpenSSLStore(store);
    require(X509_STORE_add_crl(live.get(), makeCrl(pki()["root"]).get()));
    auto const copy = copyOpenSSLStore(store);
    ASSERT_EQ(entriesIn(copy.get()), 2);
    EXPECT_EQ(store.size(), 2U);
    int crls = 0;
    for (int index = 0; index < 2; ++index) {
        X509_OBJECT const* const original = sk_X509_OBJECT_value(X509_STORE_get0_objects(live.get()), index);
        X509_OBJECT const* const entry = sk_X509_OBJECT_value(X509_STORE_get0_objects(copy.get()), index);
        ASSERT_EQ(X509_OBJECT_get_type(original), X509_OBJECT_get_type(entry));
        if (X509_OBJECT_get_type(entry) == X509_LU_CRL) {
            ++crls;
            EXPECT_EQ(X509_OBJECT_get0_X509_CRL(original), X509_OBJECT_get0_X509_CRL(entry));
        } else {
            EXPECT_NE(X509_OBJECT_get0_X509(original), X509_OBJECT_get0_X509(entry));
        }
    }
    EXPECT_EQ(crls, 1);
}

TEST(OpenSSLStoreAccess, MovedFromTrustStoreHasNoStore)
{
    TrustStore source = storeOf("root");
    TrustStore const target(std::move(source));
    // NOLINTBEGIN(bugprone-use-after-move): the state of the source is documented
    EXPECT_EQ(getOpenSSLStore(source), nullptr);
    auto const copy = copyOpenSSLStore(source);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(copy.get_deleter(), X509_STORE_free);

    auto const context = makeTLSContext();
    X509_STORE* const before = SSL_CTX_get_cert_store(context.get());
    attachTrustStoreToSSLCTX(source, context.get());
    EXPECT_EQ(SSL_CTX_get_cert_store(context.get()), before);
    // NOLINTEND(bugprone-use-after-move)
}

TEST(AttachTrustStore, NullContextIsIgnored)
{
    TrustStore const store = storeOf("root");
    EXPECT_NO_THROW(attachTrustStoreToSSLCTX(store, nullptr));
    EXPECT_EQ(getOpenSSLStore(store).use_count(), 2);
}

TEST(AttachTrustStore, ContextSharesLiveStore)
{
    TrustStore store;
    auto const context = makeTLSContext();
    attachTrustStoreToSSLCTX(store, context.get());
    EXPECT_EQ(SSL_CTX_get_cert_store(context.get()), getOpenSSLStore(store).get());
    TrustStore copy(store);
    copy.addCertificate(certificate("intermediate"));
    EXPECT_EQ(entriesIn(SSL_CTX_get_cert_store(context.get())), 0);
    store.addCertificate(certificate("root"));
    EXPECT_EQ(entriesIn(SSL_CTX_get_cert_store(context.get())), 1);
}

TEST(AttachTrustStore, ContextHasItsOwnReference)
{
    auto const context = makeTLSContext();
    {
        TrustStore const store = storeOf("root");
        attachTrustStoreToSSLCTX(store, context.get());
        // The second call releases one reference and takes another.
        attachTrustStoreToSSLCTX(store, context.get());
    }
    EXPECT_EQ(entriesIn(SSL_CTX_get_cert_store(context.get())), 1);

    TrustStore const store = storeOf("root");
    {
        auto const shortLived = makeTLSContext();
        attachTrustStoreToSSLCTX(store, shortLived.get());
    }
    EXPECT_EQ(store.size(), 1U);
    EXPECT_EQ(store.getPEMStrings().size(), 1U);
}

TEST(AttachTrustStore, HandshakeSucceedsOnceRootIsAdded)
{
    auto const server = makeServer();
    auto const client = makeTLSClient();
    TrustStore store;
    attachTrustStoreToSSLCTX(store, client.get());
    EXPECT_FALSE(clientAcceptsServer(client, server));

    TrustStore copy(store);
    copy.addCertificate(certificate("root"));
    EXPECT_FALSE(clientAcceptsServer(client, server));

    store.addCertificate(certificate("root"));
    EXPECT_TRUE(clientAcceptsServer(client, server));
}

TEST(AttachTrustStore, HandshakeSucceedsAfterTrustStoreIsDestroyed)
{
    auto const server = makeServer();
    auto const client = makeTLSClient();
    {
        TrustStore const store = storeOf("root");
        attachTrustStoreToSSLCTX(store, client.get());
    }
    EXPECT_TRUE(clientAcceptsServer(client, server));
}

TEST(OpenSSLStoreAccess, ErrorQueueIsUnchanged)
{
    TrustStore const store = storeOf("root");
    auto const context = makeTLSContext();
    CleanErrorQueue const clean;
    auto const foreign = queueForeignError();
    getOpenSSLStore(store);
    copyOpenSSLStore(store);
    attachTrustStoreToSSLCTX(store, context.get());
    EXPECT_EQ(drainErrorQueue(), std::vector<unsigned long>{foreign});
}
