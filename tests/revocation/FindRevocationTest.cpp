#include "certificate/X509CertificateImpl.hpp"

#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using RevocationStatus = CertificateRevocationResults::RevocationStatus;
using CRLs = X509CertificateImpl::CRLs;

struct Finding
{
    RevocationStatus status = RevocationStatus::NotRevoked;
    std::string date;
    std::string serialNumber;
};

bool operator==(Finding const& left, Finding const& right)
{
    return left.status == right.status && left.date == right.date && left.serialNumber == right.serialNumber;
}

void PrintTo(Finding const& finding, std::ostream* out)
{
    *out << static_cast<int>(finding.status) << " \"" << finding.date << "\" \"" << finding.serialNumber
         << '"';
}

Finding const notRevoked{};

Finding revoked(std::string const& date, std::string const& serialNumber)
{
    return {RevocationStatus::Revoked, date, serialNumber};
}

Finding findRevocation(CRLs const& crls, std::vector<X509Certificate> const& certificates)
{
    auto const results = X509CertificateImpl().findRevocation(crls, certificates);
    return {
        results.getRevocationStatus(), results.getRevocationDateString(),
        results.getRevokedSerialNumberString()};
}

CRLs crlList(std::vector<CrlHandle> const& handles)
{
    CRLs crls;
    for (auto const& handle : handles) {
        crls.push_back(makeX509_CRL(handle == nullptr ? nullptr : X509_CRL_dup(handle.get())));
    }
    return crls;
}

TimeSpec const day1 = TimeSpec::at(1000000000); // 2001-09-09 01:46:40 UTC
TimeSpec const day2 = TimeSpec::at(1234567890); // 2009-02-13 23:31:30 UTC
std::string const day1Text = "Sep  9 01:46:40 2001 GMT";
std::string const day2Text = "Feb 13 23:31:30 2009 GMT";

/// root -> intermediate 2000 -> leaf 1000
class FindRevocation : public testing::Test
{
protected:
    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const intermediate =
        makeIntermediate(root, "intermediate", [](CertificateSpec& spec) { spec.serialNumber = "2000"; });
    CertificateAndKey const leaf = leafWithSerial("1000");
    std::vector<X509Certificate> const certificates{
        X509Certificate(leaf.der()), X509Certificate(intermediate.der()), X509Certificate(root.der())};

    CertificateAndKey leafWithSerial(std::string const& serialNumber) const
    {
        return makeLeaf(
            intermediate, "leaf", [&](CertificateSpec& spec) { spec.serialNumber = serialNumber; });
    }

    Finding findLeaf(std::string const& serialNumber, std::vector<RevokedEntry> const& entries) const
    {
        return findRevocation(
            crlList({makeCrl(intermediate, entries)}), {X509Certificate(leafWithSerial(serialNumber).der())});
    }
};

} // namespace

TEST_F(FindRevocation, FindsNothingWithoutCRLs)
{
    EXPECT_EQ(findRevocation({}, certificates), notRevoked);
    EXPECT_EQ(findRevocation({}, {}), notRevoked);
    EXPECT_EQ(findRevocation({}, {X509Certificate()}), notRevoked);
}

TEST_F(FindRevocation, FindsNothingInCRLsOfOtherCertificates)
{
    auto const crls = crlList({makeCrl(intermediate), makeCrl(root, {{"1"}, {"10000"}, {"-2000"}, {"200"}})});
    ASSERT_EQ(X509_CRL_get_REVOKED(crls[0].get()), nullptr);

    EXPECT_EQ(findRevocation(crls, certificates), notRevoked);
}

TEST_F(FindRevocation, ReturnsDateAndSerialNumberOfEntry)
{
    auto const crls = crlList({makeCrl(intermediate, {{"999", day2}, {"1000", day1}, {"1001", day2}})});

    EXPECT_EQ(findRevocation(crls, certificates), revoked(day1Text, "1000"));
}

