#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#ifdef _WIN32
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#endif

#include <array>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::toolkit;

namespace foundation::toolkit {

void PrintTo(AlternativeName const& name, std::ostream* out)
{
    *out << static_cast<int>(name.kind) << " " << name.value;
}

} // namespace foundation::toolkit

namespace {

using Kind = AlternativeName::Kind;

/// Returns a certificate with these alternative names, in OpenSSL's configuration language.
Certificate certificateFor(std::string const& names, std::string const& sections = "")
{
    static auto const root = makeRoot("root");
    return Certificate::fromDER(makeLeaf(root, "common.example", [&](CertificateSpec& spec) {
                                    spec.extensionSections = sections;
                                    spec.setExtension("subjectAltName", names);
                                }).der());
}

Certificate certificateForRaw(Bytes const& names)
{
    static auto const root = makeRoot("root");
    return Certificate::fromDER(makeLeaf(root, "leaf", [&](CertificateSpec& spec) {
                                    spec.setRawExtension("subjectAltName", derElement(sequenceTag, names));
                                }).der());
}

constexpr int tagOfDNS = 0x82;
constexpr int tagOfAddress = 0x87;

Certificate certificateForAddress(Bytes const& address)
{
    return certificateForRaw(derElement(tagOfAddress, address));
}

/// Returns the first alternative name as OpenSSL prints it. Its wording changes between versions.
std::string printedByOpenSSL(Certificate const& certificate)
{
    auto const object = certificate.duplicateX509();
    std::shared_ptr<GENERAL_NAMES> const names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(object.get(), NID_subject_alt_name, nullptr, nullptr)),
        GENERAL_NAMES_free);
    auto const bio = own(BIO_new(BIO_s_mem()));
    require(GENERAL_NAME_print(bio.get(), sk_GENERAL_NAME_value(names.get(), 0)));
    return asText(contentOf(bio));
}

std::string textOfSystem(Bytes const& address)
{
    std::array<char, 64> text{};
    inet_ntop(address.size() == 4 ? AF_INET : AF_INET6, address.data(), text.data(), text.size());
    return text.data();
}

/// Returns the address that the system reads from the text.
std::optional<Bytes> addressOfSystem(std::string const& text)
{
    Bytes bytes(16);
    if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) {
        return bytes;
    }
    bytes.resize(4);
    return inet_pton(AF_INET, text.c_str(), bytes.data()) == 1 ? std::optional(bytes) : std::nullopt;
}

} // namespace

// Alternative names

TEST(ToolkitAlternativeNames, KeepKindValueAndOrder)
{
    auto const certificate = certificateFor(
        "email:a@example.org,DNS:*.example.org,URI:https://example.org/,IP:192.0.2.1,IP:2001:db8::1,"
        "RID:1.2.3.4,DNS:example.org");
    EXPECT_EQ(
        certificate.getAlternativeNames(), (std::vector<AlternativeName>{
                                               {Kind::Email, "a@example.org"},
                                               {Kind::DNS, "*.example.org"},
                                               {Kind::URI, "https://example.org/"},
                                               {Kind::IPAddress, "192.0.2.1"},
                                               {Kind::IPAddress, "2001:db8::1"},
                                               {Kind::Other, "Registered ID:1.2.3.4"},
                                               {Kind::DNS, "example.org"}}));
}

TEST(ToolkitAlternativeNames, OtherKindsArePrintedByOpenSSL)
{
    for (auto const* name : {"dirName:name", "otherName:1.2.3.4;UTF8:text", "RID:1.2.3.4"}) {
        auto const certificate = certificateFor(name, "[name]\nC=US\nCN=directory\n");
        EXPECT_EQ(
            certificate.getAlternativeNames(),
            (std::vector<AlternativeName>{{Kind::Other, printedByOpenSSL(certificate)}}));
    }
}

TEST(ToolkitAlternativeNames, AddressOfOddLengthIsOther)
{
    auto const certificate = certificateForAddress({1, 2, 3});
    EXPECT_EQ(
        certificate.getAlternativeNames(),
        (std::vector<AlternativeName>{{Kind::Other, printedByOpenSSL(certificate)}}));
}

TEST(ToolkitAlternativeNames, ValueKeepsNulCharacter)
{
    std::string const name("good.example\0evil.example", 25);
    auto const certificate = certificateForRaw(derElement(tagOfDNS, asBytes(name)));
    EXPECT_EQ(certificate.getAlternativeNames(), (std::vector<AlternativeName>{{Kind::DNS, name}}));
    EXPECT_FALSE(certificate.matchesHost("good.example"));
}

TEST(ToolkitAlternativeNames, CompareByKindAndValue)
{
    AlternativeName const name{Kind::DNS, "a"};
    EXPECT_TRUE(name == (AlternativeName{Kind::DNS, "a"}));
    EXPECT_TRUE(name != (AlternativeName{Kind::DNS, "b"}));
    EXPECT_TRUE(name != (AlternativeName{Kind::Email, "a"}));
}

TEST(ToolkitAlternativeNames, AddressesAreWrittenAsTheSystemDoes)
{
    std::vector<Bytes> addresses = {
        Bytes(16), Bytes(4), Bytes(16, 0xff), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4}};
    std::mt19937 random(7); // NOLINT(cert-msc51-cpp): the same addresses in every run
    for (int number = 0; number < 300; ++number) {
        Bytes address(number % 8 == 0 ? 4 : 16);
        for (auto& octet : address) {
            // Many zeros, in pairs and alone.
            octet = static_cast<unsigned char>(random() % 3 == 0 ? random() : 0U);
        }
        addresses.push_back(address);
    }
    for (auto const& address : addresses) {
        auto const names = certificateForAddress(address).getAlternativeNames();
        EXPECT_EQ(names, (std::vector<AlternativeName>{{Kind::IPAddress, textOfSystem(address)}}));
    }
}

