#include "certificate/X509CertificateImpl.hpp"
#include "truststore/TrustStoreImpl.hpp"

#include "support/Text.hpp"
#include "support/assertions/ExactThrow.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/operations/OperationTable.hpp"
#include "support/operations/StoreHistory.hpp"
#include "support/pki/EncryptedPem.hpp"
#include "support/pki/SelfSigned.hpp"
#include "support/pki/TestBundles.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

// OpenSSL keeps an error queue for each thread, and the caller may have left entries in it. No operation
// takes such an entry for an error of its own, unless its documentation says so.

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Reasons that the library looks at for its decisions, and one that it does not know.
std::vector<std::pair<int, int>> const& foreignReasons()
{
    static std::vector<std::pair<int, int>> const reasons{
        {ERR_LIB_BN, 103},    // div by zero
        {ERR_LIB_PEM, 108},   // no start line
        {ERR_LIB_ASN1, 168},  // wrong tag
        {ERR_LIB_X509, 101},  // certificate already in hash table
        {ERR_LIB_PKCS7, 117}, // certificate verify error
        {ERR_LIB_SYS, 2},
    };
    return reasons;
}

std::vector<unsigned long> queueForeignErrors()
{
    std::vector<unsigned long> codes;
    for (auto const& [library, reason] : foreignReasons()) {
        ERR_raise(library, reason);
        codes.push_back(ERR_peek_last_error());
    }
    return codes;
}

/// Returns the answer, or class and text of the exception.
template <typename Work>
std::string outcomeOf(Work const& work)
{
    try {
        return work();
    } catch (std::exception const& failure) {
        return std::string(typeid(failure).name()) + ": " + failure.what();
    }
}

/// Returns all answers that come from extensions. The last one loads a certificate, which empties the queue.
std::string answersFromExtensions(X509Certificate const& certificate, X509* parsedCertificate)
{
    auto text = std::to_string(certificate.getExtendedKeyUsages().size());
    text += std::to_string(certificate.getPolicies().size());
    text += std::to_string(certificate.isValidForDigitalSigning());
    text += std::to_string(isValidForUsage(parsedCertificate, TrustStore::Usage::Signing));
    return text + std::to_string(X509CertificateImpl().getCRLDistributionPoints(certificate).size());
}

void setUnreadableExtensions(CertificateSpec& spec)
{
    for (auto const* name :
         {"keyUsage", "extendedKeyUsage", "certificatePolicies", "crlDistributionPoints"}) {
        spec.setRawExtension(name, {0x30, 0x05, 0x01});
    }
}

void setExtensionsTwice(CertificateSpec& spec)
{
    spec.extensions.push_back({"keyUsage", "digitalSignature"});
    spec.extensions.push_back({"extendedKeyUsage", "serverAuth"});
    spec.extensions.push_back({"extendedKeyUsage", "clientAuth"});
}

/// What happens to the caller's entries.
enum class Queue
{
    Kept,
    Emptied
};

struct Load
{
    std::string name;
    std::function<std::string()> run;
    Queue afterwards;
};

class ErrorQueueOfLoads : public testing::Test
{
protected:
    CertificateAndKey const root = makeRoot("root");
    CertificateAndKey const leaf = makeLeaf(root, "leaf");
    Bytes const signedData = toDer(makeSignedData("content", leaf));
    Bytes const bundle = toDer(makePkcs12(leaf, "secret"));
    std::string const pemBundle = toPemBundle({leaf, root});

    template <typename Object, typename... Input>
    static std::function<std::string()> load(Input const&... input)
    {
        return [=] {
            Object const object(input...);
            return std::string(object.empty() ? "empty" : "loaded");
        };
    }

