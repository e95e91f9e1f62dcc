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

// Where a certificate says its CRL is to be had. The last byte of the input tells whether the others are the
// content of the extension or a URL.

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

/// A certificate in two parts, between which its extensions are missing. Nobody verifies its signature.
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

/// What bare OpenSSL reads in the extension.
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

/// The library matches by hand, and is to match as the expression does. That one spends stack on each
/// character, so long URLs have no witness.
void matchesAsTheExpression(std::string const& url)
{
    auto const parsed = certificates::parseHttpUrl(url);
    if (parsed) {
        require("http://" + parsed->host + parsed->path == url, "The halves of a URL do not make up the URL");
    }
    constexpr std::size_t longestForTheWitness = 200;
    if (url.size() >= longestForTheWitness) {
        return;
    }
    static std::regex const expression("http://(.*?)/(.*)");
    std::smatch match;
    bool const matches = std::regex_match(url, match, expression);
    require(parsed.has_value() == matches, "A URL is taken that does not match, or the other way round");
    if (parsed) {
        require(parsed->host == match[1].str(), "The host is another than the expression's");
        require(parsed->path == "/" + match[2].str(), "The path is another than the expression's");
    }
}

/// The first URL that can be used is chosen, whatever stands behind it.
void choosesTheFirst(URLs const& urls)
{
    auto const chosen = certificates::firstHttpUrl(urls);
    for (auto const& url : urls) {
        matchesAsTheExpression(url);
        if (auto const parsed = certificates::parseHttpUrl(url)) {
            require(
                chosen && chosen->host == parsed->host && chosen->path == parsed->path,
                "The URL that was chosen is not the first one that can be used");
            return;
        }
    }
    require(!chosen, "A URL was chosen where none can be used");
}

/// Says why a CRL that is required cannot be fetched; nothing goes over the network before that.
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
        failOnException("A download failed with another type than the documented one");
    }
    return {};
}

void refusesCertificateWithoutUrl(certificates::X509Certificate const& certificate, bool namesPoints)
{
    require(
        failureOfDownload(certificate) ==
            (namesPoints
                 ? "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n"
                 : "CRL Download Error: Certificate Revocation List Distribution Points not available\n"),
        "A certificate without a URL is refused for another reason");
}

/// DER that holds the beginning of PEM is taken for PEM.
bool looksLikePem(Bytes const& extensionContent)
{
    return test::contains(test::asText(extensionContent), "-----BEGIN CERTIFICATE-----");
}

void choosesUrlOf(Bytes const& extensionContent)
{
    if (looksLikePem(extensionContent)) {
        return;
    }
    auto const certificate = mustSucceed("A certificate with any such extension is to load", [&] {
        return certificates::X509Certificate(certificateWith(extensionContent));
    });
    auto const urls = mustSucceed("The distribution points are to be readable", [&] {
        return certificates::X509CertificateImpl().getCRLDistributionPoints(certificate);
    });
    clearErrorQueue();
    require(urls == textsIn(extensionContent), "The distribution points are others than OpenSSL's");
    choosesTheFirst(urls);
    if (!certificates::firstHttpUrl(urls)) {
        refusesCertificateWithoutUrl(certificate, !urls.empty());
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
        foundation::fuzz::choosesUrlOf(content);
    } else {
        foundation::fuzz::matchesAsTheExpression(foundation::test::asText(content));
    }
    return 0;
}