// Hosts

TEST(ToolkitHost, MatchesAlternativeNamesOnly)
{
    auto const certificate = certificateFor("DNS:a.example,DNS:*.b.example,DNS:c*.example,DNS:*d.example");
    for (auto const* host : {"a.example", "A.Example", "x.b.example", "X.B.EXAMPLE"}) {
        EXPECT_TRUE(certificate.matchesHost(host)) << host;
    }
    for (auto const* host :
         {"common.example", "b.example", "x.y.b.example", "cx.example", "xd.example", "a.example.org",
          "xa.example", "a.example ", "*.b.example.org", "a.example."}) {
        EXPECT_FALSE(certificate.matchesHost(host)) << host;
    }
}

TEST(ToolkitHost, CommonNameNeverMatches)
{
    EXPECT_FALSE(certificateFor("email:a@example.org").matchesHost("common.example"));
    auto const bare = makeRoot("common.example", [](CertificateSpec& spec) { spec.extensions.clear(); });
    EXPECT_FALSE(Certificate::fromDER(bare.der()).matchesHost("common.example"));
}

TEST(ToolkitHost, AddressIsNoHost)
{
    auto const certificate = certificateFor("IP:192.0.2.1");
    EXPECT_FALSE(certificate.matchesHost("192.0.2.1"));
    EXPECT_FALSE(certificateFor("DNS:192.0.2.1").matchesAddress("192.0.2.1"));
}

TEST(ToolkitHost, RefusesUnusableNames)
{
    auto const certificate = certificateFor("DNS:a.example");
    EXPECT_THROWS_EXACTLY(InvalidArgument, "The host name is empty.", certificate.matchesHost(""));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name contains a NUL character.",
        certificate.matchesHost(std::string("a.example\0", 10)));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name is not ASCII. Write an international name in its A-labels.",
        certificate.matchesHost("bücher.example"));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The host name begins with a dot.", certificate.matchesHost(".example"));
    EXPECT_THROWS_EXACTLY(InvalidArgument, "The host name begins with a dot.", certificate.matchesHost("."));
}

// Addresses

TEST(ToolkitAddress, MatchesEveryFormOfTheAddress)
{
    auto const certificate = certificateFor("IP:192.0.2.1,IP:2001:db8::1");
    for (auto const* address :
         {"192.0.2.1", "2001:db8::1", "2001:DB8::1", "2001:0db8:0:0:0:0:0:1", "2001:db8::0.0.0.1"}) {
        EXPECT_TRUE(certificate.matchesAddress(address)) << address;
    }
    for (auto const* address : {"192.0.2.2", "2001:db8::2", "::ffff:192.0.2.1"}) {
        EXPECT_FALSE(certificate.matchesAddress(address)) << address;
    }
}

TEST(ToolkitAddress, RefusesUnusableAddresses)
{
    auto const certificate = certificateFor("IP:192.0.2.1");
    EXPECT_THROWS_EXACTLY(InvalidArgument, "The IP address is empty.", certificate.matchesAddress(""));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The IP address contains a NUL character.",
        certificate.matchesAddress(std::string("192.0.2.1\0", 10)));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The IP address is not ASCII.", certificate.matchesAddress("192.0.2.\xB9"));
    EXPECT_THROWS_EXACTLY(
        InvalidArgument, "The text is not an IP address.", certificate.matchesAddress("a.example"));
}

TEST(ToolkitAddress, AcceptsWhatTheSystemAccepts)
{
    auto const certificate = certificateFor("IP:192.0.2.1");
    for (auto const* text :
         {"1.2.3.4", "255.255.255.255", "0.0.0.0", "::", "::1", "1::", "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7::",
          "::2:3:4:5:6:7:8", "1:2:3::5:6:7:8", "::1.2.3.4", "1:2:3:4:5:6:1.2.3.4", "a:B:c::F", "0001::",
          // and what it refuses
          "256.1.1.1", "1.2.3", "1.2.3.4.5", "01.2.3.4", "1.2.3.04", "1.2.3.4 ", " 1.2.3.4", "+1.2.3.4",
          "1.2.3.-4", "1.2.3.", ".1.2.3", "1..2.3", "1.2.3.4 evil", "0x1.2.3.4", "1234.2.3.4", ":",
          ":::", "1:", ":1", "1:::2", "1::2::3", "12345::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9",
          "1:2:3:4:5:6:7:8::", "::1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:", "g::", "::1.2.3", "::1.2.3.4:5",
          "1.2.3.4::", "::1.2.3.256", "1:2:3:4:5:6:7:1.2.3.4", "fe80::1%eth0", "[::1]", "::1 ", " ::1",
          "1:2:3:4::5:6:7:8:9", ":1::2", "1::2:"}) {
        if (auto const address = addressOfSystem(text)) {
            EXPECT_TRUE(certificateForAddress(*address).matchesAddress(text)) << text;
        } else {
            EXPECT_THROWS_EXACTLY(
                InvalidArgument, "The text is not an IP address.", certificate.matchesAddress(text))
                << text;
        }
    }
}
