// The headers of the library come first: they must not rely on <filesystem>.
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <type_traits>

/// @file
/// A path converts to a string of its own characters. Loading from that string would parse the path instead
/// of the file. So no class with a constructor from strings has one from paths.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Converts to a string like a path, but is not a path.
struct Text
{
    operator std::string() const { return "text"; }
};

class DerivedPath : public std::filesystem::path
{};

template <class Loaded>
class PathConstruction : public testing::Test
{};

using LoadedClasses = testing::Types<
    X509Certificate, X509CertificateChain, X509CertificateChainImpl, PKCS7Certificate, PKCS7CertificateImpl>;
TYPED_TEST_SUITE(PathConstruction, LoadedClasses);

} // namespace

TYPED_TEST(PathConstruction, IsRefused)
{
    using Path = std::filesystem::path;
    EXPECT_FALSE((std::is_constructible_v<TypeParam, Path>));
    EXPECT_FALSE((std::is_constructible_v<TypeParam, Path&>));
    EXPECT_FALSE((std::is_constructible_v<TypeParam, Path const&>));
    EXPECT_FALSE((std::is_constructible_v<TypeParam, Path const>));
}

TYPED_TEST(PathConstruction, IsRefusedForPathsOnly)
{
    EXPECT_TRUE((std::is_constructible_v<TypeParam, char const(&)[5]>));
    EXPECT_TRUE((std::is_constructible_v<TypeParam, char const*>));
    EXPECT_TRUE((std::is_constructible_v<TypeParam, std::string>));
    EXPECT_TRUE((std::is_constructible_v<TypeParam, std::string&>));
    EXPECT_TRUE((std::is_constructible_v<TypeParam, std::istringstream&>));
    EXPECT_TRUE((std::is_constructible_v<TypeParam, Text>));
    // On Windows, paths convert to wide strings only.
    constexpr bool isText = std::is_convertible_v<DerivedPath, std::string>;
    EXPECT_EQ((std::is_constructible_v<TypeParam, DerivedPath>), isText);
    EXPECT_TRUE((std::is_move_constructible_v<TypeParam>));
    EXPECT_FALSE((std::is_constructible_v<TypeParam, int>));
}

TEST(PathConstruction, LeavesOtherFormsOfInput)
{
    auto const made = makeRoot("root");
    std::string const pem = made.pem();
    std::istringstream stream(pem);
    EXPECT_EQ(X509Certificate(pem.c_str()), X509Certificate(made.der()));
    EXPECT_EQ(X509Certificate(stream), X509Certificate(pem));
    EXPECT_EQ(X509CertificateChain(pem.c_str()).getCertificates().at(0), X509Certificate(pem));
}
