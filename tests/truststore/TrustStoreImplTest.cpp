#include "support/assertions/ExactThrow.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

} // namespace

TEST(TrustStoreAddDER, TrailingBytesAreIgnored)
{
    TrustStoreImpl store;
    Bytes der = root().der();
    der.push_back(0);
    store.addDERCertificate(der);
    store.addDERCertificate(root().der());
    EXPECT_EQ(store.size(), 1U);
}

TEST(TrustStoreAddDER, ExceptionShowsBytesThatCannotBeParsed)
{
    TrustStoreImpl store;
    EXPECT_THROWS_EXACTLY(
        TrustStoreException,
        "Failed to parse DER data to X509 certificate. Cert size = 3\nCert Bytes =  0x01 0xfe 0x30 \n",
        store.addDERCertificate({0x01, 0xFE, 0x30}));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Failed to parse DER data to X509 certificate. Cert size = 0\nCert Bytes =  \n",
        store.addDERCertificate({}));

    Bytes truncated = root().der();
    truncated.pop_back();
    std::string expected =
        "Failed to parse DER data to X509 certificate. Cert size = " + std::to_string(truncated.size()) +
        "\nCert Bytes =  ";
    for (unsigned char const byte : truncated) {
        constexpr char const digits[] = "0123456789abcdef";
        expected += std::string("0x") + digits[byte / 16] + digits[byte % 16] + " ";
    }
    EXPECT_THROWS_EXACTLY(TrustStoreException, expected + "\n", store.addDERCertificate(truncated));
    EXPECT_TRUE(store.empty());
}

TEST(TrustStoreAddX509, RefusalByOpenSSLIsReported)
{
    TrustStoreImpl store;
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to add certificate to store", store.addX509(nullptr));
    auto const certificate = root().certificate;
    EXPECT_NO_THROW(store.addX509(certificate.get()));
    EXPECT_NO_THROW(store.addX509(certificate.get()));
    EXPECT_EQ(store.size(), 1U);
}

TEST(TrustStoreEntries, IndexBehindLastEntryIsReported)
{
    TrustStoreImpl store;
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Unsupported object type found in TrustStore", store.x509At(0));
    store.addX509(root().certificate.get());
    EXPECT_EQ(store.x509At(0), root().certificate.get());
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Unsupported object type found in TrustStore", store.x509At(1));
    EXPECT_THROWS_EXACTLY(
        TrustStoreException, "Unsupported object type found in TrustStore", store.x509At(0xFFFFFFFFU));
}

TEST(CommonNameOf, FirstCommonNameIsReturnedAsUtf8)
{
    struct Row
    {
        Name subject;
        std::string expected;
    };
    std::string const withNul("a\0b", 3);
    std::vector<Row> const rows = {
        {{}, ""},
        {{{"O", "only an organisation"}}, ""},
        {{{"CN", "one"}}, "one"},
        {{{"O", "x"}, {"CN", "first"}, {"CN", "second"}}, "first"},
        {{{"CN", "\xE9t\xE9", V_ASN1_T61STRING}}, "\xC3\xA9t\xC3\xA9"},
        {{{"CN", std::string("\0A\x20\xAC", 4), V_ASN1_BMPSTRING}}, "A\xE2\x82\xAC"},
        {{{"CN", withNul}}, withNul},
    };
    for (Row const& row : rows) {
        auto const made = makeRoot("any", [&](CertificateSpec& spec) { spec.subject = row.subject; });
        EXPECT_EQ(commonNameOf(made.certificate.get()), row.expected);
    }
    EXPECT_EQ(commonNameOf(nullptr), "");
    EXPECT_EQ(commonNameOf(own(X509_new()).get()), "");

    auto const notUtf8 = own(X509_new());
    require(X509_set_subject_name(notUtf8.get(), makeName(commonName("ab")).get()));
    X509_NAME_ENTRY const* const entry = X509_NAME_get_entry(X509_get_subject_name(notUtf8.get()), 0);
    require(ASN1_STRING_set(changeable(X509_NAME_ENTRY_get_data(entry)), "\xFF\xFE", 2));
    EXPECT_EQ(commonNameOf(notUtf8.get()), "");
}
