#include "certificate/X509CertificateImpl.hpp"
#include "revocation/HttpClient.hpp"

#include "support/CrlEnvelope.hpp"
#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Properties.hpp"
#include "support/openssl/ReferenceVerifier.hpp"
#include "support/pki/TestCrl.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/x509_vfy.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Validates with a CRL from a server, from the body of the response to the verdict. Bare OpenSSL computes the
// expected result step by step. The input is the CRL of one level of the chain, followed by a byte of
// options. The CRL of the other level is valid and revokes nothing.

namespace foundation::fuzz {

namespace {

using test::Bytes;
using test::CrlHandle;
using test::own;

using Options = certificates::CertificateValidationOptions;
using Results = certificates::CertificateValidationResults;
using Status = certificates::CertificateChainStatus;

/// The responses of the server.
struct Server
{
    Bytes leafCrl;
    Bytes caCrl;
};

Server& server()
{
    static Server offered;
    return offered;
}

struct Question
{
    explicit Question(unsigned bits)
        : wholeChain((bits & crl_option::wholeChain) != 0),
          fuzzesTheCa(wholeChain && (bits & crl_option::fuzzesTheCa) != 0),
          signsAnew((bits & crl_option::signsAnew) != 0),
          required((bits & crl_option::bestEffort) == 0),
          allowsRevoked((bits & crl_option::allowsRevoked) != 0),
          validatesAlways((bits & crl_option::validatesAlways) != 0)
    {}

    Options options() const
    {
        return Options(
            Options::AllowSelfSignedCertificate::No, Options::AllowExpiredCertificate::No,
            allowsRevoked ? Options::AllowRevokedCertificate::Yes : Options::AllowRevokedCertificate::No,
            wholeChain ? Options::CheckCRL::WholeChain : Options::CheckCRL::LeafOnly,
            required ? Options::DownloadCRL::Required : Options::DownloadCRL::BestEffort);
    }