TEST_F(FindRevocation, ReturnsDatesOfAnyCentury)
{
    struct
    {
        std::int64_t date;
        char const* text;
    } const rows[] = {
        {-631152000, "Jan  1 00:00:00 1950 GMT"},
        {2524607999, "Dec 31 23:59:59 2049 GMT"},
        {2524608000, "Jan  1 00:00:00 2050 GMT"},
        {253402300799, "Dec 31 23:59:59 9999 GMT"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(findLeaf("1000", {{"1000", TimeSpec::at(row.date)}}), revoked(row.text, "1000"));
    }
}

TEST_F(FindRevocation, SearchesNextLevel)
{
    auto const crls = crlList({makeCrl(intermediate, {{"1", day1}}), makeCrl(root, {{"2000", day2}})});

    EXPECT_EQ(findRevocation(crls, certificates), revoked(day2Text, "2000"));
}

TEST_F(FindRevocation, ReturnsLowestOfTwoRevokedCertificates)
{
    auto const crls = crlList({makeCrl(intermediate, {{"1000", day1}}), makeCrl(root, {{"2000", day2}})});

    EXPECT_EQ(findRevocation(crls, certificates), revoked(day1Text, "1000"));
}

TEST_F(FindRevocation, ComparesCertificateOnlyWithCRLOfItsLevel)
{
    auto const crls = crlList({makeCrl(intermediate, {{"2000", day1}}), makeCrl(root, {{"1000", day2}})});

    EXPECT_EQ(findRevocation(crls, certificates), notRevoked);
}

TEST_F(FindRevocation, ReturnsFirstOfSeveralEntries)
{
    EXPECT_EQ(findLeaf("1000", {{"1000", day2}, {"1000", day1}}), revoked(day2Text, "1000"));
    EXPECT_EQ(findLeaf("1000", {{"1000", day1}, {"1000", day2}}), revoked(day1Text, "1000"));
}

TEST_F(FindRevocation, ComparesSerialNumbersAsDecimalText)
{
    struct
    {
        std::string ofTheCertificate;
        std::string ofTheEntry;
        Finding expected;
    } const rows[] = {
        {"0x0100", "256", revoked(day1Text, "256")},
        // Encoded with a leading zero byte.
        {"0x80", "0x80", revoked(day1Text, "128")},
        {"0", "0", revoked(day1Text, "0")},
        {"-5", "-5", revoked(day1Text, "-5")},
        {"5", "-5", notRevoked},
        {"-5", "5", notRevoked},
        {"-128", "128", notRevoked},
        {"10", "1", notRevoked},
        {"1", "10", notRevoked},
        {"0x7fffffffffffffffffffffffffffffffffffffff", "0x7fffffffffffffffffffffffffffffffffffffff",
         revoked(day1Text, "730750818665451459101842416358141509827966271487")},
        {"0x7fffffffffffffffffffffffffffffffffffffff", "0x7ffffffffffffffffffffffffffffffffffffffe",
         notRevoked},
        // 21 bytes, one more than the standard allows.
        {"0x010000000000000000000000000000000000000000", "0x010000000000000000000000000000000000000000",
         revoked(day1Text, "1461501637330902918203684832716283019655932542976")},
        {"0x010000000000000000000000000000000000000000", "0x020000000000000000000000000000000000000000",
         notRevoked},
        {"0x010000000000000000000000000000000000000000", "-0x010000000000000000000000000000000000000000",
         notRevoked},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(findLeaf(row.ofTheCertificate, {{row.ofTheEntry, day1}}), row.expected)
            << row.ofTheCertificate << " and " << row.ofTheEntry;
    }
}

TEST_F(FindRevocation, IgnoresReason)
{
    for (int const reason :
         {CRL_REASON_UNSPECIFIED, CRL_REASON_CERTIFICATE_HOLD, CRL_REASON_REMOVE_FROM_CRL}) {
        EXPECT_EQ(findLeaf("1000", {{"1000", day1, reason}}), revoked(day1Text, "1000")) << reason;
    }
}

TEST_F(FindRevocation, SearchesHundredThousandEntries)
{
    std::vector<RevokedEntry> entries;
    for (int serialNumber = 100001; serialNumber <= 200000; ++serialNumber) {
        entries.push_back({std::to_string(serialNumber), day1});
    }
    auto const crls = crlList({makeCrl(intermediate, entries)});

    EXPECT_EQ(
        findRevocation(crls, {X509Certificate(leafWithSerial("200000").der())}), revoked(day1Text, "200000"));
    EXPECT_EQ(findRevocation(crls, {X509Certificate(leafWithSerial("200001").der())}), notRevoked);
}

TEST_F(FindRevocation, AcceptsListsOfDifferentLength)
{
    auto const crl = makeCrl(intermediate, {{"1", day1}});
    auto const crlOfRoot = makeCrl(root, {{"1", day1}});

    EXPECT_EQ(findRevocation(crlList({crl}), {}), notRevoked);
    EXPECT_EQ(findRevocation(crlList({crl, crlOfRoot, crlOfRoot}), {certificates[0]}), notRevoked);
    EXPECT_EQ(findRevocation(crlList({crl}), certificates), notRevoked);
}

TEST_F(FindRevocation, SkipsLevelWithoutCRL)
{
    auto const crls = crlList({nullptr, makeCrl(root, {{"2000", day2}})});

    EXPECT_EQ(findRevocation(crls, certificates), revoked(day2Text, "2000"));
}

TEST_F(FindRevocation, RefusesCertificateWithoutContent)
{
    auto const empty = crlList({makeCrl(intermediate), makeCrl(root)});
    std::vector<X509Certificate> movedFrom(1);
    X509Certificate const taken(std::move(movedFrom[0]));

    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        findRevocation(empty, {certificates[0], X509Certificate()}));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate has no content.",
        findRevocation(crlList({nullptr}), {X509Certificate()}));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        findRevocation(empty, movedFrom));
}

TEST_F(FindRevocation, RefusesUnreadableDateOnlyInMatchingEntry)
{
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: printing the ASN1 time failed.",
        findLeaf("1000", {{"1000", TimeSpec::unreadable()}}));
    EXPECT_EQ(findLeaf("1000", {{"999", TimeSpec::unreadable()}, {"1000", day1}}), revoked(day1Text, "1000"));
}
