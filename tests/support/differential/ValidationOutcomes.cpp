#include "support/differential/ValidationOutcomes.hpp"

#include "support/operations/ExpectedVerdicts.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <exception>

namespace foundation::test {

using namespace certificates;
using namespace toolkit;

namespace {

/// Returns the encodings of a valid chain, which has no other text.
template <class Chain, class Encode>
std::string textOf(Chain const& chain, Encode const& encode)
{
    std::string text;
    for (auto const& member : chain) {
        text += hexEncode(encode(member)) + " ";
    }
    return text;
}

} // namespace

ReferenceVerdict verdictOf(
    X509Certificate const& leaf, X509CertificateChain const& chain,
    CertificateValidationOptions const& options, TrustStore const& store)
{
    ReferenceVerdict verdict;
    try {
        auto const results = leaf.validateCertificate(chain, options, store);
        verdict.status = static_cast<int>(results.getCertificateChainStatus());
        verdict.text = results.getValidationErrorString();
        if (auto const root = results.getRootCertificate()) {
            verdict.root = root->getAsBytes();
        }
    } catch (std::exception const& failure) {
        verdict.failure = failure.what();
    }
    return verdict;
}

ReferenceVerdict verdictOf(ReferenceOutcome const& outcome)
{
    ReferenceVerdict verdict;
    if (outcome.result < 0) {
        verdict.failure = "Internal error: OpenSSL could not verify the certificate.";
    } else if (outcome.result == 1) {
        verdict.text = textOf(outcome.chain, [](X509Handle const& member) { return toDer(member); });
    } else {
        verdict.status = static_cast<int>(expectedStatus(outcome.code));
        verdict.text = expectedText(outcome.code, outcome.depth, outcome.subject);
    }
    return verdict;
}

ReferenceVerdict verdictOf(
    PathValidator const& validator, Certificate const& leaf, std::vector<Certificate> const& intermediates,
    PathOptions const& options)
{
    ReferenceVerdict verdict;
    try {
        auto const result = validator.validate(leaf, intermediates, options);
        verdict.status = static_cast<int>(result.status);
        verdict.text = result.text;
        if (result.isValid()) {
            verdict.text = textOf(result.chain, [](Certificate const& member) { return member.getAsDER(); });
        }
    } catch (std::exception const& failure) {
        verdict.failure = failure.what();
    }
    return verdict;
}

} // namespace foundation::test
