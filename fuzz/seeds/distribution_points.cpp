#include "seeds/Seeds.hpp"

#include "support/pki/DistributionPoints.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

namespace {

using test::Bytes;
using test::derElement;
using test::dnsTag;
using test::joined;
using test::sequenceTag;

Bytes extension(Bytes const& content)
{
    return joined({content, {0}});
}

Bytes url(std::string const& text)
{
    return joined({test::asBytes(text), {1}});
}

Bytes uri(std::string const& text)
{
    return derElement(test::uriTag, test::asBytes(text));
}

Bytes points(Bytes const& point)
{
    return extension(derElement(sequenceTag, point));
}

Bytes pointOf(Bytes const& element)
{
    return points(derElement(sequenceTag, element));
}

Bytes fullName(Bytes const& names)
{
    return points(test::distributionPoint(test::fullNameTag, names));
}

Bytes relativeName(std::string const& commonName)
{
    return points(test::distributionPoint(test::relativeNameTag, test::commonNameAttribute(commonName)));
}

} // namespace

Seeds distributionPointsSeeds()
{
    using test::distributionPointsContent;
    std::string const withZero("http://a\0b/c\0d", 14);
    return {
        {"one", extension(distributionPointsContent({{"http://crl.test/a.crl"}}))},
        {"ldap_first", extension(distributionPointsContent({{"ldap://a/b", "http://c/d"}, {"http://e/f"}}))},
        {"none", extension(distributionPointsContent({}))},
        {"point_without_names", extension(distributionPointsContent({{}}))},
        {"not_an_extension", extension({0x05, 0x00})},
        {"reasons_alone", pointOf(derElement(test::pointReasonsTag, {0x01, 0x40}))},
        {"issuer_alone",
         pointOf(derElement(test::pointIssuerTag, derElement(dnsTag, test::asBytes("a.test"))))},
        {"other_kind_of_name", fullName(derElement(dnsTag, test::asBytes("http://a/b")))},
        {"zero_in_uri", fullName(uri(withZero))},
        {"line_feed_in_uri", fullName(joined({uri("http://a\n/b"), uri("http://c/d")}))},
        {"relative_name", relativeName("http://a/b")},
        {"url", url("http://crl.test/a.crl")},
        {"url_with_port_and_query", url("http://crl.test:8080/a/b?c=d#e")},
        {"url_with_zero", url(withZero)},
        {"url_without_host", url("http:///")},
        {"url_without_path", url("http://crl.test")},
        {"url_in_upper_case", url("HTTP://crl.test/")},
        {"url_with_line_end", url("http://a/b\r\nc")},
        {"url_with_carriage_return", url("http://a\r/b")},
        {"url_with_bytes_above_127", url("http://\xE2\x80\xA8/\xFF")},
    };
}

} // namespace foundation::fuzz
