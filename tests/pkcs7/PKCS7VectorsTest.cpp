#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/assertions/ValidationVerdict.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/system/FixedClock.hpp"
#include "support/vectors/PathValidationSuite.hpp"
#include "support/vectors/Vectors.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include <map>
#include <string>
#include <vector>

// Published signed data: the S/MIME messages of NIST's path validation suite, and PKCS#7 files of other
// makers. The library and bare OpenSSL load and verify each of them. Content, signers, verdict and text must
// be the same.

using namespace foundation::certificates;
using namespace foundation::test;
using namespace foundation::test::pkits;

namespace {

/// The arguments of a verification.
struct Arguments
{
    std::vector<X509Handle> intermediates;
    std::vector<X509Handle> trusted;
    /// The detached content; empty for embedded content.
    Bytes content;
};

// The reference: bare OpenSSL

struct BareResult
{
    bool signature = false;
    Status status = Status::Failed;
    std::string text;
};

/// Returns the reason of the oldest entry in the queue, and removes the entry.
std::string takeReason()
{
    auto const reason = oldestReasonText();
    ERR_get_error();
    return reason;
}

std::vector<X509Handle> signersOf(Pkcs7Handle const& signedData)
{
    ErrorQueueMark const mark;
    auto* const borrowed = PKCS7_get0_signers(signedData.get(), nullptr, PKCS7_NO_DUAL_CONTENT);
    std::vector<X509Handle> signers;
    for (int index = 0; index < sk_X509_num(borrowed); ++index) {
        signers.push_back(share(sk_X509_value(borrowed, index)));
    }
    sk_X509_free(borrowed);
    return signers;
}

ReferenceOutcome verifyChainOf(X509Handle const& signer, Arguments const& given)
{
    ReferenceVerifier verifier;
    verifier.leaf = signer;
    verifier.untrusted = given.intermediates;
    if (verifier.untrusted.empty() || X509_cmp(verifier.untrusted.front().get(), signer.get()) != 0) {
        verifier.untrusted.insert(verifier.untrusted.begin(), signer);
    }
    verifier.trusted = given.trusted;
    return verifier.verify();
}

BareResult resultOfChain(Pkcs7Handle const& signedData, Arguments const& given)
{
    auto const signers = signersOf(signedData);
    if (signers.empty()) {
        return {false, Status::Failed, "certificate verify error"};
    }
    auto const outcome = verifyChainOf(signers.front(), given);
    if (outcome.result == 1) {
        return {true, Status::Valid, "certificate verify error"};
    }
    return {true, expectedStatus(outcome.code), expectedText(outcome.code, outcome.depth, outcome.subject)};
}

BareResult verifyBare(Pkcs7Handle const& signedData, Arguments const& given)
{
    CleanErrorQueue const clean;
    auto const store = own(X509_STORE_new());
    for (auto const& certificate : given.trusted) {
        require(X509_STORE_add_cert(store.get(), certificate.get()));
    }
    for (auto const& certificate : given.intermediates) {
        require(X509_STORE_add_cert(store.get(), certificate.get()));
    }
    auto const untrusted = given.intermediates.empty() ? nullptr : makeStack(given.intermediates);
    auto const content = given.content.empty() ? nullptr : readerOf(given.content);
    int const flags = content == nullptr ? PKCS7_NO_DUAL_CONTENT : 0;

    if (PKCS7_verify(signedData.get(), untrusted.get(), store.get(), content.get(), nullptr, flags) == 1) {
        return {true, Status::Valid, ""};
    }
    auto const reason = takeReason();
    if (reason != "certificate verify error") {
        return {false, Status::Failed, reason};
    }
    if (PKCS7_verify(signedData.get(), untrusted.get(), nullptr, content.get(), nullptr, PKCS7_NOVERIFY) !=
        1) {
        return {false, Status::Failed, takeReason()};
    }
    return resultOfChain(signedData, given);
}

// The comparison

X509CertificateChain chainOf(std::vector<X509Handle> const& certificates)
{
    X509CertificateChain chain;
    for (auto const& certificate : certificates) {
        chain.addCertificate(X509Certificate(toDer(certificate)));
    }
    return chain;
}

TrustStore storeOf(std::vector<X509Handle> const& certificates)
{
    TrustStore store;
    for (auto const& certificate : certificates) {
        store.addCertificate(X509Certificate(toDer(certificate)));
    }
    return store;
}

std::vector<Bytes> encodingsOf(std::vector<X509Handle> const& certificates)
{
    std::vector<Bytes> encodings;
    for (auto const& certificate : certificates) {
        encodings.push_back(toDer(certificate));
    }
    return encodings;
}

/// Verifies with both, compares, and returns the library's result.
PKCS7CertificateValidationResults
expectSameVerification(PKCS7Certificate const& loaded, Pkcs7Handle const& signedData, Arguments const& given)
{
    auto const expected = verifyBare(signedData, given);
    CleanErrorQueue const clean;
    auto results =
        loaded.verifySignature(chainOf(given.intermediates), storeOf(given.trusted), given.content);
    EXPECT_EQ(results.getSignatureVerificationStatus(), expected.signature);
    EXPECT_EQ(results.getCertificateChainStatus(), expected.status);
    EXPECT_EQ(results.getValidationErrorString(), expected.text);
    return results;
}

std::vector<X509Handle> embeddedIn(Pkcs7Handle const& signedData)
{
    auto const* const embedded = signedData->d.sign->cert;
    std::vector<X509Handle> certificates;
    for (int index = 0; index < sk_X509_num(embedded); ++index) {
        certificates.push_back(share(sk_X509_value(embedded, index)));
    }
    return certificates;
}

void expectSameContent(PKCS7Certificate const& loaded, Pkcs7Handle const& signedData)
{
    CleanErrorQueue const clean;
    EXPECT_EQ(derOf(loaded.getCertificates()), encodingsOf(embeddedIn(signedData)));
    EXPECT_EQ(derOf(loaded.getSignerCerts()), encodingsOf(signersOf(signedData)));
    EXPECT_EQ(loaded.getAsString(), loaded.empty() ? "" : toPem(signedData));

    auto const output = own(BIO_new(BIO_s_mem()));
    int const flags = PKCS7_NOVERIFY | PKCS7_NO_DUAL_CONTENT;
    auto const verified = PKCS7_verify(signedData.get(), nullptr, nullptr, nullptr, output.get(), flags) == 1;
    EXPECT_EQ(loaded.getSignedData(), verified ? contentOf(output) : Bytes());
}

/// Returns the same signatures with embedded content.
Pkcs7Handle withEmbeddedContent(Message const& message)
{
    auto const whole = parsePkcs7(toDer(message.signedData));
    require(PKCS7_content_new(whole.get(), NID_pkcs7_data));
    require(ASN1_OCTET_STRING_set(
        whole->d.sign->contents->d.data, message.content.data(), static_cast<int>(message.content.size())));
    return parsePkcs7(toDer(whole));
}

X509Handle const& otherRoot()
{
    static auto const made = makeRoot("other root").certificate;
    return made;
}

// Files of other makers

enum class Refusal
{
    WrongForm,
    NotLoaded,
    WrongType,
    None
};

struct BareFile
{
    Refusal refusal = Refusal::None;
    std::string text;
    Pkcs7Handle signedData;
};

constexpr char const wrongDerText[] = "Input certificate data was autodetected to be DER-encoded, but is not "
                                      "in DER encoding. Please verify the "
                                      "input data.";
constexpr char const wrongPemText[] = "Input certificate data was autodetected to be PEM-encoded, but is not "
                                      "in PEM encoding. Please verify the "
                                      "input data.";
constexpr char const wrongTypeText[] =
    "Input PKCS7 certificate is corrupt. It doesn't have the right type field.";

BareFile loadBare(Bytes const& bytes)
{
    CleanErrorQueue const clean;
    auto const isPem = contains(asText(bytes), "-----BEGIN PKCS7-----");
    auto const reader = readerOf(bytes);
    Pkcs7Handle const loaded(
        isPem ? PEM_read_bio_PKCS7(reader.get(), nullptr, nullptr, nullptr)
              : d2i_PKCS7_bio(reader.get(), nullptr),
        PKCS7_free);
    if (ERR_GET_REASON(oldestError()) == (isPem ? PEM_R_NO_START_LINE : ASN1_R_WRONG_TAG)) {
        return {Refusal::WrongForm, isPem ? wrongPemText : wrongDerText, nullptr};
    }
    if (loaded == nullptr || !queueIsEmpty()) {
        return {
            Refusal::NotLoaded, "Error: Loading a certificate failed. Reason=" + oldestReasonText(), nullptr};
    }
    if (!PKCS7_type_is_signed(loaded.get())) {
        return {Refusal::WrongType, wrongTypeText, nullptr};
    }
    return {Refusal::None, "", loaded};
}

/// Loads the file with both and compares.
Refusal expectSameLoad(Bytes const& bytes)
{
    auto const bare = loadBare(bytes);
    if (bare.refusal == Refusal::NotLoaded) {
        EXPECT_THROWS_EXACTLY(PKCS7CertificateException, bare.text, PKCS7Certificate(bytes));
    } else if (bare.refusal != Refusal::None) {
        EXPECT_THROWS_EXACTLY(InvalidArgument, bare.text, PKCS7Certificate(bytes));
    } else {
        PKCS7Certificate const loaded(bytes);
        expectSameContent(loaded, bare.signedData);
        expectSameVerification(loaded, bare.signedData, {{}, {otherRoot()}, {}});
        expectSameVerification(loaded, bare.signedData, {{}, {otherRoot()}, asBytes("content")});
    }
    return bare.refusal;
}

class PKCS7Vectors : public testing::Test
{
protected:
    FixedClock const clock{aMomentOfValidity};
};

} // namespace

