#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Properties.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/PKCS7Certificate.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// PKCS#7 signed data: loading, queries, content and verification. The input holds the signed data and
// detached content. Its options say which root to trust and how much to check.

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::PKCS7Certificate;
using certificates::TrustStore;
using certificates::X509Certificate;
using certificates::X509CertificateChain;
using test::own;

using Status = certificates::CertificateChainStatus;
using Verdict = certificates::PKCS7CertificateValidationResults;

struct Question
{
    bool trustsUnrelatedRoot = false;
    bool knowsCa = false;
    ByteArray detachedContent;
    /// Off for most inputs: most of the time is spent on decoding the keys of each loaded certificate.
    bool isThorough = false;
};

test::CertificateAndKey const& anchorFor(Question const& question)
{
    static auto const unrelated = test::makeRoot("unrelated", fixed("unrelated", "1"));
    return question.trustsUnrelatedRoot ? unrelated : fixedPki().root;
}

TrustStore const& trustStoreFor(Question const& question)
{
    auto const storeFor = [](bool trustsUnrelatedRoot) {
        Question question;
        question.trustsUnrelatedRoot = trustsUnrelatedRoot;
        return test::storeOf({anchorFor(question)});
    };
    static TrustStore const root = storeFor(false);
    static TrustStore const unrelated = storeFor(true);
    return question.trustsUnrelatedRoot ? unrelated : root;
}

X509CertificateChain const& intermediatesFor(Question const& question)
{
    static X509CertificateChain const none;
    static X509CertificateChain const ca(fixedPki().ca.pem());
    return question.knowsCa ? ca : none;
}

bool looksLikePem(ByteArray const& data)
{
    static std::string const marker = "-----BEGIN PKCS7-----";
    return std::search(data.begin(), data.end(), marker.begin(), marker.end()) != data.end();
}

test::Pkcs7Handle parse(ByteArray const& data)
{
    auto const reader = test::readerOf(data);
    return own(
        looksLikePem(data) ? PEM_read_bio_PKCS7(reader.get(), nullptr, nullptr, nullptr)
                           : d2i_PKCS7_bio(reader.get(), nullptr));
}

/// Verifies with bare OpenSSL and the same arguments. Used only after the library accepted the input: some
/// releases of OpenSSL crash on malformed structures, which the library rejects first.
class Reference
{
public:
    Reference(ByteArray const& data, Question const& question) : question(question), structure(parse(data))
    {
        if (question.knowsCa) {
            untrusted = test::makeStack({fixedPki().ca.certificate});
        }
    }

    bool trustsAllSigners() const
    {
        auto const store = own(X509_STORE_new());
        test::require(X509_STORE_add_cert(store.get(), anchorFor(question).certificate.get()));
        if (question.knowsCa) {
            test::require(X509_STORE_add_cert(store.get(), fixedPki().ca.certificate.get()));
        }
        return verifies(store.get(), question.detachedContent.empty() ? PKCS7_NO_DUAL_CONTENT : 0);
    }

    bool acceptsSignatures() const { return verifies(nullptr, PKCS7_NOVERIFY); }

    /// Whether the first signer is trusted for any purpose.
    bool trustsFirstSigner(X509Certificate const& signer) const
    {
        test::ReferenceVerifier verifier;
        verifier.leaf = test::parseDer(signer.getAsBytes());
        if (question.knowsCa) {
            verifier.untrusted = {fixedPki().ca.certificate};
        }
        verifier.trusted = {anchorFor(question).certificate};
        return verifier.verify().result == 1;
    }

    ByteArray signedContent() const
    {
        auto const out = own(BIO_new(BIO_s_mem()));
        int const flags = PKCS7_NOVERIFY | PKCS7_NO_DUAL_CONTENT;
        bool const sound = PKCS7_verify(structure.get(), nullptr, nullptr, nullptr, out.get(), flags) == 1;
        return sound ? test::contentOf(out) : ByteArray();
    }

private:
    bool verifies(X509_STORE* store, int flags) const
    {
        auto const& detached = question.detachedContent;
        auto const content = detached.empty() ? nullptr : test::readerOf(detached);
        return PKCS7_verify(structure.get(), untrusted.get(), store, content.get(), nullptr, flags) == 1;
    }

    Question const& question;
    test::Pkcs7Handle structure;
    test::X509StackHandle untrusted;
};

/// Loads from bytes. If that fails, string and stream must fail, too.
std::optional<PKCS7Certificate> load(ByteArray const& data)
{
    std::optional<PKCS7Certificate> loaded;
    if (!loads([&] { loaded.emplace(data); })) {
        std::string const text(data.begin(), data.end());
        std::istringstream stream(text);
        require(!loads([&] { PKCS7Certificate refused(text); }), "a string loads only if its bytes load");
        require(!loads([&] { PKCS7Certificate refused(stream); }), "a stream loads only if its bytes load");
    }
    return loaded;
}

void checkOtherSources(PKCS7Certificate const& signedData, ByteArray const& data)
{
    std::string const text(data.begin(), data.end());
    std::istringstream stream(text);
    mustSucceed("what loads from bytes loads from string and stream", [&] {
        require(PKCS7Certificate(text) == signedData, "an object loaded from a string is equal");
        require(PKCS7Certificate(stream) == signedData, "an object loaded from a stream is equal");
    });
}

