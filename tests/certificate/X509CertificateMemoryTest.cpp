#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include "certificate/X509CertificateImpl.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace foundation::test {

namespace {

using namespace certificates;

using Row = OperationOn<X509Certificate>;

/// With every extension that a query reads.
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

/// The same certificate in all forms in which it can be loaded.
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

/// Small enough to come upon every part of a load, in one form or another.
constexpr std::size_t loadStride = 3;

/// What there is no memory for is told by the step that needed it.
Shortcomings const unloaded = failsWith(
    certificateUnloaded() +
        Failures{
            failure<X509CertificateException>("Failed to get the modulus for the public key"),
            failure<X509CertificateException>("Failed to get the public exponent for the public key"),
            failure<X509CertificateException>(
                "RSA key size does not meet minimum cryptographic requirements"),
        },
    loadStride);
Shortcomings const noText = failsWith(
    failure<InvalidArgument>("The input certificate data string is invalid. Reason:std::bad_alloc"));
Shortcomings const noStream = failsWith(
    failure<InvalidArgument>("The input certificate data stream is invalid. Reason:std::bad_alloc"));

std::vector<OperationOn<Input>> loads()
{
    return {
        {"DER bytes", [](auto& input) { return X509Certificate(input.der); }, unloaded},
        {"PEM bytes", [](auto& input) { return X509Certificate(asBytes(input.pem)); }, unloaded},
        {"PEM text", [](auto& input) { return X509Certificate(input.pem); }, unloaded, noText},
        {"DER text", [](auto& input) { return X509Certificate(asText(input.der)); }, unloaded, noText},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return X509Certificate(stream);
         },
         unloaded, noStream},
        {"an OpenSSL object",
         [](auto& input) { return X509Certificate(X509CertificateImpl(input.object.get())); }, unloaded},
    };
}

Shortcomings const noFingerprint = failsWith(fingerprintUnknown());
Shortcomings const noDate =
    failsWith(failure<X509CertificateException>("Error: printing the ASN1 time failed."));
Shortcomings const noTimePoint =
    failsWith(failure<X509CertificateException>("Invalid time format used in the certificate."));
Shortcomings const notWritten = failsWith(certificateUnwritten());
Failure const noModulus = failure<X509CertificateException>("Failed to get the modulus for the public key");
Failure const noExponent =
    failure<X509CertificateException>("Failed to get the public exponent for the public key");

std::vector<Row> rsaKeyQueries()
{
    return {
        {"getKeySize", [](auto& c) { return c.getKeySize(); }},
        {"getPublicKeyInfo", [](auto& c) { return c.getPublicKeyInfo(); },
         failsWith(Failures{noModulus, noExponent})},
        {"getModulus", [](auto& c) { return c.getModulus(); }, failsWith(noModulus)},
        {"getPublicExponent", [](auto& c) { return c.getPublicExponent(); }, failsWith(noExponent)},
    };
}

std::vector<Row> ed25519KeyQueries()
{
    return {
        {"getKeySize", [](auto& c) { return c.getKeySize(); }},
        {"getPublicKeyInfo", [](auto& c) { return c.getPublicKeyInfo(); },
         failsWith(Failures{
             failure<CertificateException>("Failed to extract public point from public EVP_PKEY"),
             failure<CertificateException>("Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL")})},
    };
}

std::vector<Row> nameQueries()
{
    return {
        {"getSubjectName", [](auto& c) { return c.getSubjectName(); }},
        {"getIssuerName", [](auto& c) { return c.getIssuerName(); }},
        {"getSubjectNameAsRDNs", [](auto& c) { return c.getSubjectNameAsRDNs(); }},
        {"getIssuerNameAsRDNs", [](auto& c) { return c.getIssuerNameAsRDNs(); }},
        {"getSubjectCommonName", [](auto& c) { return c.getSubjectCommonName(); }},
        {"getIssuerCommonName", [](auto& c) { return c.getIssuerCommonName(); }},
    };
}