TEST_F(PKCS7Vectors, PathValidationSuiteGetsOpenSSLsVerdicts)
{
    std::map<Status, int> statuses;
    for (auto const& test : casesWithoutDsaKeys()) {
        SCOPED_TRACE(test.number + " " + test.name);
        auto const message = messageOf(test);
        PKCS7Certificate const loaded(toDer(message.signedData));
        expectSameContent(loaded, message.signedData);
        EXPECT_EQ(loaded.getSignedData(), Bytes());

        auto const results = expectSameVerification(
            loaded, message.signedData, {intermediatesOf(test), {trustAnchor()}, message.content});
        ++statuses[results.getCertificateChainStatus()];
        expectSameVerification(loaded, message.signedData, {{}, {trustAnchor()}, message.content});
        expectSameVerification(
            loaded, message.signedData, {intermediatesOf(test), {otherRoot()}, message.content});
    }
    // The messages must cover several verdicts.
    EXPECT_GE(statuses[Status::Valid], 150);
    EXPECT_GE(statuses.size(), 4U);
}

TEST_F(PKCS7Vectors, PathValidationSuiteDoesNotVerifyOtherContent)
{
    for (auto const& test : casesWithoutDsaKeys()) {
        SCOPED_TRACE(test.number + " " + test.name);
        auto const message = messageOf(test);
        PKCS7Certificate const loaded(toDer(message.signedData));
        auto changed = message.content;
        changed.push_back('.');

        auto const results = expectSameVerification(
            loaded, message.signedData, {intermediatesOf(test), {trustAnchor()}, changed});
        EXPECT_FALSE(results.getSignatureVerificationStatus());
        auto const withoutContent =
            expectSameVerification(loaded, message.signedData, {intermediatesOf(test), {trustAnchor()}, {}});
        EXPECT_FALSE(withoutContent.getSignatureVerificationStatus());
    }
}

