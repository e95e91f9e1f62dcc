#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include "libcrypto/OpenSSLCleanup.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <array>
#include <string_view>

namespace foundation::certificates {

namespace {

constexpr std::uint32_t minimumValidityDays = 1;
constexpr std::uint32_t maximumValidityDays = 397;

constexpr std::array<std::string_view, 3> defaultKeyUsages{"digitalSignature", "keyCertSign", "cRLSign"};
constexpr std::array<std::string_view, 3> defaultExtendedKeyUsages{"serverAuth", "clientAuth", "codeSigning"};

constexpr std::string_view defaultCommonName = "localhost";
/// The IPv6 loopback address has type IP only in its long form.
constexpr std::array<std::string_view, 5> loopbackNames{
    "DNS:127.0.0.1", "IP:127.0.0.1", "DNS:::1", "DNS:0:0:0:0:0:0:0:1", "IP:0:0:0:0:0:0:0:1"};

/// Returns the usage's name in OpenSSL's extension syntax. Returns an empty text, which OpenSSL refuses, for
/// an unknown value.
char const* opensslNameOf(X509Certificate::KeyUsage usage)
{
    using KeyUsage = X509Certificate::KeyUsage;
    switch (usage) {
    case KeyUsage::DigitalSignature:
        return "digitalSignature";
    case KeyUsage::NonRepudiation:
        return "nonRepudiation";
    case KeyUsage::KeyEncipherment:
        return "keyEncipherment";
    case KeyUsage::DataEncipherment:
        return "dataEncipherment";
    case KeyUsage::KeyAgreement:
        return "keyAgreement";
    case KeyUsage::KeyCertSign:
        return "keyCertSign";
    case KeyUsage::CRLSign:
        return "cRLSign";
    case KeyUsage::EncipherOnly:
        return "encipherOnly";
    case KeyUsage::DecipherOnly:
        return "decipherOnly";
    }
    return "";
}

std::string joinedByCommas(std::set<std::string> const& names)
{
    std::string text;
    char const* separator = "";
    for (auto const& name : names) {
        text.append(separator).append(name);
        separator = ",";
    }
    return text;
}

/// Returns a critical extension with the names of both sets, each once. Drops "critical" from the names.
template <typename Defaults>
std::string criticalUsages(std::set<std::string> names, Defaults const& defaults)
{
    names.insert(defaults.begin(), defaults.end());
    names.erase("critical");
    return "critical," + joinedByCommas(names);
}

} // namespace

SelfSignedCertBuilder::SelfSignedCertBuilder()
{
    registerOpenSSLCleanup();
}
SelfSignedCertBuilder::SelfSignedCertBuilder(SelfSignedCertBuilder const& other) = default;
SelfSignedCertBuilder::SelfSignedCertBuilder(SelfSignedCertBuilder&& other) noexcept = default;
SelfSignedCertBuilder::~SelfSignedCertBuilder() = default;
SelfSignedCertBuilder& SelfSignedCertBuilder::operator=(SelfSignedCertBuilder const& other) = default;
SelfSignedCertBuilder& SelfSignedCertBuilder::operator=(SelfSignedCertBuilder&& other) noexcept = default;

SelfSignedCertBuilder& SelfSignedCertBuilder::withPrivateKeySize(RSAPrivateKeySize size)
{
    privateKeySize = size;
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withPrivateKeyPassphrase(std::string passphrase)
{
    privateKeyPassphrase = std::move(passphrase);
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withCommonName(std::string name)
{
    commonName = std::move(name);
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withAdditionalSubjectAltNames(std::set<std::string> names)
{
    additionalSubjectAltNames = std::move(names);
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withValidityPeriod(std::uint32_t days)
{
    if (days < minimumValidityDays || days > maximumValidityDays) {
        throw X509CertificateException(
            "Certificate validity period must be within the range of " + std::to_string(minimumValidityDays) +
            " and " + std::to_string(maximumValidityDays) + " days.");
    }
    validityPeriod = days;
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withValidityPeriodOffset(std::int32_t days)
{
    validityPeriodOffset = days;
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withSerialNumber(std::uint64_t number)
{
    serialNumber = number;
    return *this;
}

SelfSignedCertBuilder&
SelfSignedCertBuilder::withAdditionalKeyUsage(std::set<X509Certificate::KeyUsage> usages)
{
    additionalKeyUsage = std::move(usages);
    return *this;
}

SelfSignedCertBuilder& SelfSignedCertBuilder::withAdditionalExtendedKeyUsage(std::set<std::string> usages)
{
    additionalExtendedKeyUsage = std::move(usages);
    return *this;
}

void SelfSignedCertBuilder::resetToDefaults()
{
    auto const keptOffset = validityPeriodOffset;
    *this = SelfSignedCertBuilder();
    validityPeriodOffset = keptOffset;
}

std::string SelfSignedCertBuilder::effectiveCommonName() const
{
    return commonName.value_or(std::string(defaultCommonName));
}

std::string SelfSignedCertBuilder::makeBasicConstraints() const
{
    return "critical,CA:TRUE";
}

std::string SelfSignedCertBuilder::makeKeyUsage() const
{
    std::set<std::string> names;
    for (auto const usage : additionalKeyUsage.value_or(std::set<X509Certificate::KeyUsage>())) {
        names.insert(opensslNameOf(usage));
    }
    return criticalUsages(std::move(names), defaultKeyUsages);
}

std::string SelfSignedCertBuilder::makeExtendedKeyUsage() const
{
    return criticalUsages(
        additionalExtendedKeyUsage.value_or(std::set<std::string>()), defaultExtendedKeyUsages);
}

std::string SelfSignedCertBuilder::makeSubjectAlternativeName(std::string const& name) const
{
    std::set<std::string> names{"DNS:" + name};
    if (name == defaultCommonName) {
        names.insert(loopbackNames.begin(), loopbackNames.end());
    }
    if (additionalSubjectAltNames) {
        names.insert(additionalSubjectAltNames->begin(), additionalSubjectAltNames->end());
    }
    return joinedByCommas(names);
}

} // namespace foundation::certificates
