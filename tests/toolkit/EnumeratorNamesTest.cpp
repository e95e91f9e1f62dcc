#include <foundation/toolkit/Explanation.hpp>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::toolkit;

namespace {

/// Expects that the values with the numbers have the names, and that no other number up to a limit has one.
/// Thus an enumerator that is added needs a name here.
template <class Enumeration>
void expectNames(
    std::vector<std::string_view> const& names,
    std::vector<std::underlying_type_t<Enumeration>> const& numbers)
{
    using Number = std::underlying_type_t<Enumeration>;
    constexpr Number limit = 9000;
    std::size_t next = 0;
    for (Number number = 0; number < limit; ++number) {
        bool const isNamed = next < numbers.size() && numbers[next] == number;
        EXPECT_EQ(toString(static_cast<Enumeration>(number)), isNamed ? names[next] : "unknown") << number;
        next += isNamed ? 1U : 0U;
    }
    EXPECT_EQ(next, names.size());
}

/// The same, for values that are numbered from 0.
template <class Enumeration>
void expectNames(std::vector<std::string_view> const& names)
{
    std::vector<std::underlying_type_t<Enumeration>> numbers;
    for (std::size_t index = 0; index < names.size(); ++index) {
        numbers.push_back(static_cast<std::underlying_type_t<Enumeration>>(index));
    }
    expectNames<Enumeration>(names, numbers);
}

} // namespace

TEST(EnumeratorNames, NameEveryCertificateChainStatus)
{
    expectNames<CertificateChainStatus>(
        {"Valid", "Untrusted", "SelfSigned", "CRLError", "Revoked", "Expired", "BadSignature", "Failed"});
}

TEST(EnumeratorNames, NameEveryAllowSelfSignedCertificate)
{
    expectNames<CertificateValidationOptions::AllowSelfSignedCertificate>({"No", "Yes"});
}

TEST(EnumeratorNames, NameEveryAllowExpiredCertificate)
{
    expectNames<CertificateValidationOptions::AllowExpiredCertificate>({"No", "Yes"});
}

TEST(EnumeratorNames, NameEveryAllowRevokedCertificate)
{
    expectNames<CertificateValidationOptions::AllowRevokedCertificate>({"No", "Yes"});
}

TEST(EnumeratorNames, NameEveryCheckCRL)
{
    expectNames<CertificateValidationOptions::CheckCRL>({"None", "LeafOnly", "WholeChain"});
}

TEST(EnumeratorNames, NameEveryDownloadCRL)
{
    expectNames<CertificateValidationOptions::DownloadCRL>({"None", "BestEffort", "Required"});
}

TEST(EnumeratorNames, NameEveryRevocationStatus)
{
    expectNames<CertificateRevocationResults::RevocationStatus>({"NotRevoked", "Revoked"});
}

TEST(EnumeratorNames, NameEveryCertificateEncoding)
{
    expectNames<CertificateEncoding>({"PEM", "DER"});
}

TEST(EnumeratorNames, NameEveryKeyType)
{
    expectNames<KeyType>({"RSA", "ECC"});
}

TEST(EnumeratorNames, NameEveryEllipticCurve)
{
    expectNames<EllipticCurve>({"Prime256v1", "Ed25519"});
}

TEST(EnumeratorNames, NameEveryRSAPrivateKeySize)
{
    expectNames<RSAPrivateKeySize>(
        {"Bits1024", "Bits2048", "Bits3072", "Bits4096", "Bits8192"}, {1024, 2048, 3072, 4096, 8192});
}

TEST(EnumeratorNames, NameEveryTrustStoreUsage)
{
    expectNames<TrustStore::Usage>({"ServerAuthentication", "Signing"});
}

TEST(EnumeratorNames, NameEveryKeyUsage)
{
    expectNames<X509Certificate::KeyUsage>(
        {"DigitalSignature", "NonRepudiation", "KeyEncipherment", "DataEncipherment", "KeyAgreement",
         "KeyCertSign", "CRLSign", "EncipherOnly", "DecipherOnly"});
}

TEST(EnumeratorNames, NameEveryAlternativeNameKind)
{
    expectNames<AlternativeName::Kind>({"DNS", "IPAddress", "Email", "URI", "Other"});
}

TEST(EnumeratorNames, NameEveryPurpose)
{
    expectNames<Purpose>({"Any", "TLSServer", "TLSClient", "CodeSigning", "EmailProtection", "TimeStamping"});
}

TEST(EnumeratorNames, NameEveryRevocation)
{
    expectNames<Revocation>({"NotChecked", "Leaf", "WholeChain"});
}

TEST(EnumeratorNames, NameEveryKeyChoice)
{
    expectNames<KeyChoice>({"Prime256v1", "Secp384r1", "Ed25519", "RSA2048", "RSA3072", "RSA4096"});
}