/// Checks that the written PEM, and the same data as DER, loads as an equal object.
void checkRoundTrip(PKCS7Certificate const& signedData)
{
    auto const text = signedData.getAsString();
    auto const bytes = signedData.getAsBytes();
    require(
        std::equal(
            text.begin(), text.end(), bytes.begin(), bytes.end(),
            [](char left, unsigned char right) { return static_cast<unsigned char>(left) == right; }),
        "text and bytes are the same");
    require(text.empty() == signedData.empty(), "exactly an empty object is written as empty text");
    if (text.empty()) {
        return;
    }
    mustSucceed("a written object loads", [&] {
        PKCS7Certificate const fromPem(text);
        require(fromPem == signedData, "an object loaded from its PEM is equal");
        require(fromPem.getAsString() == text, "an object loaded from its PEM is written identically");
        // The library reads DER as PEM if it holds the PEM marker.
        auto const der = test::toDer(parse(bytes));
        require(
            looksLikePem(der) || PKCS7Certificate(der) == signedData, "an object loaded from DER is equal");
    });
}

void checkCopy(PKCS7Certificate const& signedData)
{
    PKCS7Certificate copy(signedData);
    require(copy == signedData && !(copy != signedData), "a copy is equal");
    require(copy.getAsString() == signedData.getAsString(), "a copy is written identically");
    copy.addCertificate(X509Certificate(fixedPki().leaf.der()));
    require(copy.getNumCertificates() == signedData.getNumCertificates() + 1, "an added certificate counts");
    require(copy != signedData, "a copy with a further certificate is not equal");
    PKCS7Certificate const moved(std::move(copy));
    require(
        moved.getCertificates().back() == X509Certificate(fixedPki().leaf.der()),
        "a moved object keeps its certificates");
}

void checkQueries(PKCS7Certificate const& signedData)
{
    auto const certificates = signedData.getCertificates();
    require(certificates.size() == signedData.getNumCertificates(), "the certificates are counted");
    require(certificates.empty() == signedData.empty(), "exactly an object without certificates is empty");
    for (auto const& signer : signedData.getSignerCerts().getCertificates()) {
        require(
            std::find(certificates.begin(), certificates.end(), signer) != certificates.end(),
            "each signer is an embedded certificate");
    }
    std::ostringstream report;
    succeeds([&] { report << signedData; });
    clearErrorQueue();
}

/// Checks that reading the content gives the same result each time, and the result of bare OpenSSL.
void checkContent(PKCS7Certificate const& signedData, Reference const& reference)
{
    auto const content = signedData.getSignedData();
    clearErrorQueue();
    require(signedData.getSignedData() == content, "the content stays the same when it is read again");
    if (!content.empty()) {
        require(reference.signedContent() == content, "the content is the one that OpenSSL verifies");
    }
    clearErrorQueue();
}

void checkVerdict(Verdict const& verdict, PKCS7Certificate const& signedData, Reference const& reference)
{
    bool const sound = verdict.getSignatureVerificationStatus();
    bool const valid = verdict.getCertificateChainStatus() == Status::Valid;
    require(verdict.isValidSignature() == (sound && valid), "isValidSignature combines signature and chain");
    if (!sound) {
        require(
            verdict.getCertificateChainStatus() == Status::Failed,
            "without a valid signature the chain has failed");
        return;
    }
    require(reference.acceptsSignatures(), "a signature is valid only if OpenSSL says so");
    if (!valid) {
        return;
    }
    if (verdict.getValidationErrorString().empty()) {
        require(reference.trustsAllSigners(), "signers are trusted only if OpenSSL trusts them");
        return;
    }
    require(
        verdict.getValidationErrorString() == "certificate verify error",
        "a valid verdict has a documented text");
    auto const signers = signedData.getSignerCerts().getCertificates();
    require(
        !signers.empty() && reference.trustsFirstSigner(signers.front()),
        "the first signer is trusted only if OpenSSL trusts it");
}

void checkVerification(
    PKCS7Certificate const& signedData, Question const& question, Reference const& reference)
{
    std::optional<Verdict> verdict;
    bool const judged = succeeds([&] {
        verdict = signedData.verifySignature(
            intermediatesFor(question), trustStoreFor(question), question.detachedContent);
    });
    clearErrorQueue();
    if (judged) {
        checkVerdict(*verdict, signedData, reference);
    }
    clearErrorQueue();
}

void check(ByteArray const& data, Question const& question)
{
    auto const signedData = load(data);
    if (!signedData) {
        return;
    }
    if (question.isThorough) {
        checkOtherSources(*signedData, data);
        checkRoundTrip(*signedData);
        checkCopy(*signedData);
    }
    checkQueries(*signedData);
    Reference const reference(data, question);
    checkContent(*signedData, reference);
    checkVerification(*signedData, question, reference);
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace foundation::fuzz;
    constexpr std::size_t longestContent = 255;
    if (auto const input = splitInput(data, size, longestContent)) {
        Question question;
        question.trustsUnrelatedRoot = (input->options & pkcs7_option::trustsUnrelatedRoot) != 0;
        question.knowsCa = (input->options & pkcs7_option::knowsCa) != 0;
        question.detachedContent = input->text;
        question.isThorough = (input->options & pkcs7_option::thorough) != 0;
        check(input->container, question);
    }
    return 0;
}
