#include "support/pki/TestPki.hpp"

#include <foundation/certificates/CertificateValidation.hpp>

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

using namespace foundation::certificates;

namespace {

using foundation::test::makeRoot;
using RevocationStatus = CertificateRevocationResults::RevocationStatus;

template <class Enum>
constexpr int number(Enum value)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enum>, int>);
    return static_cast<int>(value);
}

template <class Record>
constexpr bool isPlainValue = std::is_default_constructible_v<Record>&& std::is_copy_constructible_v<Record>&&
                                  std::is_move_constructible_v<Record>&& std::is_copy_assignable_v<Record>&&
                                      std::is_move_assignable_v<Record> &&
                              !std::has_virtual_destructor_v<Record>;

CertificateValidationResults revokedResults()
{
    CertificateValidationResults results(CertificateChainStatus::Revoked, "a report");
    results.setCertificateRevocationResults(
        CertificateRevocationResults(RevocationStatus::Revoked, "Jan  1 00:00:00 2020 GMT", "4711"));
    return results;
}

X509Certificate someCertificate()
{
    return X509Certificate(makeRoot("root").der());
}

} // namespace

TEST(ValidationRecords, EnumeratorsHaveFixedNumbers)
{
    EXPECT_EQ(number(CertificateChainStatus::Valid), 0);
    EXPECT_EQ(number(CertificateChainStatus::Untrusted), 1);
    EXPECT_EQ(number(CertificateChainStatus::SelfSigned), 2);
    EXPECT_EQ(number(CertificateChainStatus::CRLError), 3);
    EXPECT_EQ(number(CertificateChainStatus::Revoked), 4);
    EXPECT_EQ(number(CertificateChainStatus::Expired), 5);
    EXPECT_EQ(number(CertificateChainStatus::BadSignature), 6);
    EXPECT_EQ(number(CertificateChainStatus::Failed), 7);

    using Options = CertificateValidationOptions;
    EXPECT_EQ(number(Options::AllowSelfSignedCertificate::No), 0);
    EXPECT_EQ(number(Options::AllowSelfSignedCertificate::Yes), 1);
    EXPECT_EQ(number(Options::AllowExpiredCertificate::No), 0);
    EXPECT_EQ(number(Options::AllowExpiredCertificate::Yes), 1);
    EXPECT_EQ(number(Options::AllowRevokedCertificate::No), 0);
    EXPECT_EQ(number(Options::AllowRevokedCertificate::Yes), 1);
    EXPECT_EQ(number(Options::CheckCRL::None), 0);
    EXPECT_EQ(number(Options::CheckCRL::LeafOnly), 1);
    EXPECT_EQ(number(Options::CheckCRL::WholeChain), 2);
    EXPECT_EQ(number(Options::DownloadCRL::None), 0);
    EXPECT_EQ(number(Options::DownloadCRL::BestEffort), 1);
    EXPECT_EQ(number(Options::DownloadCRL::Required), 2);

    EXPECT_EQ(number(RevocationStatus::NotRevoked), 0);
    EXPECT_EQ(number(RevocationStatus::Revoked), 1);
}

TEST(ValidationRecords, ClassesArePlainValues)
{
    EXPECT_TRUE(isPlainValue<CertificateValidationOptions>);
    EXPECT_TRUE(isPlainValue<CertificateRevocationResults>);
    EXPECT_TRUE(isPlainValue<CertificateValidationResults>);
    EXPECT_TRUE(isPlainValue<PKCS7CertificateValidationResults>);
}

TEST(CertificateRevocationResults, DefaultIsNotRevoked)
{
    CertificateRevocationResults const results;

    EXPECT_EQ(results.getRevocationStatus(), RevocationStatus::NotRevoked);
    EXPECT_EQ(results.getRevocationDateString(), "");
    EXPECT_EQ(results.getRevokedSerialNumberString(), "");
}

TEST(CertificateRevocationResults, ConstructorStoresItsArguments)
{
    CertificateRevocationResults const results(RevocationStatus::Revoked, "a date", "a serial number");

    EXPECT_EQ(results.getRevocationStatus(), RevocationStatus::Revoked);
    EXPECT_EQ(results.getRevocationDateString(), "a date");
    EXPECT_EQ(results.getRevokedSerialNumberString(), "a serial number");
}

TEST(CertificateRevocationResults, MoveLeavesEmptyTexts)
{
    std::string const longDate(100, 'd');
    CertificateRevocationResults source(RevocationStatus::Revoked, longDate, "4711");

    CertificateRevocationResults const target(std::move(source));

    EXPECT_EQ(target.getRevocationDateString(), longDate);
    EXPECT_EQ(target.getRevokedSerialNumberString(), "4711");
    EXPECT_EQ(source.getRevocationStatus(), RevocationStatus::Revoked);
    EXPECT_EQ(source.getRevocationDateString(), "");
    EXPECT_EQ(source.getRevokedSerialNumberString(), "");
}

TEST(CertificateValidationResults, DefaultIsFailed)
{
    CertificateValidationResults const results;

    EXPECT_EQ(number(results.getCertificateChainStatus()), 7);
    EXPECT_EQ(results.getValidationErrorString(), "");
    EXPECT_EQ(results.getCertificateRevocationResults().getRevocationStatus(), RevocationStatus::NotRevoked);
    EXPECT_EQ(results.getCertificateRevocationResults().getRevocationDateString(), "");
    EXPECT_EQ(results.getCertificateRevocationResults().getRevokedSerialNumberString(), "");
    EXPECT_FALSE(results.getRootCertificate().has_value());
}

