#include "Inspect.hpp"

#include "CommonOptions.hpp"
#include "Json.hpp"
#include "Terminal.hpp"
#include "Text.hpp"
#include "Times.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/toolkit/Explanation.hpp>

#include <openssl/asn1.h>
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

    /// Whether OpenSSL can decode the key, and it is certainly no RSA key without an exponent.
    static bool hasOrdinaryKey(Certificate const& certificate)
    {
        auto const* const key = X509_get0_pubkey(certificate.getX509());
        if (key == nullptr || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) {
            return key != nullptr;
        }
        // An encoded RSA key ends with its exponent, unless other bytes follow. EVP_PKEY_get_bn_param needs
        // more time than all extensions together.
        auto const* const bits = X509_get0_pubkey_bitstr(certificate.getX509());
        auto const* const begin = ASN1_STRING_get0_data(bits);
        int const length = ASN1_STRING_length(bits);
        auto const* content = begin;
        long size = 0;
        int tag = 0;
        int tagClass = 0;
        ASN1_get_object(&content, &size, &tag, &tagClass, length);
        return length > 0 && content - begin + size == length && begin[length - 1] != 0;
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

JsonObject recordOf(ReadCertificate const& found, std::string const& refusal)
{
    auto const& certificate = *found.certificate;
    auto record = newRecord("inspect");
    record.addText("source", found.source);
    record.addNumber("index", found.index);
    record.addText("subject", certificate.getSubject());
    record.addText("issuer", certificate.getIssuer());
    record.addText("serialNumber", certificate.getSerialNumber());
    record.addText("notBefore", notBeforeOf(certificate));
    record.addText("notAfter", notAfterOf(certificate));
    record.addText("keyKind", certificate.getKeyKind());
    record.addNumber("keyBits", certificate.getKeyBits());
    record.addText("signatureAlgorithm", certificate.getSignatureAlgorithm());
    record.addBoolean("isCA", certificate.isCA());
    record.addTexts("keyUsages", certificate.getKeyUsages());
    record.addTexts("extendedKeyUsages", certificate.getExtendedKeyUsages());
    record.addTexts("alternativeNames", namesOf(certificate));
    record.addText("subjectKeyIdentifier", certificate.getSubjectKeyIdentifier());
    record.addText("authorityKeyIdentifier", certificate.getAuthorityKeyIdentifier());
    record.addTexts("issuerURLs", certificate.getIssuerURLs());
    record.addTexts("crlURLs", certificate.getCRLURLs());
    record.addText("sha256", certificate.getSHA256Fingerprint());
    if (!refusal.empty()) {
        record.addText("refused", refusal);
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