    std::vector<Load> loads() const
    {
        auto const garbage = asBytes("garbage");
        std::string const noBlock = "-----BEGIN CERTIFICATE-----";
        auto half = leaf.der();
        half.resize(half.size() / 2);
        return {
            {"certificate of DER", load<X509Certificate>(leaf.der()), Queue::Emptied},
            {"certificate of PEM", load<X509Certificate>(leaf.pem()), Queue::Emptied},
            {"certificate of garbage", load<X509Certificate>(garbage), Queue::Emptied},
            {"certificate of half a certificate", load<X509Certificate>(half), Queue::Emptied},
            {"certificate of PEM without a block", load<X509Certificate>(noBlock), Queue::Emptied},
            {"certificate of an encrypted block", load<X509Certificate>(toEncryptedPem(leaf.certificate)),
             Queue::Emptied},
            {"certificate of nothing", load<X509Certificate>(Bytes()), Queue::Kept},
            {"chain", load<X509CertificateChain>(pemBundle), Queue::Emptied},
            {"chain of garbage", load<X509CertificateChain>(std::string("garbage")), Queue::Emptied},
            {"chain of nothing", load<X509CertificateChain>(std::string()), Queue::Kept},
            {"signed data", load<PKCS7Certificate>(signedData), Queue::Emptied},
            {"signed data of garbage", load<PKCS7Certificate>(garbage), Queue::Emptied},
            {"signed data of nothing", load<PKCS7Certificate>(Bytes()), Queue::Kept},
            {"bundle", load<PKCS12Certificate>(bundle, std::string("secret")), Queue::Emptied},
            {"bundle with a wrong passphrase", load<PKCS12Certificate>(bundle, std::string("wrong")),
             Queue::Emptied},
            {"bundle of garbage", load<PKCS12Certificate>(garbage, std::string("secret")), Queue::Emptied},
            {"bundle of nothing", load<PKCS12Certificate>(Bytes(), std::string("secret")), Queue::Kept},
        };
    }
};

/// The trust store of the objects has the given history.
class ErrorQueueOfStores : public testing::TestWithParam<StoreHistory>
{};

} // namespace

TEST_P(ErrorQueueOfStores, ForeignErrorsChangeNoAnswer)
{
    auto const original = makeObjects();
    for (auto const& operation : readOperations()) {
        auto objects = original;
        auto const kept = undergo(objects.store, GetParam());
        SCOPED_TRACE(operation.name);
        CleanErrorQueue const clean;
        auto const answer = outcomeOf([&] { return operation.answer(objects); });
        EXPECT_TRUE(queueIsEmpty());

        auto foreign = queueForeignErrors();
        EXPECT_EQ(outcomeOf([&] { return operation.answer(objects); }), answer);
        if (operation.foreignErrors == ForeignErrors::Go) {
            foreign.clear();
        }
        EXPECT_EQ(drainErrorQueue(), foreign);
    }
}

TEST(ErrorQueue, ForeignErrorsChangeNoFailure)
{
    Objects empty{};
    for (auto const& operation : readOperations()) {
        // If this operation fails, its text comes from the oldest entry, as documented.
        if (contains(operation.name, "verifySignature")) {
            continue;
        }
        SCOPED_TRACE(operation.name);
        CleanErrorQueue const clean;
        auto const outcome = outcomeOf([&] { return operation.answer(empty); });
        drainErrorQueue();
        queueForeignErrors();
        EXPECT_EQ(outcomeOf([&] { return operation.answer(empty); }), outcome);
    }
}

