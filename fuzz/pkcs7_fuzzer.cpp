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

// PKCS#7 signed data: loading, queries, the content, verification. The input is the signed data, content that
// lies apart from it, a byte with the length of that, and a byte that says whom to trust and how much to
// check.

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
    /// Most of the time goes into the decoding of keys, once for each certificate of each object.
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

/// What bare OpenSSL says, asked with the same arguments. It is asked only where the library has said yes: of
/// strange structures, which the library keeps from it, some releases of OpenSSL do not survive the question.
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

    bool findsSignaturesSound() const { return verifies(nullptr, PKCS7_NOVERIFY); }

    /// Trust in the first signer, for any purpose.
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

/// The three ways in have one outcome.
std::optional<PKCS7Certificate> load(ByteArray const& data)
{
    std::optional<PKCS7Certificate> loaded;
    if (!loads([&] { loaded.emplace(data); })) {
        std::string const text(data.begin(), data.end());
        std::istringstream stream(text);
        require(!loads([&] { PKCS7Certificate refused(text); }), "A string loads where its bytes do not");
        require(!loads([&] { PKCS7Certificate refused(stream); }), "A stream loads where its bytes do not");
    }
    return loaded;
}

void loadsFromAll(PKCS7Certificate const& signedData, ByteArray const& data)
{
    std::string const text(data.begin(), data.end());
    std::istringstream stream(text);
    mustSucceed("Data that load from bytes are to load from string and stream", [&] {
        require(PKCS7Certificate(text) == signedData, "Loaded from a string, it is another");
        require(PKCS7Certificate(stream) == signedData, "Loaded from a stream, it is another");
    });
}

/// What was loaded is written as PEM, which loads again in either encoding.
void roundTrips(PKCS7Certificate const& signedData)
{
    auto const text = signedData.getAsString();
    auto const bytes = signedData.getAsBytes();
    require(
        std::equal(
            text.begin(), text.end(), bytes.begin(), bytes.end(),
            [](char left, unsigned char right) { return static_cast<unsigned char>(left) == right; }),
        "Text and bytes differ");
    require(text.empty() == signedData.empty(), "Exactly an empty object is written as nothing");
    if (text.empty()) {
        return;
    }
    mustSucceed("What was written is to load", [&] {
        PKCS7Certificate const fromPem(text);
        require(fromPem == signedData, "Written as PEM and loaded, it is another");
        require(fromPem.getAsString() == text, "Written a second time, the text is another");
        // DER that holds the beginning of PEM is taken for PEM.
        auto const der = test::toDer(parse(bytes));
        require(looksLikePem(der) || PKCS7Certificate(der) == signedData, "Loaded from DER, it is another");
    });
}

void copiesAreEqual(PKCS7Certificate const& signedData)
{
    PKCS7Certificate copy(signedData);
    require(copy == signedData && !(copy != signedData), "A copy differs");
    require(copy.getAsString() == signedData.getAsString(), "A copy is written otherwise");
    copy.addCertificate(X509Certificate(fixedPki().leaf.der()));
    require(copy.getNumCertificates() == signedData.getNumCertificates() + 1, "A certificate was not added");
    require(copy != signedData, "A copy with one certificate more is equal");
    PKCS7Certificate const moved(std::move(copy));
    require(moved.getCertificates().back() == X509Certificate(fixedPki().leaf.der()), "It was not moved");
}

void answersQueries(PKCS7Certificate const& signedData)
{
    auto const certificates = signedData.getCertificates();
    require(certificates.size() == signedData.getNumCertificates(), "The certificates are miscounted");
    require(certificates.empty() == signedData.empty(), "Empty are those without certificates");
    for (auto const& signer : signedData.getSignerCerts().getCertificates()) {
        require(
            std::find(certificates.begin(), certificates.end(), signer) != certificates.end(),
            "A signer is not among the embedded certificates");
    }
    std::ostringstream report;
    succeeds([&] { report << signedData; });
    clearErrorQueue();
}

/// The content reads the same as often as it is read, and as bare OpenSSL reads it.
void readsContent(PKCS7Certificate const& signedData, Reference const& reference)
{
    auto const content = signedData.getSignedData();
    clearErrorQueue();
    require(signedData.getSignedData() == content, "Read again, the content is another");
    if (!content.empty()) {
        require(reference.signedContent() == content, "The content is not the one that OpenSSL finds signed");
    }
    clearErrorQueue();
}

void isJustified(Verdict const& verdict, PKCS7Certificate const& signedData, Reference const& reference)
{
    bool const sound = verdict.getSignatureVerificationStatus();
    bool const valid = verdict.getCertificateChainStatus() == Status::Valid;
    require(verdict.isValidSignature() == (sound && valid), "The question to ask has another answer");
    if (!sound) {
        require(
            verdict.getCertificateChainStatus() == Status::Failed, "No chain is judged without signature");
        return;
    }
    require(reference.findsSignaturesSound(), "A signature is called sound that OpenSSL does not call so");
    if (!valid) {
        return;
    }
    if (verdict.getValidationErrorString().empty()) {
        require(reference.trustsAllSigners(), "Signers are trusted whom OpenSSL does not trust");
        return;
    }
    require(
        verdict.getValidationErrorString() == "certificate verify error",
        "Validity comes with a strange text");
    auto const signers = signedData.getSignerCerts().getCertificates();
    require(
        !signers.empty() && reference.trustsFirstSigner(signers.front()),
        "A first signer is trusted whom OpenSSL does not trust");
}

void verifies(PKCS7Certificate const& signedData, Question const& question, Reference const& reference)
{
    std::optional<Verdict> verdict;
    bool const judged = succeeds([&] {
        verdict = signedData.verifySignature(
            intermediatesFor(question), trustStoreFor(question), question.detachedContent);
    });
    clearErrorQueue();
    if (judged) {
        isJustified(*verdict, signedData, reference);
    }
    clearErrorQueue();
}

void isSound(ByteArray const& data, Question const& question)
{
    auto const signedData = load(data);
    if (!signedData) {
        return;
    }
    if (question.isThorough) {
        loadsFromAll(*signedData, data);
        roundTrips(*signedData);
        copiesAreEqual(*signedData);
    }
    answersQueries(*signedData);
    Reference const reference(data, question);
    readsContent(*signedData, reference);
    verifies(*signedData, question, reference);
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
        isSound(input->container, question);
    }
    return 0;
}