TEST(CertificateValidationResults, ConstructorSetsNeitherRevocationNorRoot)
{
    CertificateValidationResults const results(CertificateChainStatus::Valid, "text");

    EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Valid);
    EXPECT_EQ(results.getValidationErrorString(), "text");
    EXPECT_EQ(results.getCertificateRevocationResults().getRevocationStatus(), RevocationStatus::NotRevoked);
    EXPECT_FALSE(results.getRootCertificate().has_value());
}

TEST(CertificateValidationResults, ReturnRevocationThatWasSet)
{
    auto const revocation = revokedResults().getCertificateRevocationResults();

    EXPECT_EQ(revocation.getRevocationStatus(), RevocationStatus::Revoked);
    EXPECT_EQ(revocation.getRevocationDateString(), "Jan  1 00:00:00 2020 GMT");
    EXPECT_EQ(revocation.getRevokedSerialNumberString(), "4711");
}

TEST(CertificateValidationResults, RootIsIndependentOfItsSource)
{
    CertificateValidationResults results(CertificateChainStatus::Valid);
    auto certificate = someCertificate();
    auto const fingerprint = certificate.getSHA256Fingerprint();

    results.setRootCertificate(certificate);
    certificate = X509Certificate();

    ASSERT_TRUE(results.getRootCertificate().has_value());
    EXPECT_EQ(results.getRootCertificate()->getSHA256Fingerprint(), fingerprint);
}

TEST(CertificateValidationResults, SecondRootReplacesFirst)
{
    CertificateValidationResults results(CertificateChainStatus::Valid);
    results.setRootCertificate(X509Certificate(makeRoot("first").der()));
    auto const copyOfFirst = results;

    results.setRootCertificate(X509Certificate(makeRoot("second").der()));

    EXPECT_EQ(results.getRootCertificate()->getSubjectName(), "CN=second");
    EXPECT_EQ(copyOfFirst.getRootCertificate()->getSubjectName(), "CN=first");
}

TEST(CertificateValidationResults, CopiesReturnIndependentRoots)
{
    CertificateValidationResults results(CertificateChainStatus::Valid);
    results.setRootCertificate(someCertificate());
    auto const copy = results;

    auto fromResults = results.getRootCertificate();
    auto const fromCopy = copy.getRootCertificate();
    ASSERT_TRUE(fromResults.has_value());
    ASSERT_TRUE(fromCopy.has_value());
    EXPECT_EQ(*fromResults, *fromCopy);

    *fromResults = X509Certificate();
    EXPECT_FALSE(fromCopy->empty());
    EXPECT_FALSE(results.getRootCertificate()->empty());
}

TEST(CertificateValidationResults, MoveKeepsOnlyStatusOfSource)
{
    auto source = revokedResults();
    source.setRootCertificate(someCertificate());

    CertificateValidationResults const target(std::move(source));

    EXPECT_EQ(target.getCertificateChainStatus(), CertificateChainStatus::Revoked);
    EXPECT_EQ(target.getValidationErrorString(), "a report");
    EXPECT_EQ(target.getCertificateRevocationResults().getRevokedSerialNumberString(), "4711");
    EXPECT_TRUE(target.getRootCertificate().has_value());
    EXPECT_EQ(source.getCertificateChainStatus(), CertificateChainStatus::Revoked);
    EXPECT_EQ(source.getValidationErrorString(), "");
    EXPECT_FALSE(source.getRootCertificate().has_value());
}

TEST(CertificateValidationResults, AssignmentReplacesAllFields)
{
    CertificateValidationResults target(CertificateChainStatus::Valid, "old");
    target.setRootCertificate(someCertificate());

    target = revokedResults();

    EXPECT_EQ(target.getCertificateChainStatus(), CertificateChainStatus::Revoked);
    EXPECT_EQ(target.getValidationErrorString(), "a report");
    EXPECT_EQ(target.getCertificateRevocationResults().getRevokedSerialNumberString(), "4711");
    EXPECT_FALSE(target.getRootCertificate().has_value());
}

TEST(PKCS7CertificateValidationResults, DefaultIsFailed)
{
    PKCS7CertificateValidationResults const results;

    EXPECT_FALSE(results.getSignatureVerificationStatus());
    EXPECT_EQ(results.getCertificateChainStatus(), CertificateChainStatus::Failed);
    EXPECT_EQ(results.getValidationErrorString(), "");
    EXPECT_FALSE(results.isValidSignature());
}

TEST(PKCS7CertificateValidationResults, AreValidOnlyIfSignatureAndChainAreValid)
{
    EXPECT_TRUE(
        PKCS7CertificateValidationResults(true, CertificateChainStatus::Valid, "x").isValidSignature());
    EXPECT_FALSE(
        PKCS7CertificateValidationResults(false, CertificateChainStatus::Valid, "x").isValidSignature());
    for (int status = 1; status <= 7; ++status) {
        PKCS7CertificateValidationResults const results(
            true, static_cast<CertificateChainStatus>(status), "x");
        EXPECT_FALSE(results.isValidSignature()) << status;
        EXPECT_TRUE(results.getSignatureVerificationStatus()) << status;
        EXPECT_EQ(number(results.getCertificateChainStatus()), status);
        EXPECT_EQ(results.getValidationErrorString(), "x");
    }
}

TEST(PKCS7CertificateValidationResults, MoveLeavesEmptyText)
{
    PKCS7CertificateValidationResults source(true, CertificateChainStatus::Expired, "a report");

    auto const target = std::move(source);

    EXPECT_EQ(target.getValidationErrorString(), "a report");
    EXPECT_EQ(source.getValidationErrorString(), "");
    EXPECT_TRUE(source.getSignatureVerificationStatus());
    EXPECT_EQ(source.getCertificateChainStatus(), CertificateChainStatus::Expired);
}
