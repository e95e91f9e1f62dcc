#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS12Certificate.hpp>

#include <sstream>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

struct Input : Unchanging
{
    Bytes der;
};

Bytes bundleWith(KeyHandle const& key)
{
    static auto const root = makeRoot("root");
    Pkcs12Spec spec;
    auto const leaf = makeLeaf(root, "leaf", [&](CertificateSpec& certificate) { certificate.key = key; });
    spec.passphrase = "secret";
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.furtherCertificates = {root.certificate};
    spec.iterations = 1;
    return toDer(makePkcs12(spec));
}

constexpr std::size_t loadStride = 29;

AllowedOutcomes const unopened = failsWith(
    Failures{
        failure<PKCS12CertificateException>(
            "Internal error: The given certificate data could not be written to a buffer."),
        failureBeginning<PKCS12CertificateException>("Error: Loading PKSC12 certificate failed. Reason="),
        failureBeginning<IncorrectPassphrase>("Input passphrase is incorrect. OpenSSL error message="),
        failureBeginning<PKCS12CertificateException>("Error: Loading legacy provider failed."),
        failureBeginning<PKCS12CertificateException>("Error: Parsing PKSC12 certificate failed."),
        failureBeginning<PKCS12CertificateException>(
            "Error: Unable to parse X509 certificate(s) inside PKCS12 certificate."),
        failure<PKCS12CertificateException>("RSA key size does not meet minimum cryptographic requirements"),
        failure<PKCS12CertificateException>("Failed to get the private exponent for the private key"),
        failure<CertificateException>("Failed to extract information from private EVP_PKEY."),
        failure<CertificateException>("Could not extract public key information from EVP_PKEY"),
        failure<CertificateException>("Failed to initialize BIGNUM with private integer data."),
        failure<CertificateException>("Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL"),
    },
    loadStride);
AllowedOutcomes const noStream = failsWith(
    failure<InvalidArgument>("The input PKCS12 certificate data stream is invalid. Reason:std::bad_alloc"));
std::vector<OperationOn<Input>> loads()
{
    return {
        {"bytes", [](auto& input) { return PKCS12Certificate(input.der, "secret"); }, unopened},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(asText(input.der));
             return PKCS12Certificate(stream, "secret");
         },
         unopened, noStream},
    };
}

std::vector<SweptOperation> loadsWith(KeyHandle const& key)
{
    return operationsOn<Input>(
        "from ", [input = Input{{}, bundleWith(key)}] { return input; }, loads());
}

PKCS12Certificate bundle()
{
    static PKCS12Certificate const opened(bundleWith(rsaKey()), "secret");
    return opened;
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsRSA, loadsWith(rsaKey()));
FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsP256, loadsWith(p256Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(LoadsEd25519, loadsWith(ed25519Key()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Operations, tableOn<PKCS12Certificate>(bundle, bundleOperations()));
