/// Validates the first certificate of the input with PathValidator. The other DER elements are intermediates
/// or CRLs. The trusted root is that of FixedPki.

#include "support/DerElements.hpp"
#include "support/FixedPki.hpp"
#include "support/Properties.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>
#include <foundation/toolkit/PathValidation.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace foundation::fuzz {

namespace {

using certificates::CertificateChainStatus;
using certificates::CertificateValidationOptions;
using certificates::TrustStore;
using certificates::X509CertificateChain;
using toolkit::Certificate;
using toolkit::PathOptions;
using toolkit::PathResult;
using toolkit::PathValidator;

struct Input
{
    std::vector<Certificate> certificates;
    std::vector<Bytes> others;
};

Input inputFrom(Bytes const& bytes)
{
    constexpr std::size_t mostElements = 12;
    Input input;
    for (auto const& element : elementsIn(bytes)) {
        if (input.certificates.size() + input.others.size() == mostElements) {
            break;
        }
        if (!succeeds([&] { input.certificates.push_back(Certificate::fromDER(element)); })) {
            input.others.push_back(element);
        }
    }
    return input;
}

Certificate const& root()
{
    static auto const certificate = Certificate::fromDER(fixedPki().root.der());
    return certificate;
}

PathValidator const& validator()
{
    static PathValidator const instance({root()});
    return instance;
}

/// No input may make these throw anything but the exceptions of the library.
void readAll(Certificate const& certificate)
{
    succeeds([&] { certificate.getSubject(); });
    succeeds([&] { certificate.getNotBefore(); });
    succeeds([&] { certificate.getKeyKind(); });
    succeeds([&] { certificate.getKeyUsages(); });
    succeeds([&] { certificate.getExtendedKeyUsages(); });
    succeeds([&] { certificate.getAlternativeNames(); });
    succeeds([&] { certificate.getIssuerURLs(); });
    succeeds([&] { certificate.getCRLURLs(); });
    succeeds([&] { certificate.matchesHost("leaf.example"); });
    succeeds([&] { certificate.matchesAddress("192.0.2.1"); });
    auto const again = mustSucceed(
        "a loaded certificate can be written", [&] { return Certificate::fromPEM(certificate.getAsPEM()); });
    require(again == certificate, "a certificate loaded from its text is equal");
}

void checkResult(PathResult const& result, Certificate const& leaf)
{
    require(!result.chain.empty() && result.chain.front() == leaf, "a chain begins with the leaf");
    require(result.isValid() == (result.errorCode == 0), "a result has an error unless it is valid");
    if (!result.isValid()) {
        return;
    }
    require(result.text.empty() && result.errorDepth == 0, "a valid result has no text and no depth");
    require(result.chain.back() == root(), "a valid chain ends at the trusted root");
    for (std::size_t index = 0; index + 1 < result.chain.size(); ++index) {
        require(
            result.chain[index].isIssuedBy(result.chain[index + 1]),
            "each member of a valid chain issued the one before it");
    }
}

/// Returns the library's verdict; nothing if it refuses a key.
std::optional<CertificateChainStatus> verdictOfLibrary(Input const& input)
{
    static TrustStore const store = [] {
        TrustStore trusted;
        trusted.addCertificate(root().toX509Certificate());
        return trusted;
    }();
    std::optional<CertificateChainStatus> verdict;
    succeeds([&] {
        X509CertificateChain chain;
        for (auto const& certificate : input.certificates) {
            chain.addCertificate(certificate.toX509Certificate());
        }
        verdict = input.certificates.front()
                      .toX509Certificate()
                      .validateCertificate(chain, CertificateValidationOptions(), store)
                      .getCertificateChainStatus();
    });
    return verdict;
}

/// Each further check can only refuse more.
void checkStricterOptions(PathResult const& plain, Input const& input, PathOptions options)
{
    auto const& leaf = input.certificates.front();
    options.host = "leaf.example";
    options.purpose = toolkit::Purpose::CodeSigning;
    options.crls = input.others;
    options.revocation = toolkit::Revocation::WholeChain;
    succeeds([&] {
        auto const strict = validator().validate(leaf, input.certificates, options);
        checkResult(strict, leaf);
        require(!strict.isValid() || plain.isValid(), "more checks do not make a chain valid");
        require(
            !strict.isValid() || leaf.matchesHost(*options.host), "a leaf that is valid for a host names it");
    });
}

void check(Bytes const& bytes)
{
    Input const input = inputFrom(bytes);
    if (input.certificates.empty()) {
        return;
    }
    for (auto const& certificate : input.certificates) {
        readAll(certificate);
    }
    auto const& leaf = input.certificates.front();
    PathOptions options;
    options.minimumSecurityLevel = 0;
    succeeds([&] {
        auto const result = validator().validate(leaf, input.certificates, options);
        checkResult(result, leaf);
        checkStricterOptions(result, input, options);
        auto const verdict = verdictOfLibrary(input);
        require(
            !result.isValid() || !verdict || *verdict == CertificateChainStatus::Valid,
            "what is valid to the toolkit is valid to the library");
    });
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    using namespace foundation::fuzz;
    clearErrorQueue();
    queueStaleError();
    check(Bytes(input, input + size));
    clearErrorQueue();
    return 0;
}
