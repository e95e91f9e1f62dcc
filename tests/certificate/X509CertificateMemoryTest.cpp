#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509Access.hpp"
#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <sstream>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Returns a certificate with every extension that a query reads.
Bytes certificateWith(KeyHandle const& key)
{
    static auto const root = makeRoot("root");
    return makeIntermediate(
               root, "subject",
               [&](CertificateSpec& spec) {
                   spec.key = key;
                   spec.setExtension("keyUsage", "critical,digitalSignature,keyCertSign,cRLSign");
                   spec.setExtension("extendedKeyUsage", "serverAuth,clientAuth");
                   spec.setExtension("certificatePolicies", "1.2.3.4,1.2.3.5");
               })
        .der();
}

/// One certificate in all forms that can be loaded.
struct Input : Unchanging
{
    Bytes der;
    std::string pem;
    X509Handle object;
};

Input inputWith(KeyHandle const& key)
{
    auto const der = certificateWith(key);
    auto const object = parseDer(der);
    return {{}, der, toPem(object), object};
}

/// Small enough to refuse allocations in every part of a load.
constexpr std::size_t loadStride = 3;

AllowedOutcomes const notLoaded = failsWith(certificateUnloaded(), loadStride);
AllowedOutcomes const noText = failsWith(
    failure<InvalidArgument>("The input certificate data string is invalid. Reason:std::bad_alloc"));
AllowedOutcomes const noStream = failsWith(
    failure<InvalidArgument>("The input certificate data stream is invalid. Reason:std::bad_alloc"));

std::vector<OperationOn<Input>> loads()
{
    return {
        {"DER bytes", [](auto& input) { return X509Certificate(input.der); }, notLoaded},
        {"PEM bytes", [](auto& input) { return X509Certificate(asBytes(input.pem)); }, notLoaded},
        {"PEM text", [](auto& input) { return X509Certificate(input.pem); }, notLoaded, noText},
        {"DER text", [](auto& input) { return X509Certificate(asText(input.der)); }, notLoaded, noText},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return X509Certificate(stream);
         },
         notLoaded, noStream},
        {"an OpenSSL object",
         [](auto& input) { return X509Certificate(X509CertificateImpl(input.object.get())); }, notLoaded},
    };
}

std::vector<SweptOperation> loadsWith(KeyHandle const& key)
{
    return operationsOn<Input>(
        "from ", [input = inputWith(key)] { return input; }, loads());
}

/// An object as OpenSSL's readers return it. Nobody else has it.
struct Parsed
{
    X509Handle object;
};

std::string rendered(Parsed const& parsed)
{
    return toPem(parsed.object);
}

std::vector<SweptOperation> adoptionsWith(KeyHandle const& key)
{
    return operationsOn<Parsed>(
        "", [der = certificateWith(key)] { return Parsed{parseDer(der)}; },
        {{"adopt",
          [](Parsed& parsed) { return X509Certificate(X509CertificateImpl::adopt(parsed.object.get())); },
          failsWith(certificateUnloaded(), loadStride)}});
}

/// The certificate is loaded anew for each run, so that OpenSSL has cached nothing of it.
std::vector<SweptOperation> queriesWith(KeyHandle const& key)
{
    return tableOn<X509Certificate>(
        [der = certificateWith(key)] { return X509Certificate(der); },
        operationsWithoutOthers(certificateOperations()));
}

std::vector<SweptOperation> validations()
{
    return tableOn<X509Certificate>(
        [der = sharedObjects().certificate.getAsBytes()] { return X509Certificate(der); },
        operationsWithOthers(certificateOperations()));
}

/// Runs the query while OpenSSL gets no memory from the given allocation on. Returns whether the query
/// reached that allocation.
template <class Query>
bool expectAnswerOrFailure(X509Certificate const& certificate, std::size_t firstRefused, Query const& query)
{
    SCOPED_TRACE("no memory from allocation " + std::to_string(firstRefused) + " on");
    auto const answer = query(certificate);
    try {
        Shortage const shortage(Memory::OpenSSL, firstRefused, unlimited);
        EXPECT_EQ(query(certificate), answer);
    } catch (X509CertificateException const& failure) {
        EXPECT_STREQ(failure.what(), "Internal error: Unable to read the certificate's extensions.");
    }
    return Shortage::hasOccurred();
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(P256, queriesWith(p256Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(RSA, queriesWith(rsaKey()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Ed25519, queriesWith(ed25519Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Validations, validations());
FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsP256, loadsWith(p256Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsRSA, loadsWith(rsaKey()));
FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsEd25519, loadsWith(ed25519Key()));

FOUNDATION_TEST_ALLOCATION_FAILURE(AdoptionsP256, adoptionsWith(p256Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(AdoptionsRSA, adoptionsWith(rsaKey()));
FOUNDATION_TEST_ALLOCATION_FAILURE(AdoptionsEd25519, adoptionsWith(ed25519Key()));

TEST(X509CertificateOutOfMemory, AdoptionReplacesObjectWithUnreadExtensions)
{
    auto const object = parseDer(certificateWith(p256Key()));
    {
        CleanErrorQueue const clean;
        Shortage const shortage(Memory::OpenSSL, 0, unlimited);
        ASSERT_NE(X509_check_purpose(object.get(), -1, 0), 1);
    }
    X509Certificate const certificate(X509CertificateImpl::adopt(object.get()));
    EXPECT_NE(X509Access::share(certificate).get(), object.get());
    EXPECT_TRUE(certificate.isCACertificate());
}

TEST(X509CertificateOutOfMemory, ReportsUnreadableExtensionsWithAnyErrorQueue)
{
    X509Certificate const certificate(certificateWith(p256Key()));
    for (bool const isQueueEmpty : {true, false}) {
        CleanErrorQueue const clean;
        if (!isQueueEmpty) {
            queueForeignError();
        }
        auto const sweep = [&](auto const& query) {
            std::size_t firstRefused = 0;
            while (expectAnswerOrFailure(certificate, firstRefused, query)) {
                ++firstRefused;
            }
            EXPECT_GT(firstRefused, 0U);
        };
        sweep([](auto& c) { return c.getExtendedKeyUsages(); });
        sweep([](auto& c) { return c.getPolicies(); });
        sweep([](auto& c) { return c.isValidForDigitalSigning(); });
    }
}