TEST_P(ErrorQueueOfStores, ForeignErrorsChangeNoOutcomeOfChangesAndBuilds)
{
    auto const objects = makeObjects();
    for (auto const& operation : allOperations()) {
        if (operation.access == Access::Reads && !operation.isCostly) {
            continue;
        }
        SCOPED_TRACE(operation.name);
        auto changed = objects;
        auto changedAgain = objects;
        auto const kept = undergo(changed.store, GetParam());
        auto const keptAgain = undergo(changedAgain.store, GetParam());
        CleanErrorQueue const clean;
        auto const outcome = outcomeOf([&] { return operation.answer(changed); });
        EXPECT_TRUE(queueIsEmpty());

        auto foreign = queueForeignErrors();
        EXPECT_EQ(outcomeOf([&] { return operation.answer(changedAgain); }), outcome);
        if (operation.foreignErrors == ForeignErrors::Go) {
            foreign.clear();
        }
        EXPECT_EQ(drainErrorQueue(), foreign);
        EXPECT_EQ(rendered(changedAgain.chain), rendered(changed.chain));
        EXPECT_EQ(rendered(changedAgain.store), rendered(changed.store));
        EXPECT_EQ(rendered(changedAgain.signedData), rendered(changed.signedData));
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryHistory, ErrorQueueOfStores, testing::ValuesIn(allStoreHistories()),
    testing::PrintToStringParamName());

TEST(ErrorQueue, ForeignErrorsDoNotTurnFailureIntoKnownCertificate)
{
    CleanErrorQueue const clean;
    ERR_raise(ERR_LIB_X509, X509_R_CERT_ALREADY_IN_HASH_TABLE);
    TrustStoreImpl store;
    EXPECT_THROWS_EXACTLY(TrustStoreException, "Failed to add certificate to store", store.addX509(nullptr));
    EXPECT_THROW(store.addDERCertificate({1, 2, 3}), TrustStoreException);
    EXPECT_TRUE(store.empty());
}

TEST(ErrorQueue, ForeignErrorsDoNotTurnUnreadableExtensionIntoOutOfMemory)
{
    std::string const nothing = "00010"; // an unreadable extension restricts nothing
    for (auto const& mutation : {setUnreadableExtensions, setExtensionsTwice}) {
        auto const made = makeLeaf(makeRoot("root"), "leaf", mutation);
        auto const certificate = load(made);
        auto const answers = [&] { return answersFromExtensions(certificate, made.certificate.get()); };
        EXPECT_EQ(answers(), nothing);
        for (auto const& libraries : {std::vector<int>{ERR_LIB_ASN1}, {ERR_LIB_ASN1, ERR_LIB_BN}}) {
            CleanErrorQueue const clean;
            for (int const library : libraries) {
                ERR_raise(library, ERR_R_MALLOC_FAILURE);
            }
            EXPECT_EQ(outcomeOf(answers), nothing);
        }
    }
}

TEST(ErrorQueue, ForeignErrorsDoNotKeepTooLongCommonName)
{
    CleanErrorQueue const clean;
    ERR_raise(ERR_LIB_ASN1, ERR_R_MALLOC_FAILURE);
    auto builder = fastBuilder();
    builder.withCommonName(std::string(65, 'a'));
    EXPECT_EQ(builder.build().first.getSubjectNameAsRDNs().count("CN"), 0U);
}

// Loads

TEST_F(ErrorQueueOfLoads, ForeignErrorsChangeNoOutcome)
{
    for (auto const& row : loads()) {
        SCOPED_TRACE(row.name);
        CleanErrorQueue const clean;
        auto const outcome = outcomeOf(row.run);
        EXPECT_TRUE(queueIsEmpty());

        auto const foreign = queueForeignErrors();
        EXPECT_EQ(outcomeOf(row.run), outcome);
        EXPECT_EQ(drainErrorQueue(), row.afterwards == Queue::Kept ? foreign : std::vector<unsigned long>());
    }
}

// Refusals

TEST(ErrorQueue, ForeignErrorsDoNotTurnRefusalIntoTrust)
{
    auto const root = makeRoot("root");
    auto const forged =
        load(makeLeaf(root, "leaf", [](CertificateSpec& spec) { spec.damagedSignature = true; }));
    auto const unknown = load(makeLeaf(makeRoot("other root"), "leaf"));
    auto const store = storeOf({root});
    for (auto const& certificate : {forged, unknown}) {
        CleanErrorQueue const clean;
        auto const judge = [&] {
            auto const results = certificate.validateCertificate(
                X509CertificateChain(), CertificateValidationOptions(), store);
            return std::to_string(static_cast<int>(results.getCertificateChainStatus())) +
                   results.getValidationErrorString();
        };
        auto const verdict = judge();
        drainErrorQueue();
        queueForeignErrors();
        EXPECT_EQ(judge(), verdict);
        EXPECT_NE(verdict.front(), '0');
    }
}
