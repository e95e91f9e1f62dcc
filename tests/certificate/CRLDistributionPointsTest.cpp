#include "certificate/X509CertificateImpl.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/pki/DistributionPoints.hpp"
#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using URIs = std::vector<std::string>;

std::string der(int tag, std::string const& content)
{
    return asText(derElement(tag, asBytes(content)));
}

std::string point(int kindOfName, std::string const& name)
{
    return asText(distributionPoint(kindOfName, asBytes(name)));
}

std::string fullName(std::string const& names)
{
    return point(fullNameTag, names);
}

std::string encodedCommonName(std::string const& value)
{
    return asText(commonNameAttribute(value));
}

Mutation withContent(std::string const& content)
{
    return
        [content](CertificateSpec& spec) { spec.setRawExtension("crlDistributionPoints", asBytes(content)); };
}

Mutation withPoints(std::string const& points)
{
    return withContent(der(sequenceTag, points));
}

URIs distributionPointsOf(Mutation const& mutate)
{
    auto const certificate = makeSelfSignedLeaf("leaf", mutate);
    return X509CertificateImpl().getCRLDistributionPoints(X509Certificate(certificate.der()));
}

} // namespace

TEST(CRLDistributionPoints, AreAllURIsInOrderOfCertificate)
{
    auto const mutate = [](CertificateSpec& spec) {
        spec.setRawExtension(
            "crlDistributionPoints",
            distributionPointsContent({{"ldap://a/b", "http://c/d"}, {"https://e"}, {"http://f/g"}}));
    };
    EXPECT_EQ(distributionPointsOf(mutate), (URIs{"ldap://a/b", "http://c/d", "https://e", "http://f/g"}));
}

TEST(CRLDistributionPoints, AreEmptyWithoutReadableExtension)
{
    struct
    {
        char const* name;
        Mutation mutate;
    } const rows[] = {
        {"no extension", {}},
        {"empty content", withContent("")},
        {"garbage", withContent("garbage")},
        {"cut short", withContent(der(sequenceTag, fullName(der(uriTag, "http://a/b"))).substr(0, 12))},
        {"no points", withPoints("")},
        {"name of a third type", withPoints(point(0xa2, ""))},
        {"two extensions",
         [](CertificateSpec& spec) {
             spec.setDistributionPoints({"http://a/b"});
             spec.extensions.push_back({"2.5.29.31", "", distributionPointsContent({{"http://c/d"}})});
         }},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(distributionPointsOf(row.mutate), URIs()) << row.name;
    }
}

TEST(CRLDistributionPoints, SkipOtherNamesThanURIs)
{
    struct
    {
        char const* name;
        std::string points;
        URIs expected;
    } const rows[] = {
        {"point without any content", der(sequenceTag, ""), {}},
        {"point with reasons only", der(sequenceTag, der(pointReasonsTag, std::string("\x01\x40", 2))), {}},
        {"point with an issuer only", der(sequenceTag, der(pointIssuerTag, der(dnsTag, "a"))), {}},
        {"full name without names", fullName(""), {}},
        {"DNS name", fullName(der(dnsTag, "a.example")), {}},
        {"DNS name before URI", fullName(der(dnsTag, "a") + der(uriTag, "http://a/b")), {"http://a/b"}},
        {"nameless point before URI",
         der(sequenceTag, "") + fullName(der(uriTag, "http://a/b")),
         {"http://a/b"}},
        {"empty URI", fullName(der(uriTag, "")), {""}},
        {"zero byte in URI",
         fullName(der(uriTag, std::string("http://a\0b/c", 12))),
         {std::string("http://a\0b/c", 12)}},
        {"URI of 50000 characters",
         fullName(der(uriTag, std::string(50000, 'x'))),
         {std::string(50000, 'x')}},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(distributionPointsOf(withPoints(row.points)), row.expected) << row.name;
    }
}

TEST(CRLDistributionPoints, IncludeValuesOfRelativeNames)
{
    auto const relative = [](std::string const& attributes) { return point(relativeNameTag, attributes); };
    struct
    {
        char const* name;
        std::string points;
        URIs expected;
    } const rows[] = {
        {"one attribute", relative(encodedCommonName("one")), {"one"}},
        {"two attributes", relative(encodedCommonName("a") + encodedCommonName("bb")), {"a", "bb"}},
        {"empty value", relative(encodedCommonName("")), {""}},
        {"URL as value, before a URI",
         relative(encodedCommonName("http://a/b")) + fullName(der(uriTag, "http://c/d")),
         {"http://a/b", "http://c/d"}},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(distributionPointsOf(withPoints(row.points)), row.expected) << row.name;
    }
}

TEST(CRLDistributionPoints, MayBeVeryMany)
{
    URIs const uris(20000, "http://a/b");
    EXPECT_EQ(distributionPointsOf([&](CertificateSpec& spec) { spec.setDistributionPoints(uris); }), uris);
}

TEST(CRLDistributionPoints, FailWithoutCertificate)
{
    X509CertificateImpl const implementation;
    X509Certificate const empty;
    X509Certificate source;
    X509Certificate const target(std::move(source));

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        implementation.getCRLDistributionPoints(empty));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        implementation.getCRLDistributionPoints(source));
}
