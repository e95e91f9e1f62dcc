#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <openssl/err.h>
#include <openssl/pkcs7.h>

#include <sstream>
#include <utility>

#include <dlfcn.h>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

using foundation::test::rendered; // the functions of this name below would hide it

struct Pki
{
    CertificateAndKey root = makeRoot("root");
    CertificateAndKey ca = makeIntermediate(root, "ca");
    CertificateAndKey signer = makeLeaf(ca, "signer");
    Pkcs7Handle signedData = makeSignedData("content", signer);
};

Pki const& pki()
{
    static Pki const made;
    return made;
}

struct Input : Unchanging
{
    Bytes der;
    std::string pem;
};

/// Signed data and the input of its verification.
struct Subject
{
    PKCS7Certificate data;
    X509CertificateChain intermediates;
    TrustStore trusted;
};

std::string rendered(Subject const& subject)
{
    return rendered(subject.data) + rendered(subject.intermediates) + rendered(subject.trusted);
}

Subject subjectWith(PKCS7Certificate const& data)
{
    static auto const chain = chainOf({pki().ca});
    static auto const store = storeOf({pki().root});
    return {data, chain, store};
}

PKCS7Certificate signedData()
{
    static PKCS7Certificate const loaded(sharedObjects().signedData.getAsBytes());
    return loaded;
}

struct Implementations
{
    PKCS7CertificateImpl source;
    PKCS7CertificateImpl target;
};

std::string rendered(Implementations const& pair)
{
    return pair.source.getAsString() + pair.target.getAsString() + rendered(pair.target.getCertificates());
}

PKCS7CertificateValidationResults verify(Subject const& subject, ByteArray const& content)
{
    return subject.data.verifySignature(subject.intermediates, subject.trusted, content);
}

AllowedOutcomes const notLoaded = failsWith(
    {failure<PKCS7CertificateException>(
         "Internal error: The given certificate data could not be written to a buffer."),
     failureBeginning<PKCS7CertificateException>("Error: Loading a certificate failed. Reason="),
     failure<PKCS7CertificateException>("Error: Unable to parse X509 certificate(s) inside PKCS7 certificate."
                                        "Error: X509Certificate has no content.")},
    7);
AllowedOutcomes const noText = failsWith(
    failure<InvalidArgument>("The input PKCS7 certificate data string is invalid. Reason:std::bad_alloc"));
AllowedOutcomes const noStream = failsWith(
    failure<InvalidArgument>("The input PKCS7 certificate data stream is invalid. Reason:std::bad_alloc"));

/// A new object, which renders as the result of its verification.
struct VerifiedLater
{
    PKCS7Certificate data;
};

std::string rendered(VerifiedLater const& made)
{
    return rendered(verify(subjectWith(made.data), {}));
}

OperationOn<Input> loadForVerification()
{
    return {
        "DER bytes for a later verification",
        [](auto& input) { return VerifiedLater{PKCS7Certificate(input.der)}; }, notLoaded};
}

std::vector<OperationOn<Input>> loads()
{
    return {
        loadForVerification(),
        {"DER bytes", [](auto& input) { return PKCS7Certificate(input.der); }, notLoaded},
        {"PEM bytes", [](auto& input) { return PKCS7Certificate(asBytes(input.pem)); }, notLoaded},
        {"PEM text", [](auto& input) { return PKCS7Certificate(input.pem); }, notLoaded, noText},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return PKCS7Certificate(stream);
         },
         notLoaded, noStream},
    };
}

AllowedOutcomes const notCopied = failsWith(
    {failure<PKCS7CertificateException>("Internal error: The PKCS7 structure could not be copied.")}, 3);

/// Accepts every verdict except a valid signature under a trusted chain.
bool isNotTrusted(std::string const& answer, std::string const& /*answerAtRest*/)
{
    return answer.rfind("true 0 ", 0) != 0;
}

/// OpenSSL leaks its own memory in a verification that runs out of it.
AllowedOutcomes verificationFailing(AnswerMatcher const& otherAnswers, std::size_t stride)
{
    auto outcomes = failsWith(validationUnfinished() + notCopied.failures, stride);
    outcomes.otherAnswers = otherAnswers;
    outcomes.isLeaky = true;
    return outcomes;
}

AllowedOutcomes notVerified(std::size_t stride)
{
    return verificationFailing(isNotTrusted, stride);
}

std::vector<OperationOn<Subject>> verification()
{
    // OpenSSL makes more allocations in a row than that while it parses a signer's extensions.
    constexpr std::size_t stride = 7;
    return {
        {"verifySignature", [](auto& s) { return verify(s, {}); },
         verificationFailing(isStricterVerification, stride)}};
}

/// For signed data that must never get the verdict of a valid signature under a trusted chain.
std::vector<OperationOn<Subject>> refusals()
{
    return {{"verifySignature", [](auto& s) { return verify(s, {}); }, notVerified(97), withStride(3)}};
}