TEST_F(PKCS7Vectors, PathValidationSuiteReturnsEmbeddedContent)
{
    for (auto const& test : casesWithoutDsaKeys()) {
        SCOPED_TRACE(test.number + " " + test.name);
        auto const message = messageOf(test);
        auto const whole = withEmbeddedContent(message);
        PKCS7Certificate const loaded(toDer(whole));

        expectSameContent(loaded, whole);
        EXPECT_EQ(loaded.getSignedData(), message.content);
        expectSameVerification(loaded, whole, {intermediatesOf(test), {trustAnchor()}, {}});
    }
}

TEST_F(PKCS7Vectors, PathValidationSuiteWithDsaKeysIsRefused)
{
    for (auto const& test : cases()) {
        if (hasDsaKeys(test)) {
            SCOPED_TRACE(test.number + " " + test.name);
            EXPECT_THROWS_EXACTLY(
                PKCS7CertificateException,
                "Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.Key is not currently "
                "supported. OpenSSL type id: 116",
                PKCS7Certificate(toDer(messageOf(test).signedData)));
        }
    }
}

TEST_F(PKCS7Vectors, PythonLibraryFilesLoadAsInOpenSSL)
{
    std::map<std::string, Refusal> refusals;
    for (auto const& name : listVectors("pkcs7", "")) {
        SCOPED_TRACE(name);
        refusals[name] = expectSameLoad(readVector(name));
    }
    EXPECT_EQ(refusals.at("pkcs7/amazon-roots.der"), Refusal::None);
    EXPECT_EQ(refusals.at("pkcs7/isrg.pem"), Refusal::None);
    EXPECT_EQ(refusals.at("pkcs7/enveloped.pem"), Refusal::WrongType);
}
