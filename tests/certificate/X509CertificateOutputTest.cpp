#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"
#include "support/system/StreamBuffers.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

constexpr char const noContent[] = "Error: X509Certificate has no content.";
std::string const pemHeader = "-----BEGIN CERTIFICATE-----\n";
std::string const pemFooter = "-----END CERTIFICATE-----\n";

/// Returns the lines between the markers, without their line feeds.
std::vector<std::string> base64Lines(std::string const& pem)
{
    std::istringstream body(pem.substr(pemHeader.size(), pem.size() - pemHeader.size() - pemFooter.size()));
    std::vector<std::string> lines;
    for (std::string line; std::getline(body, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Returns a certificate whose encoding grows by one byte with the length: the signature has a fixed length.
X509Certificate withOrganizationOf(std::size_t length)
{
    return X509Certificate(makeRoot("root", [&](CertificateSpec& spec) {
                               spec.key = ed25519Key();
                               spec.serialNumber = "1";
                               spec.subject = {{"O", std::string(length, 'o')}, {"CN", "root"}};
                           }).der());
}

} // namespace

TEST(X509CertificateOutput, WritesDer)
{
    auto const made = makeRoot("root");
    EXPECT_EQ(X509Certificate(made.der()).getAsBytes(), made.der());
    EXPECT_EQ(X509Certificate(made.pem()).getAsBytes(), made.der());
}

TEST(X509CertificateOutput, WritesSameDerEachTimeAndForCopies)
{
    auto const der = makeRoot("root").der();
    constexpr std::size_t sizeOfHeader = 4;
    Bytes indefiniteLength{0x30, 0x80};
    indefiniteLength.insert(indefiniteLength.end(), der.begin() + sizeOfHeader, der.end());
    indefiniteLength.insert(indefiniteLength.end(), {0, 0});
    for (auto const& input : {der, indefiniteLength}) {
        X509Certificate certificate(input);
        EXPECT_EQ(certificate.getAsBytes(), der);
        EXPECT_EQ(certificate.getAsBytes(), der);
        EXPECT_EQ(X509Certificate(certificate).getAsBytes(), der);
        certificate = withOrganizationOf(20);
        EXPECT_NE(certificate.getAsBytes().size(), der.size());
        EXPECT_EQ(X509Certificate(certificate.getAsBytes()), certificate);
    }
}

TEST(X509CertificateOutput, WritesBase64OnOneLine)
{
    X509Certificate const certificate(makeRoot("root").der());
    auto const text = certificate.getAsString();
    EXPECT_EQ(text, base64Encode(certificate.getAsBytes()));
    EXPECT_EQ(text.find_first_of("\n- "), std::string::npos);
    EXPECT_EQ(base64Decode(text), certificate.getAsBytes());
}

TEST(X509CertificateOutput, LoadsAgainInEveryForm)
{
    for (auto const& key : {p256Key(), rsaKey(), ed25519Key()}) {
        X509Certificate const certificate(
            makeRoot("root", [&](CertificateSpec& spec) { spec.key = key; }).der());
        EXPECT_EQ(X509Certificate(certificate.getAsBytes()), certificate);
        EXPECT_EQ(X509Certificate(certificate.getAsPEMString()), certificate);
        EXPECT_EQ(X509Certificate(asText(certificate.getAsBytes())), certificate);
        std::istringstream stream(certificate.getAsPEMString());
        EXPECT_EQ(X509Certificate(stream), certificate);
    }
}

TEST(X509CertificateOutput, WritesPemInLinesOf63Characters)
{
    bool sawAFullLastLine = false;
    for (std::size_t length = 1; length <= 190; ++length) {
        auto const certificate = withOrganizationOf(length);
        auto const pem = certificate.getAsPEMString();
        ASSERT_EQ(pem.substr(0, pemHeader.size()), pemHeader);
        ASSERT_EQ(pem.substr(pem.size() - pemFooter.size()), pemFooter);
        auto const lines = base64Lines(pem);
        std::string joined;
        for (std::size_t index = 0; index < lines.size(); ++index) {
            bool const isLast = index + 1 == lines.size();
            ASSERT_TRUE(
                lines[index].size() == 63 || (isLast && !lines[index].empty() && lines[index].size() < 63));
            joined += lines[index];
        }
        ASSERT_EQ(joined, certificate.getAsString());
        sawAFullLastLine = sawAFullLastLine || lines.back().size() == 63;
    }
    EXPECT_TRUE(sawAFullLastLine);
}

TEST(X509CertificateOutput, WritesPemThatOpenSSLReads)
{
    auto const made = makeRoot("root");
    auto const pem = X509Certificate(made.der()).getAsPEMString();
    Bytes const bytes(pem.begin(), pem.end());
    auto const reread = own(PEM_read_bio_X509(readerOf(bytes).get(), nullptr, nullptr, nullptr));
    EXPECT_EQ(toDer(reread), made.der());
    EXPECT_EQ(pem.find('\r'), std::string::npos);
}

TEST(X509CertificateOutput, PrintsReport)
{
    X509Certificate const root(makeRoot("root", [](CertificateSpec& spec) {
                                   spec.subject = {{"O", "Example"}, {"CN", "root"}};
                               }).der());
    EXPECT_EQ(
        printed(root), "Certificate Details:\n"
                       "--------------------\n"
                       "Subject Name: CN=root,O=Example;\n"
                       "Issuer Name: CN=root,O=Example;\n"
                       "SHA256 Fingerprint: " +
                           root.getSHA256Fingerprint() +
                           ";\n"
                           "isSelfSigned: 1;\n"
                           "isCA: 1;\n"
                           "\n");

    X509Certificate const leaf(makeLeaf(makeRoot("root"), "leaf").der());
    EXPECT_EQ(
        printed(leaf), "Certificate Details:\n"
                       "--------------------\n"
                       "Subject Name: CN=leaf;\n"
                       "Issuer Name: CN=root;\n"
                       "SHA256 Fingerprint: " +
                           leaf.getSHA256Fingerprint() +
                           ";\n"
                           "isSelfSigned: 0;\n"
                           "isCA: 0;\n"
                           "\n");
}

TEST(X509CertificateOutput, IgnoresFormatFlagsOfStream)
{
    X509Certificate const certificate(makeRoot("root").der());
    std::ostringstream out;
    out << std::hex << std::showbase << std::boolalpha << std::showpos << std::setfill('*');
    certificate.print(out);
    EXPECT_EQ(out.str(), printed(certificate));
}

TEST(X509CertificateOutput, FlushesStreamAfterReport)
{
    FlushCountingBuffer buffer;
    std::ostream out(&buffer);
    X509Certificate(makeRoot("root").der()).print(out);
    EXPECT_EQ(buffer.flushes(), 1);
}

TEST(X509CertificateOutput, PrintsNothingWithoutContent)
{
    X509Certificate empty;
    std::ostringstream out;
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.print(out));
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, out << empty);
    X509Certificate const sink(std::move(empty));
    EXPECT_THROWS_EXACTLY(
        X509CertificateException, "Error: X509Certificate is uninitialized.",
        empty.print(out)); // NOLINT(bugprone-use-after-move): it must say so
    EXPECT_EQ(out.str(), "");
}

TEST(X509CertificateOutput, InsertionReturnsStream)
{
    X509Certificate const certificate(makeRoot("root").der());
    std::ostringstream out;
    EXPECT_EQ(&(out << certificate), &out);
    out.str("");
    out << "before " << certificate << "after";
    EXPECT_EQ(out.str(), "before " + printed(certificate) + "after");
}

TEST(X509CertificateOutput, FailsWithoutContentInEveryForm)
{
    X509Certificate const empty;
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getAsBytes());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getAsString());
    EXPECT_THROWS_EXACTLY(X509CertificateException, noContent, empty.getAsPEMString());
}