/// The object has no structure: with one, OpenSSL leaks its own memory over detached content. Some releases
/// of OpenSSL report the shortage as the reason of the failure.
std::vector<OperationOn<Subject>> detached()
{
    auto outcomes = failsWith(
        storeUnread() +
            Failures{
                failure<PKCS7CertificateException>(
                    "Internal error: The given input data bytes could not be written to a buffer."),
                failure<TrustStoreException>("Failed to create X509_STORE"),
                failureBeginning<TrustStoreException>("Failed to add certificate to store, CN: "),
                certificateWithoutContent(),
                certificateUnwritten(),
            },
        7);
    outcomes.otherAnswers = isNotTrusted;
    return {{"verifySignature", [](auto& s) { return verify(s, {'a', 'p', 'a', 'r', 't'}); }, outcomes}};
}

Subject withoutStructure()
{
    return subjectWith(PKCS7Certificate());
}

std::vector<OperationOn<PKCS7Certificate>> copies()
{
    return {
        {"copying for a later verification",
         [](auto& source) { return VerifiedLater{PKCS7Certificate(source)}; }, notCopied}};
}

std::vector<OperationOn<Implementations>> assignments()
{
    return {
        {"copying",
         [](auto& pair) {
             pair.target = pair.source;
             return true;
         },
         notCopied}};
}

Implementations implementations()
{
    static auto const other = makeSignedData("other", makeSelfSignedLeaf("other"));
    return {PKCS7CertificateImpl(toDer(pki().signedData)), PKCS7CertificateImpl(toDer(other))};
}

/// Each run has a copy that was never verified, of an object that was never verified.
std::vector<SweptOperation> onCopies(Pkcs7Handle const& data, std::vector<OperationOn<Subject>> const& table)
{
    return operationsOn<Subject>(
        "copied ", [loaded = PKCS7Certificate(toDer(data))] { return subjectWith(loaded); }, table);
}

/// Each run loads the object anew.
std::vector<SweptOperation> onLoaded(Pkcs7Handle const& data, std::vector<OperationOn<Subject>> const& table)
{
    return operationsOn<Subject>(
        "loaded ",
        [der = toDer(data)] {
            auto subject = subjectWith(PKCS7Certificate());
            subject.data = PKCS7Certificate(der);
            return subject;
        },
        table);
}

Pkcs7Handle untrustedData()
{
    return makeSignedData("content", makeLeaf(makeRoot("other root"), "signer"));
}

/// Returns signed data with a certificate that the structure does not share with the list of certificates.
Pkcs7Handle withInvalidExtension()
{
    auto const invalid = makeLeaf(pki().ca, "invalid", [](CertificateSpec& spec) {
        spec.setRawExtension("basicConstraints", asBytes("damaged"));
    });
    return makeSignedData("content", invalid);
}

std::vector<SweptOperation> onInput(Pkcs7Handle const& data, std::vector<OperationOn<Input>> const& table)
{
    return operationsOn<Input>(
        "from ",
        [data] {
            return Input{{}, toDer(data), toPem(data)};
        },
        table);
}

bool canEncodeSigners = true;

} // namespace

/// Replaces OpenSSL's function: calls it, or fails as it does without memory.
int i2d_PKCS7_SIGNER_INFO(PKCS7_SIGNER_INFO const* signer, unsigned char** out)
{
    static auto* const original =
        reinterpret_cast<decltype(&i2d_PKCS7_SIGNER_INFO)>(dlsym(RTLD_NEXT, "i2d_PKCS7_SIGNER_INFO"));
    if (!canEncodeSigners) {
        ERR_raise(ERR_LIB_ASN1, ERR_R_MALLOC_FAILURE);
        return -1;
    }
    return original(signer, out);
}

TEST(PKCS7SignersShortage, SignersThatCannotBeEncodedComeInDerOrder)
{
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {pki().signer, makeLeaf(pki().ca, "signer with a longer name")};
    PKCS7Certificate const loaded(withTwoSignersReversed(makeSignedData(spec)));
    auto const inDerOrder = loaded.getSignerCerts();
    CleanErrorQueue const clean;

    canEncodeSigners = false;
    auto const found = loaded.getSignerCerts();
    canEncodeSigners = true;

    EXPECT_EQ(found.getNumCertificates(), 2U);
    EXPECT_EQ(found, inDerOrder);
    EXPECT_TRUE(queueIsEmpty());
}

FOUNDATION_TEST_ALLOCATION_FAILURE(Loads, onInput(pki().signedData, loads()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    LoadsInvalidExtension, onInput(withInvalidExtension(), {loadForVerification()}));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Copies, operationsOn<PKCS7Certificate>(
                "", [loaded = PKCS7Certificate(toDer(pki().signedData))] { return PKCS7Certificate(loaded); },
                copies()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Operations, tableOn<PKCS7Certificate>(signedData, signedDataOperations()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Trusted, onCopies(pki().signedData, verification()));
FOUNDATION_TEST_ALLOCATION_FAILURE(TrustedAsLoaded, onLoaded(pki().signedData, verification()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Tampered, onCopies(withTamperedContent(pki().signedData), refusals()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Damaged, onCopies(withDamagedSignature(pki().signedData), refusals()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Untrusted, onCopies(untrustedData(), refusals()));
FOUNDATION_TEST_ALLOCATION_FAILURE(Detached, operationsOn<Subject>("", withoutStructure, detached()));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Assignments, operationsOn<Implementations>("", implementations, assignments()));
