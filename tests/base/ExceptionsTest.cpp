#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

using namespace foundation::certificates;

namespace {

constexpr char const sentence[] = "Error: something long enough to live outside of any short string buffer.";

template <class Exception>
class ExceptionFamily : public testing::Test
{};

using AllExceptions = testing::Types<
    CertificateException, InvalidArgument, NotRSAKey, NotECCKey, UnsupportedKeyType, UnsupportedEllipticCurve,
    NotImplemented, X509CertificateException, X509CertificateChainException, PKCS7CertificateException,
    PKCS12CertificateException, IncorrectPassphrase, TrustStoreException>;
TYPED_TEST_SUITE(ExceptionFamily, AllExceptions);

template <class Handler, class Thrown>
bool catches()
{
    try {
        try {
            throw Thrown(sentence);
        } catch (Handler const&) {
            return true;
        }
    } catch (std::exception const&) {
        return false;
    }
}

} // namespace

TYPED_TEST(ExceptionFamily, WhatReturnsTextUnchanged)
{
    EXPECT_STREQ(TypeParam(sentence).what(), sentence);
    EXPECT_STREQ(TypeParam(std::string()).what(), "");
}

TYPED_TEST(ExceptionFamily, CopyKeepsText)
{
    TypeParam const original{std::string(sentence)};
    TypeParam const copy(original);
    TypeParam assigned("other");
    assigned = original;
    EXPECT_STREQ(copy.what(), sentence);
    EXPECT_STREQ(assigned.what(), sentence);
    EXPECT_STREQ(original.what(), sentence);
}

TYPED_TEST(ExceptionFamily, SourceOfMoveKeepsText)
{
    TypeParam original{std::string(sentence)};
    TypeParam const moved(std::move(original));
    EXPECT_STREQ(moved.what(), sentence);
    EXPECT_STREQ(original.what(), sentence); // NOLINT(bugprone-use-after-move): it keeps its text

    TypeParam assigned("other");
    assigned = std::move(original);
    EXPECT_STREQ(assigned.what(), sentence);
    EXPECT_STREQ(original.what(), sentence); // NOLINT(bugprone-use-after-move): it keeps its text
}

TYPED_TEST(ExceptionFamily, IsThrownByValueWithOwnType)
{
    try {
        throw TypeParam(sentence);
    } catch (std::exception const& thrown) {
        EXPECT_EQ(typeid(thrown), typeid(TypeParam));
        EXPECT_STREQ(thrown.what(), sentence);
    }
}

TYPED_TEST(ExceptionFamily, IsCaughtAsRuntimeError)
{
    EXPECT_TRUE((catches<std::runtime_error, TypeParam>()));
}

TYPED_TEST(ExceptionFamily, CarriesNothingButText)
{
    EXPECT_EQ(sizeof(TypeParam), sizeof(std::runtime_error));
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
}

TYPED_TEST(ExceptionFamily, IsCertificateExceptionUnlessOfTrustStore)
{
    constexpr bool ofTheTrustStore = std::is_same_v<TypeParam, TrustStoreException>;
    EXPECT_EQ((catches<CertificateException, TypeParam>()), !ofTheTrustStore);
}

TYPED_TEST(ExceptionFamily, DerivesDirectlyFromBaseClass)
{
    // Only the base classes catch another class.
    EXPECT_EQ(
        (catches<X509CertificateException, TypeParam>()),
        typeid(TypeParam) == typeid(X509CertificateException));
    EXPECT_EQ((catches<InvalidArgument, TypeParam>()), typeid(TypeParam) == typeid(InvalidArgument));
    EXPECT_EQ((catches<TrustStoreException, TypeParam>()), typeid(TypeParam) == typeid(TrustStoreException));
    EXPECT_EQ((catches<UnsupportedKeyType, TypeParam>()), typeid(TypeParam) == typeid(UnsupportedKeyType));
}
