#include "Diagnosis.hpp"

#include "Times.hpp"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace foundation::tools {

using namespace foundation::toolkit;

namespace {

constexpr int tlsSecurityLevel = 2;

/// Returns the server's certificate: the first one, unless that is a CA and a later one is not.
Certificate const& leafOf(std::vector<Certificate> const& given)
{
    auto const leaf =
        std::find_if(given.begin(), given.end(), [](Certificate const& one) { return !one.isCA(); });
    return leaf == given.end() ? given.front() : *leaf;
}

bool isMissingIssuer(int errorCode)
{
    return errorCode == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT ||
           errorCode == X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY ||
           errorCode == X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE;
}

bool isUntrustedRoot(int errorCode)
{
    return errorCode == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT ||
           errorCode == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN;
}

/// Changes what a validation tolerates, so that it passes over the fault that it has found. Returns false if
/// that is not possible.
bool tolerate(PathResult const& failure, PathValidator& roots, PathOptions& options)
{
    if (isMissingIssuer(failure.errorCode) || isUntrustedRoot(failure.errorCode)) {
        roots = PathValidator(std::vector<Certificate>{failure.chain.back()});
        return !std::exchange(options.allowTrustedIntermediate, true);
    }
    switch (failure.errorCode) {
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
    case X509_V_ERR_CA_MD_TOO_WEAK:
        return std::exchange(options.minimumSecurityLevel, 0) != 0;
    case X509_V_ERR_HOSTNAME_MISMATCH:
        return std::exchange(options.host, std::nullopt).has_value();
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        return std::exchange(options.address, std::nullopt).has_value();
    case X509_V_ERR_INVALID_PURPOSE:
        return std::exchange(options.purpose, Purpose::Any) != Purpose::Any;
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return !std::exchange(options.allowExpired, true);
    default:
        return false;
    }
}

/// Validates until no fault is left that can be tolerated. Reports each one. Returns the last result, which
/// has the longest chain.
PathResult findFaults(
    Certificate const& leaf, std::vector<Certificate> const& intermediates, PathValidator roots,
    PathOptions options, std::function<void(PathResult const&)> const& report)
{
    for (;;) {
        auto result = roots.validate(leaf, intermediates, options);
        if (!result.isValid()) {
            report(result);
        }
        if (result.isValid() || !tolerate(result, roots, options)) {
            return result;
        }
    }
}

/// Reports the faults of a member of the chain that do not depend on the others, such as its dates.
void findFaultsOfMember(
    std::vector<Certificate> const& chain, std::size_t depth, PathOptions options,
    std::function<void(PathResult const&)> const& report)
{
    options.allowTrustedIntermediate = true;
    options.purpose = Purpose::Any;
    std::vector<Certificate> const itself{chain[depth]};
    findFaults(chain[depth], {}, PathValidator(itself), options, [&](PathResult fault) {
        fault.errorDepth = static_cast<int>(depth);
        fault.chain = chain;
        if (depth > 0 && fault.errorCode == X509_V_ERR_EE_KEY_TOO_SMALL) {
            fault.errorCode = X509_V_ERR_CA_KEY_TOO_SMALL;
        }
        report(fault);
    });
}

/// Returns the names that the certificate is valid for.
std::string namesIn(Certificate const& certificate)
{
    std::string names;
    for (auto const& name : certificate.getAlternativeNames()) {
        if (name.kind == AlternativeName::Kind::DNS || name.kind == AlternativeName::Kind::IPAddress) {
            names += (names.empty() ? "" : ", ") + name.value;
        }
    }
    return names.empty() ? "no host name and no address" : names;
}

std::vector<std::string> detailsOfMissingIssuer(Certificate const& certificate)
{
    std::vector<std::string> details{"Issuer: " + certificate.getIssuer()};
    for (auto const& url : certificate.getIssuerURLs()) {
        details.push_back("The issuer offers its certificate at: " + url);
    }
    if (certificate.isCA()) {
        details.emplace_back("If this issuer is a root, it is not among the trusted roots.");
    }
    return details;
}

std::vector<std::string> detailsOf(PathResult const& fault)
{
    auto const& certificate = fault.chain[static_cast<std::size_t>(fault.errorDepth)];
    if (isMissingIssuer(fault.errorCode)) {
        return detailsOfMissingIssuer(certificate);
    }
    if (isUntrustedRoot(fault.errorCode)) {
        return {"SHA-256 fingerprint: " + certificate.getSHA256Fingerprint()};
    }
    switch (fault.errorCode) {
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
        return {
            "Key: " + certificate.getKeyKind() + ", " + std::to_string(certificate.getKeyBits()) + " bits"};
    case X509_V_ERR_CA_MD_TOO_WEAK:
        return {"Signature: " + certificate.getSignatureAlgorithm()};
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        return {"The certificate lists: " + namesIn(certificate)};
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return {"Expired: " + notAfterOf(certificate)};
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return {"Valid from: " + notBeforeOf(certificate)};
    default:
        return {};
    }
}

void addFinding(std::vector<Finding>& findings, PathResult const& fault)
{
    auto explanation = explain(fault);
    bool const isKnown = std::any_of(findings.begin(), findings.end(), [&](Finding const& finding) {
        return finding.explanation.errorCode == explanation.errorCode &&
               finding.explanation.depth == explanation.depth;
    });
    if (!isKnown) {
        findings.push_back({std::move(explanation), detailsOf(fault)});
    }
}

/// Whether each certificate of the chain that was given comes after the one that it issued.
bool isInOrder(std::vector<Certificate> const& given, std::vector<Certificate> const& chain)
{
    auto previous = given.begin();
    for (auto const& member : chain) {
        auto const position = std::find(given.begin(), given.end(), member);
        if (position == given.end()) {
            continue;
        }
        if (position < previous) {
            return false;
        }
        previous = position;
    }
    return true;
}

Finding wrongOrder(std::vector<Certificate> const& given, std::vector<Certificate> const& chain)
{
    Finding finding;
    finding.explanation.subject = chain.front().getSubject();
    finding.explanation.message = "The certificates are not in the order of the chain.";
    finding.explanation.advice =
        "Put the server's own certificate first, and each issuer after the certificate that it issued.";
    for (auto const& member : chain) {
        if (std::find(given.begin(), given.end(), member) != given.end()) {
            finding.details.push_back(
                std::to_string(finding.details.size() + 1) + ". " + member.getSubject());
        }
    }
    return finding;
}

} // namespace

Diagnosis diagnose(std::vector<Certificate> const& given, PathValidator const& roots, PathOptions options)
{
    options.purpose = Purpose::TLSServer;
    options.minimumSecurityLevel = tlsSecurityLevel;
    Diagnosis diagnosis;
    auto const add = [&](PathResult const& fault) { addFinding(diagnosis.findings, fault); };
    diagnosis.chain = findFaults(leafOf(given), given, roots, options, add).chain;
    for (std::size_t depth = 0; depth < diagnosis.chain.size(); ++depth) {
        findFaultsOfMember(diagnosis.chain, depth, options, add);
        options.host.reset(); // only the leaf has to match
        options.address.reset();
    }
    if (!isInOrder(given, diagnosis.chain)) {
        diagnosis.findings.push_back(wrongOrder(given, diagnosis.chain));
    }
    return diagnosis;
}

} // namespace foundation::tools
