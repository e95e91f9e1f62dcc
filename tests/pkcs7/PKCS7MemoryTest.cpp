#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include <sstream>
#include <utility>

namespace foundation::test {

namespace {

using namespace certificates;

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

/// Signed data, and all that its verification asks for.
struct Subject
{
    PKCS7Certificate data;
    X509CertificateChain intermediates;
    TrustStore trusted;
    X509Certificate stranger;
};

std::string rendered(Subject const& subject)
{
    return test::rendered(subject.data) + test::rendered(subject.intermediates) +
           test::rendered(subject.trusted);
}

Subject subjectWith(PKCS7Certificate const& data)
{
    static auto const chain = chainOf({pki().ca});
    static auto const store = storeOf({pki().root});
    static auto const stranger = load(pki().root);
    return {data, chain, store, stranger};
}

struct Implementations
{
    PKCS7CertificateImpl source;
    PKCS7CertificateImpl target;
};

std::string rendered(Implementations const& pair)
{
    return pair.source.getAsString() + pair.target.getAsString() +
           test::rendered(pair.target.getCertificates());
}

std::string verdict(Subject const& subject, ByteArray const& content)
{
    auto const results = subject.data.verifySignature(subject.intermediates, subject.trusted, content);
    return std::to_string(results.getSignatureVerificationStatus()) +
           std::to_string(static_cast<int>(results.getCertificateChainStatus()));
}

Shortcomings const unloaded = failsWith(
    {failure<PKCS7CertificateException>(
         "Internal error: The given certificate data could not be written to a buffer."),
     failureBeginning<PKCS7CertificateException>("Error: Loading a certificate failed. Reason="),
     failureBeginning<PKCS7CertificateException>(
         "Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.")},
    7);
Shortcomings const noText = failsWith(
    failure<InvalidArgument>("The input PKCS7 certificate data string is invalid. Reason:std::bad_alloc"));
Shortcomings const noStream = failsWith(
    failure<InvalidArgument>("The input PKCS7 certificate data stream is invalid. Reason:std::bad_alloc"));

std::vector<OperationOn<Input>> loads()
{
    return {
        {"DER bytes", [](auto& input) { return PKCS7Certificate(input.der); }, unloaded},
        {"PEM bytes", [](auto& input) { return PKCS7Certificate(asBytes(input.pem)); }, unloaded},
        {"PEM text", [](auto& input) { return PKCS7Certificate(input.pem); }, unloaded, noText},
        {"a stream",
         [](auto& input) {
             std::istringstream stream(input.pem);
             return PKCS7Certificate(stream);
         },
         unloaded, noStream},
    };
}

Shortcomings const noFingerprint = failsWith(fingerprintUnknown());
Shortcomings const notCopied = failsWith(
    {failure<PKCS7CertificateException>("Internal error: The PKCS7 structure could not be copied.")}, 3);
Shortcomings const notWritten =
    failsWith(failure<PKCS7CertificateException>("Unable to write out the PKCS7 data"));
Failures const noSigners = certificateUntaken() + notCopied.failures;

/// Any verdict but the one that the signature and its chain are sound.
bool isNoTrust(std::string const& answer, std::string const& /*rightAnswer*/)
{
    return answer != "10";
}

/// Where memory runs out, a signature cannot be checked, or trust cannot be had.
bool isUnchecked(std::string const& answer, std::string const& /*rightAnswer*/)
{
    return answer == "07" || answer == "11";
}

Shortcomings unverified(Concession concession, std::size_t stride)
{
    return {validationUnfinished() + notCopied.failures, std::move(concession), stride, true};
}

std::vector<OperationOn<Subject>> operations()
{
    return {
        {"empty", [](auto& s) { return s.data.empty(); }},
        {"getCertificates", [](auto& s) { return s.data.getCertificates(); }},
        {"getNumCertificates", [](auto& s) { return s.data.getNumCertificates(); }},
        {"getSignedData", [](auto& s) { return s.data.getSignedData(); }, {{}, shorter, 3}},
        {"getSignerCerts", [](auto& s) { return s.data.getSignerCerts(); }, {noSigners, shorter, 3}},
        {"getAsBytes", [](auto& s) { return s.data.getAsBytes(); }, notWritten},
        {"getAsString", [](auto& s) { return s.data.getAsString(); }, notWritten},
        {"print",
         [](auto& s) { return printed(s.data); },
         {noFingerprint.failures, asManyLines},
         {{}, shorter}},
        {"equality", [](auto& s) { return s.data == s.data; }, noFingerprint},
        {"inequality", [](auto& s) { return s.data != s.data; }, noFingerprint},
        {"copy", [](auto& s) { return PKCS7Certificate(s.data); }, notCopied},
        {"assignment", [](auto& s) { return assigned(s.data); }, notCopied},
        {"addCertificate",
         [](auto& s) {
             s.data.addCertificate(s.stranger);
             return true;
         }},
        {"verifySignature", [](auto& s) { return verdict(s, {}); }, unverified(isUnchecked, 41)},
    };
}

/// What must never be found to be sound and trusted.
std::vector<OperationOn<Subject>> refusals()
{
    return {
        {"verifySignature", [](auto& s) { return verdict(s, {}); }, unverified(isNoTrust, 97),
         withStride(3)}};
}

/// With a structure, OpenSSL would lose some of its own memory over content that lies apart.
std::vector<OperationOn<Subject>> detached()
{
    return {
        {"verifySignature",
         [](auto& s) {
             return verdict(s, {'a', 'p', 'a', 'r', 't'});
         },
         failsWith(
             {failure<PKCS7CertificateException>(
                  "Internal error: The given input data bytes could not be written to a buffer."),
              failure<TrustStoreException>("Failed to create X509_STORE"),
              failure<TrustStoreException>("Failed to add certificate to store, CN: root"),
              failure<X509CertificateException>("Error: X509Certificate has no content."),
              failure<X509CertificateException>("Internal error: Could not serialize the X509 certificate.")},
             7)}};
}

Subject withoutStructure()
{
    return subjectWith(PKCS7Certificate());
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

std::vector<OperationWithoutMemory>
on(std::string const& name, Pkcs7Handle const& data, std::vector<OperationOn<Subject>> const& table)
{
    return operationsOn<Subject>(
        name, [loaded = PKCS7Certificate(toDer(data))] { return subjectWith(loaded); }, table);
}

Pkcs7Handle strangersData()
{
    return makeSignedData("content", makeLeaf(makeRoot("other root"), "stranger"));
}

FOUNDATION_TEST_WITHOUT_MEMORY(
    Loads, operationsOn<Input>(
               "from ",
               [] {
                   return Input{{}, toDer(pki().signedData), toPem(pki().signedData)};
               },
               loads()));
FOUNDATION_TEST_WITHOUT_MEMORY(Operations, on("", pki().signedData, operations()));
FOUNDATION_TEST_WITHOUT_MEMORY(Tampered, on("", withTamperedContent(pki().signedData), refusals()));
FOUNDATION_TEST_WITHOUT_MEMORY(Damaged, on("", withDamagedSignature(pki().signedData), refusals()));
FOUNDATION_TEST_WITHOUT_MEMORY(Stranger, on("", strangersData(), refusals()));
FOUNDATION_TEST_WITHOUT_MEMORY(Detached, operationsOn<Subject>("", withoutStructure, detached()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    Assignments, operationsOn<Implementations>("", implementations, assignments()));

} // namespace

} // namespace foundation::test
