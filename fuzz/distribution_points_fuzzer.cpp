#include "certificate/X509CertificateImpl.hpp"
#include "revocation/HttpUrl.hpp"

#include "support/DerElements.hpp"
#include "support/FixedPki.hpp"
#include "support/Properties.hpp"
#include "support/Text.hpp"
#include "support/pki/Der.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <regex>
#include <string>
#include <vector>

// Reads the CRL distribution points of a certificate, and the URLs in them. The last byte of the input says
// whether the other bytes are the content of the extension or a URL.

namespace foundation::fuzz {

namespace {

using test::Bytes;
using test::derElement;
using test::joined;
using test::octetStringTag;
using test::sequenceTag;

using URLs = std::vector<std::string>;
using Options = certificates::CertificateValidationOptions;

constexpr int extensionsTag = 0xA3;

/// The parts of a certificate before and after its extensions. The signature is not verified.
struct Frame
{
    Bytes fields;
    Bytes signature;
};

Frame makeFrame()
{
    auto const certificate = test::makeRoot("frame", [](test::CertificateSpec& spec) {
        fixed("frame", "1")(spec);
        spec.extensions.clear();
    });
    auto const der = certificate.der();
    auto const whole = firstElementIn(der.data(), der.size()).value();
    Bytes const parts(der.end() - static_cast<std::ptrdiff_t>(whole.contentSize), der.end());
    auto const signedPart = firstElementIn(parts.data(), parts.size()).value();
    auto const fields = parts.begin() + static_cast<std::ptrdiff_t>(signedPart.headerSize);
    auto const rest = parts.begin() + static_cast<std::ptrdiff_t>(signedPart.size());
    return {Bytes(fields, rest), Bytes(rest, parts.end())};
}

Bytes certificateWith(Bytes const& extensionContent)
{
    static Frame const frame = makeFrame();
    static Bytes const crlDistributionPoints = {0x06, 0x03, 0x55, 0x1D, 0x1F};
    auto const extension = derElement(
        sequenceTag, joined({crlDistributionPoints, derElement(octetStringTag, extensionContent)}));
    auto const extensions = derElement(extensionsTag, derElement(sequenceTag, extension));
    auto const signedPart = derElement(sequenceTag, joined({frame.fields, extensions}));
    return derElement(sequenceTag, joined({signedPart, frame.signature}));
}

std::string textOf(void const* string)
{
    auto const* const typed = static_cast<ASN1_STRING const*>(string);
    auto const* const data = ASN1_STRING_get0_data(typed);
    return data == nullptr ? std::string() : std::string(data, data + ASN1_STRING_length(typed));
}

void appendTexts(DIST_POINT_NAME const& name, URLs& texts)
{
    if (name.type == 0) {
        for (int index = 0; index < sk_GENERAL_NAME_num(name.name.fullname); ++index) {
            int type = 0;
            auto const* const value =
                GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(name.name.fullname, index), &type);
            if (type == GEN_URI) {
                texts.push_back(textOf(value));
            }
        }
        return;
    }
    for (int index = 0; index < sk_X509_NAME_ENTRY_num(name.name.relativename); ++index) {
        texts.push_back(
            textOf(X509_NAME_ENTRY_get_data(sk_X509_NAME_ENTRY_value(name.name.relativename, index))));
    }
}

/// Returns the URLs and names that bare OpenSSL reads from the extension.
URLs textsIn(Bytes const& extensionContent)
{
    URLs texts;
    auto const* position = extensionContent.data();
    std::shared_ptr<CRL_DIST_POINTS> const points(
        d2i_CRL_DIST_POINTS(nullptr, &position, static_cast<long>(extensionContent.size())),
        CRL_DIST_POINTS_free);
    for (int index = 0; index < sk_DIST_POINT_num(points.get()); ++index) {
        if (auto const* const name = sk_DIST_POINT_value(points.get(), index)->distpoint) {
            appendTexts(*name, texts);
        }
    }
    clearErrorQueue();
    return texts;
}

/// Checks that the library's parser accepts the same URLs as the regular expression. The expression uses
/// stack for each character, so long URLs are not compared.
void checkParser(std::string const& url)
{
    auto const parsed = certificates::parseHttpUrl(url);
    if (parsed) {
        require("http://" + parsed->host + parsed->path == url, "host and path make up the URL");
    }
    constexpr std::size_t longestToCompare = 200;
    if (url.size() >= longestToCompare) {
        return;
    }
    static std::regex const expression("http://(.*?)/(.*)");
    std::smatch match;
    bool const matches = std::regex_match(url, match, expression);
    require(parsed.has_value() == matches, "the parser accepts exactly what the expression matches");
    if (parsed) {
        require(parsed->host == match[1].str(), "the host is that of the expression");
        require(parsed->path == "/" + match[2].str(), "the path is that of the expression");
    }
}

/// Checks that the first usable URL is chosen.
void checkChoice(URLs const& urls)
{
    auto const chosen = certificates::firstHttpUrl(urls);
    for (auto const& url : urls) {
        checkParser(url);
        if (auto const parsed = certificates::parseHttpUrl(url)) {
            require(
                chosen && chosen->host == parsed->host && chosen->path == parsed->path,
                "the chosen URL is the first usable one");
            return;
        }
    }
    require(!chosen, "no URL is chosen if no URL is usable");
}

/// Returns the failure to fetch a required CRL. It fails before it uses the network.
std::string failureOfDownload(certificates::X509Certificate const& certificate)
{
    certificates::X509CertificateImpl::CRLs crls;
    auto store = certificates::makeX509_STORE(nullptr);
    auto issuerKey = certificates::makeEVP_PKEY(nullptr);
    try {
        certificates::X509CertificateImpl().downloadCRL(
            certificate, store, crls, Options::DownloadCRL::Required, issuerKey);
    } catch (certificates::X509CertificateException const& failure) {
        return failure.what();
    } catch (...) {
        failOnException("a download fails with the documented type");
    }
    return {};
}

void checkRefusalWithoutUrl(certificates::X509Certificate const& certificate, bool namesPoints)
{
    require(
        failureOfDownload(certificate) ==
            (namesPoints
                 ? "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n"
                 : "CRL Download Error: Certificate Revocation List Distribution Points not available\n"),
        "a certificate without a usable URL is refused with the documented text");
}

/// Whether the library reads the DER as PEM, because it holds the PEM marker.
bool looksLikePem(Bytes const& extensionContent)
{
    return test::contains(test::asText(extensionContent), "-----BEGIN CERTIFICATE-----");
}

void checkExtension(Bytes const& extensionContent)
{
    if (looksLikePem(extensionContent)) {
        return;
    }
    auto const certificate = mustSucceed("a certificate with any distribution points loads", [&] {
        return certificates::X509Certificate(certificateWith(extensionContent));
    });
    auto const urls = mustSucceed("the distribution points can be queried", [&] {
        return certificates::X509CertificateImpl().getCRLDistributionPoints(certificate);
    });
    clearErrorQueue();
    require(urls == textsIn(extensionContent), "the distribution points are those that OpenSSL reads");
    checkChoice(urls);
    if (!certificates::firstHttpUrl(urls)) {
        checkRefusalWithoutUrl(certificate, !urls.empty());
        clearErrorQueue();
    }
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    foundation::test::Bytes const content(data, data + size - 1);
    if ((data[size - 1] & 1U) == 0) {
        foundation::fuzz::checkExtension(content);
    } else {
        foundation::fuzz::checkParser(foundation::test::asText(content));
    }
    return 0;
}
