#include "libcrypto/OpenSSLHandles.hpp"

#include "support/assertions/ExactThrow.hpp"

#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <utility>

using namespace foundation::certificates;

namespace {

/// Counts the runs of the deleter below.
int numReleased = 0;

void countRelease(int* /*pointer*/)
{
    ++numReleased;
}

} // namespace

TEST(OpenSSLHandles, TakeTwoWords)
{
    EXPECT_EQ(sizeof(BIOUPtr), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(BN_CTXUPtr), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(X509StackUPtr), 2 * sizeof(void*));
}

TEST(OpenSSLHandles, RunDeleterOnceAndNotForNull)
{
    numReleased = 0;
    int object = 0;
    {
        OpenSSLHandle<int> const null(nullptr, countRelease);
        OpenSSLHandle<int> handle(&object, countRelease);
        OpenSSLHandle<int> const moved(std::move(handle));
        EXPECT_EQ(moved.get(), &object);
    }
    EXPECT_EQ(numReleased, 1);
}

TEST(OpenSSLHandles, MakersNamedUPtrRefuseNull)
{
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Fail to create BN_CTXUPtr; the given raw pointer is NULL",
        makeBN_CTXUPtr(nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Fail to create EC_GROUPUPtr; the given raw pointer is NULL",
        makeEC_GROUPUPtr(nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Fail to create EC_POINTUPtr; the given raw pointer is NULL",
        makeEC_POINTUPtr(nullptr));
    EXPECT_THROWS_EXACTLY(
        CertificateException, "Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL",
        makeOSSL_PARAMUPtr(nullptr));
}

TEST(OpenSSLHandles, MakersNamedUPtrHoldPointer)
{
    BN_CTX* const context = BN_CTX_new();
    EXPECT_EQ(makeBN_CTXUPtr(context).get(), context);
    auto const group = makeEC_GROUPUPtr(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
    EXPECT_NE(group, nullptr);
    EXPECT_NE(makeEC_POINTUPtr(EC_POINT_new(group.get())), nullptr);
    OSSL_PARAM const none = OSSL_PARAM_construct_end();
    EXPECT_NE(makeOSSL_PARAMUPtr(OSSL_PARAM_dup(&none)), nullptr);
}

TEST(OpenSSLHandles, OtherMakersAcceptNull)
{
    EXPECT_EQ(makeBIO(nullptr), nullptr);
    EXPECT_EQ(makeBIGNUM(nullptr), nullptr);
    EXPECT_EQ(makeEVP_MD_CTX(nullptr), nullptr);
    EXPECT_EQ(makeEVP_PKEY(nullptr), nullptr);
    EXPECT_EQ(makeX509(nullptr), nullptr);
    EXPECT_EQ(makeX509_CRL(nullptr), nullptr);
    EXPECT_EQ(makeX509Stack(nullptr), nullptr);
    EXPECT_EQ(makeASN1_OBJECTStack(nullptr), nullptr);
    EXPECT_EQ(makePOLICYINFOStack(nullptr), nullptr);
}

TEST(OpenSSLHandles, ReleaseEachObjectWithItsFunction)
{
    EXPECT_EQ(makeBN_CTXUPtr(BN_CTX_new()).get_deleter(), &BN_CTX_free);
    EXPECT_EQ(makeBIO(nullptr).get_deleter(), &BIO_free_all);
    EXPECT_EQ(makeBIGNUM(nullptr).get_deleter(), &BN_clear_free);
    EXPECT_EQ(makeEVP_MD_CTX(nullptr).get_deleter(), &EVP_MD_CTX_free);
    EXPECT_EQ(makeEVP_PKEY(nullptr).get_deleter(), &EVP_PKEY_free);
    EXPECT_EQ(makeX509(nullptr).get_deleter(), &X509_free);
    EXPECT_EQ(makeX509_CRL(nullptr).get_deleter(), &X509_CRL_free);
}

TEST(OpenSSLHandles, StacksReleaseTheirElements)
{
    // AddressSanitizer finds a leak and a second release.
    auto const certificates = makeX509Stack(sk_X509_new_null());
    auto certificate = makeX509(X509_new());
    ASSERT_GT(sk_X509_push(certificates.get(), certificate.get()), 0);
    certificate.release(); // NOLINT(bugprone-unused-return-value): the stack owns it now

    auto const objects = makeASN1_OBJECTStack(sk_ASN1_OBJECT_new_null());
    auto object = OpenSSLHandle<ASN1_OBJECT>(OBJ_txt2obj("1.2.3.4", 1), ASN1_OBJECT_free);
    ASSERT_GT(sk_ASN1_OBJECT_push(objects.get(), object.get()), 0);
    object.release(); // NOLINT(bugprone-unused-return-value): the stack owns it now

    auto const policies = makePOLICYINFOStack(sk_POLICYINFO_new_null());
    auto policy = OpenSSLHandle<POLICYINFO>(POLICYINFO_new(), POLICYINFO_free);
    ASSERT_GT(sk_POLICYINFO_push(policies.get(), policy.get()), 0);
    policy.release(); // NOLINT(bugprone-unused-return-value): the stack owns it now
}