    bool wholeChain;
    bool fuzzesTheCa;
    bool signsAnew;
    bool required;
    bool allowsRevoked;
    bool validatesAlways;
};

Bytes goodCrlOf(test::CertificateAndKey const& issuer)
{
    return test::toDer(test::makeCrl(issuer, {}, [](test::CrlSpec& spec) {
        spec.thisUpdate = startOfTime();
        spec.nextUpdate = endOfTime();
    }));
}

/// A level of the chain: a certificate and the CRL that covers it.
struct Level
{
    test::CertificateAndKey const* subject;
    test::CertificateAndKey const* issuer;
    Bytes const* answer;
    CrlHandle crl = nullptr;
};

std::vector<Level> levelsOf(Question const& question)
{
    auto const& pki = fixedPki();
    std::vector<Level> levels{{&pki.leaf, &pki.ca, &server().leafCrl}};
    if (question.wholeChain) {
        levels.push_back({&pki.ca, &pki.root, &server().caCrl});
    }
    return levels;
}

CrlHandle parse(Bytes const& answer)
{
    if (answer.empty()) {
        return nullptr;
    }
    return CrlHandle(d2i_X509_CRL_bio(test::readerOf(answer).get(), nullptr), X509_CRL_free);
}

constexpr char const noTimeText[] = "Invalid time format used in the certificate.";

/// Returns the reason to refuse the level's response, or "" for a response to use.
std::string faultOf(Level const& level)
{
    std::string const verification = "CRL Verification Error: ";
    if (level.answer->empty()) {
        return "CRL Download Error: Unable to get Certificate Revocation List HTTP data. "
               "CRL Download Error: CRL HTTP data is empty\n\n";
    }
    if (level.crl == nullptr) {
        return "CRL Download Error: Invalid Certificate Revocation List\n";
    }
    if (X509_CRL_verify(level.crl.get(), level.issuer->key.get()) != 1) {
        return verification + "Failed to verify the Certificate Revocation List signature\n";
    }
    auto const* const nextUpdate = X509_CRL_get0_nextUpdate(level.crl.get());
    if (nextUpdate == nullptr) {
        return verification +
               "Failed to retrieve the next update date from the Certificate Revocation List\n";
    }
    auto const order = ASN1_TIME_cmp_time_t(nextUpdate, std::time(nullptr));
    if (order == -2) {
        return noTimeText;
    }
    return order == 1 ? "" : verification + "Certificate Revocation List has expired\n";
}

/// Whether the result may change within seconds, so that two computations may differ.
bool dependsOnTheSecond(CrlHandle const& crl)
{
    constexpr std::time_t margin = 10;
    auto const now = std::time(nullptr);
    auto const isNear = [&](ASN1_TIME const* time) {
        return time != nullptr && ASN1_TIME_cmp_time_t(time, now - margin) == 1 &&
               ASN1_TIME_cmp_time_t(time, now + margin) == -1;
    };
    return crl != nullptr &&
           (isNear(X509_CRL_get0_nextUpdate(crl.get())) || isNear(X509_CRL_get0_lastUpdate(crl.get())));
}

/// Returns OpenSSL's verdict with the CRLs of the levels in the store. The flags say whether they are
/// checked.
int verdictOf(std::vector<Level> const& levels, unsigned long crlFlags)
{
    auto const& pki = fixedPki();
    test::ReferenceVerifier verifier;
    verifier.leaf = pki.leaf.certificate;
    verifier.untrusted = {pki.leaf.certificate, pki.ca.certificate};
    verifier.trusted = {pki.root.certificate};
    for (auto const& level : levels) {
        verifier.crls.push_back(level.crl);
    }
    verifier.flags |= crlFlags;
    auto const outcome = verifier.verify();
    return outcome.result == 1 ? X509_V_OK : outcome.code;
}

struct Expectation
{
    /// The text of the expected exception, or "".
    std::string failure;
    int verdict = X509_V_OK;
};

/// With a fault, a required CRL fails, and a best-effort CRL is not checked. An unreadable date always fails.
Expectation expectationFor(Question const& question, std::vector<Level> const& levels)
{
    for (auto const& level : levels) {
        auto const fault = faultOf(level);
        if (!fault.empty()) {
            static int const verdictWithoutCrls = verdictOf({}, 0);
            return {question.required || fault == noTimeText ? fault : "", verdictWithoutCrls};
        }
    }
    unsigned long const flags = X509_V_FLAG_CRL_CHECK | (question.wholeChain ? X509_V_FLAG_CRL_CHECK_ALL : 0);
    return {"", verdictOf(levels, question.allowsRevoked ? 0 : flags)};
}

/// Checks the download for one level, with a required CRL.
void checkDownload(Level const& level, std::string const& fault)
{
    using namespace certificates;
    static X509Certificate const leaf(fixedPki().leaf.der());
    static X509Certificate const ca(fixedPki().ca.der());
    auto const& subject = level.subject == &fixedPki().leaf ? leaf : ca;
    auto store = makeX509_STORE(X509_STORE_new());
    auto issuerKey = makeEVP_PKEY(X509_get_pubkey(level.issuer->certificate.get()));
    X509CertificateImpl::CRLs crls;
    std::string failure;
    bool added = false;
    try {
        added = X509CertificateImpl().downloadCRL(
            subject, store, crls, Options::DownloadCRL::Required, issuerKey);
    } catch (X509CertificateException const& exception) {
        failure = exception.what();
    } catch (...) {
        failOnException("a download fails with the documented type");
    }
    clearErrorQueue();
    require(failure == fault, "a CRL is refused for the expected reason or accepted");
    require(added == fault.empty() && crls.size() == (added ? 1U : 0U), "exactly an accepted CRL is kept");
}

struct Outcome
{
    std::optional<Results> results;
    std::string failure;
};

Outcome validate(Options const& options)
{
    using namespace certificates;
    auto const& pki = fixedPki();
    static X509Certificate const leaf(pki.leaf.der());
    static X509CertificateChain const chain(pki.leaf.pem() + pki.ca.pem() + pki.root.pem());
    static TrustStore const trustStore = [&] {
        TrustStore store;
        store.addCertificate(X509Certificate(pki.root.der()));
        return store;
    }();
    Outcome outcome;
    try {
        outcome.results = leaf.validateCertificate(chain, options, trustStore);
    } catch (X509CertificateException const& failure) {
        outcome.failure = failure.what();
    } catch (...) {
        failOnException("a validation fails with the documented type");
    }
    return outcome;
}

std::string asText(ASN1_TIME const* time)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    if (ASN1_TIME_print(bio.get(), time) != 1) {
        return {};
    }
    auto const text = test::contentOf(bio);
    return {text.begin(), text.end()};
}

/// Whether a CRL with a valid signature lists the certificate of its level with the date.
bool names(std::vector<Level> const& levels, std::string const& date)
{
    for (auto const& level : levels) {
        auto* const entries = X509_CRL_get_REVOKED(level.crl.get());
        auto const* const serial = X509_get0_serialNumber(level.subject->certificate.get());
        for (int index = 0; index < sk_X509_REVOKED_num(entries); ++index) {
            auto const* const entry = sk_X509_REVOKED_value(entries, index);
            if (ASN1_INTEGER_cmp(X509_REVOKED_get0_serialNumber(entry), serial) == 0 &&
                asText(X509_REVOKED_get0_revocationDate(entry)) == date) {
                return X509_CRL_verify(level.crl.get(), level.issuer->key.get()) == 1;
            }
        }
    }
    return false;
}

void checkRevocation(Outcome const& outcome, std::vector<Level> const& levels)
{
    using RevocationStatus = certificates::CertificateRevocationResults::RevocationStatus;
    if (!outcome.results) {
        require(
            outcome.failure == "Error: printing the ASN1 time failed." && names(levels, ""),
            "only an unreadable date prevents a description of the revocation");
        return;
    }
    auto const revocation = outcome.results->getCertificateRevocationResults();
    require(
        outcome.results->getCertificateChainStatus() == Status::Revoked,
        "the verdict for a revoked certificate is Revoked");
    require(revocation.getRevocationStatus() == RevocationStatus::Revoked, "the revocation is described");
    require(
        names(levels, revocation.getRevocationDateString()),
        "a CRL with a valid signature lists the revoked certificate");
}

/// Checks that verdict and text agree with OpenSSL's code.
void checkVerdict(Results const& results, int verdict)
{
    bool const isValid = verdict == X509_V_OK;
    require(
        (results.getCertificateChainStatus() == Status::Valid) == isValid, "the verdict agrees with OpenSSL");
    require(
        results.getCertificateChainStatus() != Status::Revoked,
        "the certificate is revoked only if OpenSSL says so");
    require(results.getRootCertificate().has_value() == isValid, "exactly a valid chain has a root");
    auto const code = "Error code " + std::to_string(verdict) + " ";
    auto const text = results.getValidationErrorString();
    require(
        isValid ? text.empty() : text.find(code) != std::string::npos, "the text names OpenSSL's error code");
}

void check(Question const& question, Bytes const& crl)
{
    static Bytes const goodLeafCrl = goodCrlOf(fixedPki().ca);
    static Bytes const goodCaCrl = goodCrlOf(fixedPki().root);
    auto const& issuer = question.fuzzesTheCa ? fixedPki().root : fixedPki().ca;
    auto const& answer = question.signsAnew ? crlInNewEnvelope(crl, issuer.key) : crl;
    server() = question.fuzzesTheCa ? Server{goodLeafCrl, answer} : Server{answer, goodCaCrl};

    auto levels = levelsOf(question);
    for (auto& level : levels) {
        level.crl = parse(*level.answer);
        if (dependsOnTheSecond(level.crl)) {
            return;
        }
    }
    auto const& fuzzed = question.fuzzesTheCa ? levels.back() : levels.front();
    auto const fault = faultOf(fuzzed);
    checkDownload(fuzzed, fault);
    if (!fault.empty() && !question.validatesAlways) {
        return;
    }
    auto const expectation = expectationFor(question, levels);
    clearErrorQueue();
    auto const outcome = validate(question.options());
    if (!expectation.failure.empty()) {
        require(outcome.failure == expectation.failure, "a required CRL is refused for the expected reason");
    } else if (expectation.verdict == X509_V_ERR_CERT_REVOKED) {
        checkRevocation(outcome, levels);
    } else {
        require(outcome.results.has_value(), "the validation has a verdict");
        checkVerdict(*outcome.results, expectation.verdict);
    }
    clearErrorQueue();
}

/// The library writes the CRL to a temporary file. Puts that file in memory if the system has a folder for
/// it.
bool keepTemporaryFilesInMemory()
{
    constexpr char const place[] = "/dev/shm";
    return !std::filesystem::is_directory(place) || setenv("TMPDIR", place, 0) == 0;
}

} // namespace

} // namespace foundation::fuzz

/// Replaces the library's function, which would open a connection. The linker prefers the program's
/// definition.
std::string foundation::certificates::fetchOverHttp(std::string const& /*host*/, std::string const& path)
{
    auto const& answer = path == fuzz::leafCrlPath ? fuzz::server().leafCrl : fuzz::server().caCrl;
    return {answer.begin(), answer.end()};
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static bool const inMemory = foundation::fuzz::keepTemporaryFilesInMemory();
    foundation::fuzz::require(inMemory, "the folder for temporary files can be chosen");
    if (size == 0) {
        return 0;
    }
    foundation::fuzz::check(
        foundation::fuzz::Question(data[size - 1]), foundation::test::Bytes(data, data + size - 1));
    return 0;
}
