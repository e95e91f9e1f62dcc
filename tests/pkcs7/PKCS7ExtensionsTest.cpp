#include "libcrypto/OpenSSLHandles.hpp"

#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/Rendering.hpp"
#include "support/pki/Der.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace foundation::certificates;
using namespace foundation::test;

// Embedded certificates whose extensions cannot be read. OpenSSL queues the errors when it parses them in a
// verification, and not again, so the first verification of an object has another answer than later ones.

namespace {

CertificateAndKey const& root()
{
    static auto const made = makeRoot("root");
    return made;
}

TrustStore const& trusted()
{
    static auto const store = storeOf({root()});
    return store;
}

struct Row
{
    char const* extension;
    Bytes content;
};

std::vector<Row> damagedExtensions()
{
    Bytes const wrongTag = {0x05, 0x01, 0x00};
    constexpr int sequence = 0x30;
    constexpr int firstChoice = 0xA0;
    auto const name = derElement(firstChoice, derElement(firstChoice, derElement(firstChoice, wrongTag)));
    return {
        {"crlDistributionPoints", derElement(sequence, derElement(sequence, name))},
        {"basicConstraints", wrongTag},
        {"keyUsage", wrongTag},
        {"subjectKeyIdentifier", wrongTag},
    };
}

CertificateAndKey signerWith(Row const& row)
{
    return makeLeaf(
        root(), "signer", [&](CertificateSpec& spec) { spec.setRawExtension(row.extension, row.content); });
}

Bytes signedBy(CertificateAndKey const& signer)
{
    return toDer(makeSignedData("content", signer));
}

/// What OpenSSL queues for the verification of the structure.
std::vector<unsigned long> errorsOfOpenSSL(PKCS7* structure)
{
    CleanErrorQueue const clean;
    auto const store = makeX509_STORE(X509_STORE_new());
    X509_STORE_add_cert(store.get(), root().certificate.get());
    EXPECT_NE(PKCS7_verify(structure, nullptr, store.get(), nullptr, nullptr, PKCS7_NO_DUAL_CONTENT), 1);
    return drainErrorQueue();
}

std::string reasonOf(unsigned long code)
{
    return ERR_reason_error_string(code);
}

struct Answer
{
    PKCS7CertificateValidationResults results;
    std::vector<unsigned long> leftErrors;
};

template <class SignedData>
Answer answerOf(SignedData const& loaded)
{
    CleanErrorQueue const clean;
    auto results = loaded.verifySignature(X509CertificateChain(), trusted(), ByteArray());
    return {std::move(results), drainErrorQueue()};
}

/// OpenSSL reports the oldest error, and leaves the others.
template <class SignedData>
void expectFirstAnswer(SignedData const& loaded, std::vector<unsigned long> const& errors)
{
    auto const answer = answerOf(loaded);
    EXPECT_EQ(rendered(answer.results), "false 7 " + reasonOf(errors.front()));
    EXPECT_EQ(answer.leftErrors, std::vector<unsigned long>(errors.begin() + 1, errors.end()));
}

/// The signature is valid, and the chain gets the verdict of the signer's validation.
template <class SignedData>
void expectLaterAnswer(SignedData const& loaded, CertificateAndKey const& signer)
{
    auto const chain =
        X509Certificate(signer.der())
            .validateCertificate(X509CertificateChain(), CertificateValidationOptions(), trusted());
    EXPECT_NE(chain.getCertificateChainStatus(), CertificateChainStatus::Valid);
    PKCS7CertificateValidationResults const expected(
        true, chain.getCertificateChainStatus(), chain.getValidationErrorString());
    EXPECT_EQ(rendered(answerOf(loaded).results), rendered(expected));
}

constexpr int earlierErrorCounts[] = {1, 8, 15};

void queueEarlierErrors(int count)
{
    for (int index = 0; index < count; ++index) {
        ERR_raise(ERR_LIB_USER, 1000 + index);
    }
}

std::vector<unsigned long> queueAfter(int earlierErrors, std::function<void()> const& work)
{
    CleanErrorQueue const clean;
    queueEarlierErrors(earlierErrors);
    work();
    return drainErrorQueue();
}

} // namespace

TEST(PKCS7Extensions, DamagedOnesLoadAndEmptyTheQueue)
{
    for (auto const& row : damagedExtensions()) {
        SCOPED_TRACE(row.extension);
        auto const der = signedBy(signerWith(row));
        for (int const earlier : earlierErrorCounts) {
            auto const load = [&] { EXPECT_EQ(PKCS7Certificate(der).getNumCertificates(), 1u); };
            EXPECT_EQ(queueAfter(earlier, load), std::vector<unsigned long>());
        }
    }
}

