#include "Inspect.hpp"

#include "CommonOptions.hpp"
#include "Json.hpp"
#include "Terminal.hpp"
#include "Text.hpp"
#include "Times.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Explanation.hpp>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace foundation::tools {

using toolkit::AlternativeName;
using toolkit::Certificate;
using toolkit::ReadCertificate;

namespace {

/// Why foundation::certificates refuses certificates. That depends on the kind and the size of the key, so a
/// certificate is loaded again only if its kind and size are new.
class Refusals
{
public:
    /// Returns the reason; empty if the library accepts the certificate.
    std::string reasonFor(Certificate const& certificate)
    {
        if (!hasOrdinaryKey(certificate)) {
            return loadAgain(certificate);
        }
        std::lock_guard<std::mutex> const lock(mutex);
        auto const [known, isNew] = reasons.try_emplace({certificate.getKeyKind(), certificate.getKeyBits()});
        if (isNew) {
            known->second = loadAgain(certificate);
        }
        return known->second;
    }

private:
    static std::string loadAgain(Certificate const& certificate)
    {
        try {
            static_cast<void>(certificate.toX509Certificate());
            return {};
        } catch (certificates::CertificateException const& refusal) {
            return refusal.what();
        }
    }

    /// Whether OpenSSL can decode the key, and it is no RSA key without an exponent.
    static bool hasOrdinaryKey(Certificate const& certificate)
    {
        auto* const key = X509_get0_pubkey(certificate.getX509());
        if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) {
            return key != nullptr;
        }
        BIGNUM* exponent = nullptr;
        bool const isRead = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &exponent) == 1;
        std::unique_ptr<BIGNUM, decltype(&BN_free)> const owned(exponent, &BN_free);
        return isRead && BN_is_zero(exponent) == 0;
    }

    std::mutex mutex;
    std::map<std::pair<std::string, int>, std::string> reasons;
};

std::vector<std::string> namesOf(Certificate const& certificate)
{
    std::vector<std::string> names;
    for (auto const& name : certificate.getAlternativeNames()) {
        auto const kind =
            name.kind == AlternativeName::Kind::Other ? "" : std::string(toString(name.kind)) + ":";
        names.push_back(kind + name.value);
    }
    return names;
}

/// Adds a line of human output; nothing for an empty value.
void addLine(std::string& output, std::string const& title, std::string const& value)
{
    if (!value.empty()) {
        output += "  " + title + ": " + std::string(16 - title.size(), ' ') + printable(value) + "\n";
    }
}

void addLine(std::string& output, std::string const& title, std::vector<std::string> const& values)
{
    std::string joined;
    for (auto const& value : values) {
        joined += (joined.empty() ? "" : ", ") + value;
    }
    addLine(output, title, joined);
}

std::string described(ReadCertificate const& found, std::string const& refusal)
{
    auto const& certificate = *found.certificate;
    std::string output = inBold(printable(nameOf(found) + ": " + certificate.getSubject())) + "\n";
    addLine(output, "Issuer", certificate.getIssuer());
    addLine(output, "Serial number", certificate.getSerialNumber());
    addLine(output, "Valid", notBeforeOf(certificate) + " to " + notAfterOf(certificate));
    addLine(
        output, "Key", certificate.getKeyKind() + ", " + std::to_string(certificate.getKeyBits()) + " bits");
    addLine(output, "Signature", certificate.getSignatureAlgorithm());
    addLine(output, "CA", certificate.isCA() ? "yes" : "no");
    addLine(output, "Key usages", certificate.getKeyUsages());
    addLine(output, "Extended usages", certificate.getExtendedKeyUsages());
    addLine(output, "Names", namesOf(certificate));
    addLine(output, "Subject key", certificate.getSubjectKeyIdentifier());
    addLine(output, "Authority key", certificate.getAuthorityKeyIdentifier());
    addLine(output, "Issuer's URLs", certificate.getIssuerURLs());
    addLine(output, "CRL URLs", certificate.getCRLURLs());
    addLine(output, "SHA-256", certificate.getSHA256Fingerprint());
    if (!refusal.empty()) {
        output += inRed("  Refused: " + std::string(9, ' ') + printable(refusal)) + "\n";
    }
    return output;
}

Json recordOf(ReadCertificate const& found, std::string const& refusal)
{
    auto const& certificate = *found.certificate;
    auto record = newRecord("inspect");
    record["source"] = found.source;
    record["index"] = found.index;
    record["subject"] = certificate.getSubject();
    record["issuer"] = certificate.getIssuer();
    record["serialNumber"] = certificate.getSerialNumber();
    record["notBefore"] = notBeforeOf(certificate);
    record["notAfter"] = notAfterOf(certificate);
    record["keyKind"] = certificate.getKeyKind();
    record["keyBits"] = certificate.getKeyBits();
    record["signatureAlgorithm"] = certificate.getSignatureAlgorithm();
    record["isCA"] = certificate.isCA();
    record["keyUsages"] = certificate.getKeyUsages();
    record["extendedKeyUsages"] = certificate.getExtendedKeyUsages();
    record["alternativeNames"] = namesOf(certificate);
    record["subjectKeyIdentifier"] = certificate.getSubjectKeyIdentifier();
    record["authorityKeyIdentifier"] = certificate.getAuthorityKeyIdentifier();
    record["issuerURLs"] = certificate.getIssuerURLs();
    record["crlURLs"] = certificate.getCRLURLs();
    record["sha256"] = certificate.getSHA256Fingerprint();
    if (!refusal.empty()) {
        record["refused"] = refusal;
    }
    return record;
}

void inspectOne(bool json, Refusals& refusals, ReadCertificate const& found, Report& report)
{
    if (!found.certificate) {
        reportFailure(found, report);
        return;
    }
    auto const refusal = refusals.reasonFor(*found.certificate);
    report.output += json ? jsonLine(recordOf(found, refusal)) : described(found, refusal);
    if (!refusal.empty()) {
        report.status = worse(report.status, ExitStatus::Finding);
    }
}

ExitStatus inspect(InspectOptions const& options)
{
    Refusals refusals;
    return visitCertificates(options.inputs, [&](ReadCertificate const& found, Report& report) {
        inspectOne(options.json, refusals, found, report);
    });
}

} // namespace

void addInspect(CLI::App& program, Action& action)
{
    auto const options = std::make_shared<InspectOptions>();
    auto& command = *program.add_subcommand(
        "inspect",
        "Prints what the certificates of files and folders contain, and why the library refuses one");
    addInputOptions(command, options->inputs);
    addJsonOption(command, options->json);
    command.callback([options, &action] { action = [options] { return inspect(*options); }; });
}

} // namespace foundation::tools