std::vector<Row> fieldQueries()
{
    return {
        {"empty", [](auto& c) { return c.empty(); }},
        {"getSerialNumber", [](auto& c) { return c.getSerialNumber(); },
         failsWith(Failures{
             failure<X509CertificateException>("Internal error: Unable to get serial number."),
             failure<X509CertificateException>("Internal error: Unable to get serial number from BN.")})},
        {"getSHA256Fingerprint", [](auto& c) { return c.getSHA256Fingerprint(); }, noFingerprint},
        {"getSignatureAlgorithm", [](auto& c) { return c.getSignatureAlgorithm(); }},
        {"getValidNotBefore", [](auto& c) { return c.getValidNotBefore(); }, noDate},
        {"getValidNotAfter", [](auto& c) { return c.getValidNotAfter(); }, noDate},
        {"getValidNotBeforeTimePoint", [](auto& c) { return c.getValidNotBeforeTimePoint(); }, noTimePoint},
        {"getValidNotAfterTimePoint", [](auto& c) { return c.getValidNotAfterTimePoint(); }, noTimePoint},
        {"getKeySize", [](auto& c) { return c.getKeySize(); }},
        {"getPublicKeyInfo", [](auto& c) { return c.getPublicKeyInfo(); },
         failsWith(Failures{
             failure<CertificateException>("Could not extract public key information from EVP_PKEY"),
             failure<CertificateException>("Failed to extract public point from public EVP_PKEY"),
             failure<CertificateException>("Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL")})},
        {"getExtendedKeyUsages", [](auto& c) { return c.getExtendedKeyUsages(); }},
        {"getPolicies", [](auto& c) { return c.getPolicies(); }},
        {"isCACertificate", [](auto& c) { return c.isCACertificate(); }},
        {"isValidForDigitalSigning", [](auto& c) { return c.isValidForDigitalSigning(); }},
    };
}

std::vector<Row> wholeCertificate()
{
    return {
        {"isSelfSigned", [](auto& c) { return c.isSelfSigned(); }},
        {"equality", [](auto& c) { return c == c; }, noFingerprint},
        {"inequality", [](auto& c) { return c != c; }, noFingerprint},
        {"getAsBytes", [](auto& c) { return c.getAsBytes(); }, notWritten},
        {"getAsString", [](auto& c) { return c.getAsString(); }, notWritten},
        {"getAsPEMString", [](auto& c) { return c.getAsPEMString(); }, notWritten},
        {"print", [](auto& c) { return printed(c); }, noFingerprint, {{}, beginning}},
        {"copy", [](auto& c) { return X509Certificate(c); }},
        {"assignment", [](auto& c) { return assigned(c); }},
    };
}

std::vector<OperationWithoutMemory> loadsWith(KeyHandle const& key)
{
    return operationsOn<Input>(
        "from ", [input = inputWith(key)] { return input; }, loads());
}

std::vector<OperationWithoutMemory>
withKey(std::string const& keyName, KeyHandle const& key, std::vector<Row> const& rows)
{
    auto const make = [der = certificateWith(key)] { return X509Certificate(der); };
    return operationsOn<X509Certificate>(keyName, make, rows);
}

FOUNDATION_TEST_WITHOUT_MEMORY(Names, withKey("", p256Key(), nameQueries()));
FOUNDATION_TEST_WITHOUT_MEMORY(Fields, withKey("", p256Key(), fieldQueries()));
FOUNDATION_TEST_WITHOUT_MEMORY(Whole, withKey("", p256Key(), wholeCertificate()));
FOUNDATION_TEST_WITHOUT_MEMORY(RSA, withKey("RSA ", rsaKey(), rsaKeyQueries()));
FOUNDATION_TEST_WITHOUT_MEMORY(Ed25519, withKey("Ed25519 ", ed25519Key(), ed25519KeyQueries()));
FOUNDATION_TEST_WITHOUT_MEMORY(LoadsP256, loadsWith(p256Key()));
FOUNDATION_TEST_WITHOUT_MEMORY(LoadsRSA, loadsWith(rsaKey()));
FOUNDATION_TEST_WITHOUT_MEMORY(LoadsEd25519, loadsWith(ed25519Key()));

/// Runs the query while OpenSSL gets no memory from that allocation on. Whether it came that far.
template <class Query>
bool expectAnswerOrFailure(X509Certificate const& certificate, std::size_t allocation, Query const& query)
{
    SCOPED_TRACE("without memory from allocation " + std::to_string(allocation) + " on");
    auto const answer = query(certificate);
    try {
        Shortage const shortage(Memory::OpenSSL, allocation, Length::Lasting);
        EXPECT_EQ(query(certificate), answer);
    } catch (X509CertificateException const& failure) {
        EXPECT_STREQ(failure.what(), "Internal error: Unable to read the certificate's extensions.");
    }
    return Shortage::hasOccurred();
}

TEST(ExtensionsWithoutMemory, DoNotPassForAbsentWhateverTheCallerLeftInTheQueue)
{
    X509Certificate const certificate(certificateWith(p256Key()));
    for (bool const isQueueEmpty : {true, false}) {
        CleanErrorQueue const clean;
        if (!isQueueEmpty) {
            queueForeignError();
        }
        auto const sweep = [&](auto const& query) {
            std::size_t allocation = 0;
            while (expectAnswerOrFailure(certificate, allocation, query)) {
                ++allocation;
            }
            EXPECT_GT(allocation, 0U);
        };
        sweep([](auto& c) { return c.getExtendedKeyUsages(); });
        sweep([](auto& c) { return c.getPolicies(); });
        sweep([](auto& c) { return c.isValidForDigitalSigning(); });
    }
}

} // namespace

} // namespace foundation::test