TEST(PKCS7Extensions, CopyOfDamagedOnesLeavesWhatOpenSSLsCopyLeaves)
{
    for (auto const& row : damagedExtensions()) {
        SCOPED_TRACE(row.extension);
        auto const der = signedBy(signerWith(row));
        auto const bare = parsePkcs7(der);
        PKCS7Certificate const loaded(der);
        for (int const earlier : earlierErrorCounts) {
            std::optional<PKCS7Certificate> made;
            auto const copy = [&] { made.emplace(loaded); };
            auto const bareCopy = [&] { own(PKCS7_dup(bare.get())); };
            EXPECT_EQ(queueAfter(earlier, copy), queueAfter(earlier, bareCopy));
            EXPECT_EQ(made->getAsString(), loaded.getAsString());
        }
    }
}

TEST(PKCS7Extensions, DamagedOnesGetOpenSSLsReasonInFirstVerificationOfEachObject)
{
    for (auto const& row : damagedExtensions()) {
        SCOPED_TRACE(row.extension);
        auto const signer = signerWith(row);
        auto const der = signedBy(signer);
        auto const bare = parsePkcs7(der);
        auto const errors = errorsOfOpenSSL(bare.get());
        ASSERT_GT(errors.size(), errorsOfOpenSSL(bare.get()).size());

        PKCS7Certificate const loaded(der);
        PKCS7Certificate const copiedBefore(loaded);
        expectFirstAnswer(loaded, errors);
        expectLaterAnswer(loaded, signer);
        PKCS7Certificate const copiedAfterwards(loaded);
        expectFirstAnswer(copiedBefore, errors);
        expectFirstAnswer(copiedAfterwards, errors);
        expectLaterAnswer(copiedAfterwards, signer);
    }
}

TEST(PKCS7Extensions, QueryOfSignersDoesNotUseUpTheFirstAnswer)
{
    for (auto const& row : damagedExtensions()) {
        SCOPED_TRACE(row.extension);
        auto const signer = signerWith(row);
        auto const der = signedBy(signer);
        auto const errors = errorsOfOpenSSL(parsePkcs7(der).get());
        PKCS7Certificate const loaded(der);
        auto const signers = loaded.getSignerCerts().getCertificates();
        ASSERT_EQ(signers.size(), 1u);
        EXPECT_EQ(signers.front().getAsBytes(), signer.der());
        EXPECT_FALSE(signers.front().isCACertificate());
        expectFirstAnswer(loaded, errors);
        expectLaterAnswer(loaded, signer);
    }
}

TEST(PKCS7Extensions, DamagedIntermediateGetsTheSameAnswerEachTime)
{
    for (auto const& row : damagedExtensions()) {
        SCOPED_TRACE(row.extension);
        auto const damaged = makeIntermediate(root(), "damaged", [&](CertificateSpec& spec) {
            spec.setRawExtension(row.extension, row.content);
        });
        PKCS7Certificate const below(signedBy(makeLeaf(damaged, "signer")));
        X509CertificateChain intermediates;
        intermediates.addCertificate(X509Certificate(damaged.der()));
        auto const answer = [&](X509CertificateChain const& chain) {
            CleanErrorQueue const clean;
            auto const results = rendered(below.verifySignature(chain, trusted(), ByteArray()));
            return std::make_pair(results, drainErrorQueue());
        };
        auto const first = answer(intermediates);
        X509CertificateChain again;
        again.addCertificate(X509Certificate(damaged.der()));
        EXPECT_EQ(answer(again), first);
        EXPECT_EQ(answer(intermediates), first);
    }
}

TEST(PKCS7Extensions, DamagedOnesKeepTheirPlaceBesideSoundOnes)
{
    auto const intermediate = makeIntermediate(root(), "intermediate");
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {signerWith(damagedExtensions().front()), makeLeaf(root(), "sound signer")};
    spec.furtherCertificates = {intermediate.certificate};
    auto const structure = makeSignedData(spec);
    auto const pem = toPem(parsePkcs7(toDer(structure)));
    PKCS7Certificate const loaded(pem);
    EXPECT_EQ(loaded.getNumCertificates(), 3u);
    EXPECT_EQ(loaded.getAsString(), pem);
    EXPECT_EQ(PKCS7Certificate(loaded).getAsString(), pem);
    EXPECT_EQ(loaded.getSignerCerts().getNumCertificates(), 2u);
}

TEST(PKCS7Extensions, AssignedImplementationKeepsItsAnswers)
{
    auto const sound = makeLeaf(root(), "sound signer");
    PKCS7CertificateImpl const source(signedBy(makeSelfSignedLeaf("other")));
    PKCS7CertificateImpl target(signedBy(sound));
    PKCS7CertificateImpl empty;
    for (auto const* const assigned : {&source, &source, &std::as_const(empty)}) {
        target = *assigned;
        EXPECT_EQ(rendered(answerOf(target).results), "true 0 ");
    }
    empty.addCertificate(X509Certificate());
    target = empty;
    target = source;
    EXPECT_EQ(rendered(answerOf(target).results), "true 0 ");
}
