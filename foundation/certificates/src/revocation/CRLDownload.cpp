#include "certificate/Extensions.hpp"
#include "certificate/X509CertificateImpl.hpp"
#include "certificate/X509Duplicates.hpp"
#include "revocation/HttpClient.hpp"

#include <exception>
#include <string>
#include <vector>

namespace foundation::certificates {

using DownloadCRL = CertificateValidationOptions::DownloadCRL;

namespace {

/// Returns the string's bytes as they are encoded.
std::string rawBytesOf(ASN1_STRING const& string)
{
    auto const* data = ASN1_STRING_get0_data(&string);
    int const length = ASN1_STRING_length(&string);
    return data == nullptr || length <= 0 ? std::string() : std::string(data, data + length);
}

void appendURIs(GENERAL_NAMES const* names, std::vector<std::string>& uris)
{
    for (int index = 0; index < sk_GENERAL_NAME_num(names); ++index) {
        GENERAL_NAME const* name = sk_GENERAL_NAME_value(names, index);
        if (name != nullptr && name->type == GEN_URI && name->d.uniformResourceIdentifier != nullptr) {
            uris.push_back(rawBytesOf(*name->d.uniformResourceIdentifier));
        }
    }
}

void appendAttributeValues(STACK_OF(X509_NAME_ENTRY) const* entries, std::vector<std::string>& uris)
{
    for (int index = 0; index < sk_X509_NAME_ENTRY_num(entries); ++index) {
        X509_NAME_ENTRY const* entry = sk_X509_NAME_ENTRY_value(entries, index);
        ASN1_STRING const* value = entry == nullptr ? nullptr : X509_NAME_ENTRY_get_data(entry);
        if (value != nullptr) {
            uris.push_back(rawBytesOf(*value));
        }
    }
}

/// A distribution point may have no name, but only reasons or the CRL's issuer.
void appendNamesOf(DIST_POINT const* point, std::vector<std::string>& uris)
{
    constexpr int fullName = 0;
    constexpr int relativeName = 1;
    DIST_POINT_NAME const* name = point == nullptr ? nullptr : point->distpoint;
    if (name == nullptr) {
        return;
    }
    if (name->type == fullName) {
        appendURIs(name->name.fullname, uris);
    } else if (name->type == relativeName) {
        // These are rarely URLs. firstHttpUrl skips those that are not.
        appendAttributeValues(name->name.relativename, uris);
    }
}

} // namespace

std::vector<std::string>
X509CertificateImpl::getCRLDistributionPoints(X509Certificate const& certificate) const
{
    auto const readable = readableX509Of(certificate);
    auto const points = makeDIST_POINTStack(
        static_cast<STACK_OF(DIST_POINT)*>(extensionOf(readable.get(), NID_crl_distribution_points)));
    std::vector<std::string> uris;
    for (int index = 0; index < sk_DIST_POINT_num(points.get()); ++index) {
        appendNamesOf(sk_DIST_POINT_value(points.get(), index), uris);
    }
    return uris;
}

std::string X509CertificateImpl::fetchHttpResponse(
    std::string const& host, std::string const& path, DownloadCRL /*mode*/) const
{
    try {
        return fetchOverHttp(host, path);
    } catch (std::exception const&) {
        // Every failure becomes an empty body, in every mode. The caller has one text for all of them.
        return {};
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): tests replace it with a function of this signature
void X509CertificateImpl::throwIfRequired(DownloadCRL mode, std::string message) const
{
    if (mode == DownloadCRL::Required) {
        throw X509CertificateException(message);
    }
}

} // namespace foundation::certificates
