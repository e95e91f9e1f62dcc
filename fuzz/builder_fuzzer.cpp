/// Builds a self-signed certificate from the settings in the input. Bare OpenSSL must find the settings in
/// the certificate. The build must fail if bare OpenSSL cannot make it.

#include "libcrypto/OpenSSLHandles.hpp"
#include "support/BuilderSettings.hpp"
#include "support/DerElements.hpp"
#include "support/Properties.hpp"
#include "support/openssl/Handles.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/PKCS12Certificate.hpp>
#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/pem.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace foundation::fuzz {

namespace {

using certificates::ByteArray;
using certificates::SelfSignedCertBuilder;
using certificates::X509Certificate;

constexpr std::int64_t secondsPerDay = 86400;

/// The settings of the builder.
struct Settings
{
    std::size_t keySize = 2048;
    std::optional<std::string> passphrase;
    std::string commonName = "localhost";
    std::set<std::string> alternativeNames;
    std::uint32_t days = 365;
    std::int32_t offset = 0;
    std::optional<std::uint64_t> serialNumber;
    std::set<X509Certificate::KeyUsage> keyUsages;
    std::set<std::string> extendedKeyUsages;
};

std::uint64_t numberIn(Bytes const& content)
{
    std::uint64_t number = 0;
    for (unsigned char const byte : content) {
        number = number << 8U | byte;
    }
    return number;
}

void setDays(SelfSignedCertBuilder& builder, Settings& settings, std::uint32_t days)
{
    bool const accepted = succeeds([&] { builder.withValidityPeriod(days); });
    require(accepted == (days >= 1 && days <= 397), "the validity period has 1 to 397 days");
    if (accepted) {
        settings.days = days;
    }
}

void apply(SelfSignedCertBuilder& builder, Settings& settings, BuilderSetting setting, Bytes const& content)
{
    std::string const text(content.begin(), content.end());
    switch (setting) {
    case BuilderSetting::KeySize:
        settings.keySize = static_cast<std::uint32_t>(numberIn(content));
        builder.withPrivateKeySize(static_cast<certificates::RSAPrivateKeySize>(settings.keySize));
        return;
    case BuilderSetting::Passphrase:
        builder.withPrivateKeyPassphrase(settings.passphrase.emplace(text));
        return;
    case BuilderSetting::CommonName:
        builder.withCommonName(settings.commonName = text);
        return;
    case BuilderSetting::AlternativeName:
        settings.alternativeNames.insert(text);
        builder.withAdditionalSubjectAltNames(settings.alternativeNames);
        return;
    case BuilderSetting::Days:
        setDays(builder, settings, static_cast<std::uint32_t>(numberIn(content)));
        return;
    case BuilderSetting::Offset:
        builder.withValidityPeriodOffset(settings.offset = static_cast<std::int32_t>(numberIn(content)));
        return;
    case BuilderSetting::SerialNumber:
        builder.withSerialNumber(settings.serialNumber.emplace(numberIn(content)));
        return;
    case BuilderSetting::KeyUsage:
        settings.keyUsages.insert(static_cast<X509Certificate::KeyUsage>(numberIn(content)));
        builder.withAdditionalKeyUsage(settings.keyUsages);
        return;
    case BuilderSetting::ExtendedKeyUsage:
        settings.extendedKeyUsages.insert(text);
        builder.withAdditionalExtendedKeyUsage(settings.extendedKeyUsages);
        return;
    case BuilderSetting::Reset: {
        auto const kept = settings.offset;
        settings = Settings();
        settings.offset = kept;
        builder.resetToDefaults();
        return;
    }
    case BuilderSetting::AsPKCS12:
        return;
    }
}

std::string joined(std::set<std::string> const& names)
{
    std::string text;
    for (auto const& name : names) {
        text += (text.empty() && &name == &*names.begin() ? "" : ",") + name;
    }
    return text;
}

std::string alternativeNamesFor(Settings const& settings)
{
    auto names = settings.alternativeNames;
    names.insert("DNS:" + settings.commonName);
    if (settings.commonName == "localhost") {
        names.merge(std::set<std::string>{
            "DNS:127.0.0.1", "IP:127.0.0.1", "DNS:::1", "DNS:0:0:0:0:0:0:0:1", "IP:0:0:0:0:0:0:0:1"});
    }
    return joined(names);
}

std::string keyUsagesFor(Settings const& settings)
{
    static constexpr std::array<char const*, 9> words{"digitalSignature", "nonRepudiation", "keyEncipherment",
                                                      "dataEncipherment", "keyAgreement",   "keyCertSign",
                                                      "cRLSign",          "encipherOnly",   "decipherOnly"};
    std::set<std::string> names{"digitalSignature", "keyCertSign", "cRLSign"};
    for (auto const usage : settings.keyUsages) {
        auto const index = static_cast<unsigned>(usage);
        names.insert(index < words.size() ? words.at(index) : "");
    }
    return "critical," + joined(names);
}

std::string extendedKeyUsagesFor(Settings const& settings)
{
    auto names = settings.extendedKeyUsages;
    names.merge(std::set<std::string>{"serverAuth", "clientAuth", "codeSigning"});
    names.erase("critical");
    return "critical," + joined(names);
}

/// Returns the extension that OpenSSL makes from the text, or null.
certificates::X509_EXTENSIONUPtr bareExtension(int nid, std::string const& text, X509* certificate)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    return certificates::makeX509_EXTENSION(X509V3_EXT_conf_nid(nullptr, &context, nid, text.c_str()));
}

/// Whether the text refers to the certificate that is being made.
bool refersToCertificate(std::string const& text)
{
    return text.find("copy") != std::string::npos || text.find("move") != std::string::npos;
}

bool canBeBuilt(Settings const& settings)
{
    constexpr std::int64_t furthest = 2147483647;
    std::int64_t const start = settings.offset * secondsPerDay;
    std::int64_t const end = start + settings.days * secondsPerDay;
    bool const isInTime =
        start >= -furthest - 1 && start <= furthest && end >= -furthest - 1 && end <= furthest;
    // Smaller keys are too small for the signature.
    bool const hasKey = settings.keySize == 1024 || settings.keySize == 1536 || settings.keySize == 2048;
    // OpenSSL reads these characters as the end of a name or of the list of names.
    bool const hasOneName = settings.commonName.find_first_of(std::string(",\r\n\0", 4)) == std::string::npos;
    return isInTime && hasKey && hasOneName &&
           bareExtension(NID_subject_alt_name, alternativeNamesFor(settings), nullptr) &&
           bareExtension(NID_key_usage, keyUsagesFor(settings), nullptr) &&
           bareExtension(NID_ext_key_usage, extendedKeyUsagesFor(settings), nullptr);
}

void checkFailure(Settings const& settings, std::exception const& failure)
{
    std::string const text = failure.what();
    if (typeid(failure) == typeid(certificates::X509CertificateException)) {
        require(settings.keySize < 1024, "only a small key is refused after the build");
        require(
            text == "RSA key size does not meet minimum cryptographic requirements",
            "a small key is refused with the documented text");
        return;
    }
    static std::string const prefix = "Failed to generate a certificate: ";
    require(typeid(failure) == typeid(std::runtime_error), "a failed build throws std::runtime_error");
    require(text.compare(0, prefix.size(), prefix) == 0, "a failed build has the documented text");
    require(
        text.find_first_not_of("0123456789", prefix.size()) == std::string::npos &&
            text.size() > prefix.size(),
        "the text of a failed build ends in a number");
}

void checkCommonName(X509Certificate const& certificate, Settings const& settings)
{
    std::string const name = settings.commonName.c_str(); // ends at the first NUL
    ASN1_STRING* const made = ASN1_STRING_set_by_NID(
        nullptr, reinterpret_cast<unsigned char const*>(name.data()), static_cast<int>(name.size()),
        MBSTRING_UTF8, NID_commonName);
    bool const fits = made != nullptr;
    ASN1_STRING_free(made);
    std::optional<std::string> found;
    succeeds([&] { found = certificate.getSubjectCommonName(); });
    require(
        found == (fits ? std::optional<std::string>(name) : std::nullopt),
        "the common name is the one that was set");
}

bool isSame(X509_EXTENSION const* one, X509_EXTENSION const* other)
{
    return X509_EXTENSION_get_critical(one) == X509_EXTENSION_get_critical(other) &&
           ASN1_STRING_cmp(
               X509_EXTENSION_get_data(test::changeable(one)),
               X509_EXTENSION_get_data(test::changeable(other))) == 0;
}

void checkExtension(X509* certificate, int nid, int position, std::string const& text)
{
    require(
        X509_get_ext_by_NID(certificate, nid, -1) == position, "the extensions have the documented order");
    auto const expected = bareExtension(nid, text, certificate);
    require(
        refersToCertificate(text) ||
            (expected && isSame(X509_get_ext(certificate, position), expected.get())),
        "the extension has the value that was set");
}

void checkTimes(X509* certificate, Settings const& settings)
{
    constexpr std::int64_t slack = 60;
    int days = 0;
    int seconds = 0;
    ASN1_TIME_diff(&days, &seconds, X509_get0_notBefore(certificate), X509_get0_notAfter(certificate));
    require(
        days * secondsPerDay + seconds == settings.days * secondsPerDay,
        "the validity period is the one that was set");
    ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notBefore(certificate));
    auto const late = settings.offset * secondsPerDay - (days * secondsPerDay + seconds);
    require(late >= 0 && late <= slack, "the validity starts when it was set to start");
}

void checkCertificate(X509Certificate const& certificate, Settings const& settings)
{
    auto const bare = test::parseDer(certificate.getAsBytes());
    require(
        X509_verify(bare.get(), X509_get0_pubkey(bare.get())) == 1,
        "the certificate's own key verifies the signature");
    require(certificate.getKeySize() == settings.keySize, "the key has the size that was set");
    // In OpenSSL's extension syntax, the text of a name can stand for any other content of the extension.
    bool const isSound = (X509_get_extension_flags(bare.get()) & EXFLAG_INVALID) == 0;
    require(certificate.isSelfSigned(), "the certificate is self-signed");
    require(certificate.isCACertificate() || !isSound, "the certificate is a CA certificate");
    require(
        !settings.serialNumber || certificate.getSerialNumber() == std::to_string(*settings.serialNumber),
        "the serial number is the one that was set");
    checkCommonName(certificate, settings);
    checkTimes(bare.get(), settings);
    checkExtension(bare.get(), NID_subject_alt_name, 0, alternativeNamesFor(settings));
    checkExtension(bare.get(), NID_basic_constraints, 1, "critical,CA:TRUE");
    checkExtension(bare.get(), NID_key_usage, 2, keyUsagesFor(settings));
    checkExtension(bare.get(), NID_ext_key_usage, 3, extendedKeyUsagesFor(settings));
}

int refusePassphrase(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*userData*/)
{
    return -1;
}

void checkPEMKey(X509Certificate const& certificate, std::string const& pem, Settings const& settings)
{
    auto const bio = certificates::makeBIO(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    void* const passphrase = settings.passphrase ? const_cast<char*>(settings.passphrase->c_str()) : nullptr;
    auto const key = certificates::makeEVP_PKEY(PEM_read_bio_PrivateKey(
        bio.get(), nullptr, settings.passphrase ? nullptr : refusePassphrase, passphrase));
    require(key != nullptr, "the key opens with its passphrase");
    auto const bare = test::parseDer(certificate.getAsBytes());
    require(X509_check_private_key(bare.get(), key.get()) == 1, "the key belongs to the certificate");
}

void checkBundle(ByteArray const& bundle, Settings const& settings)
{
    if (settings.passphrase) {
        std::string const passphrase = settings.passphrase->c_str(); // ends at the first NUL
        auto const opened = mustSucceed("the bundle opens with its passphrase", [&] {
            return certificates::PKCS12Certificate(bundle, passphrase);
        });
        require(opened.getPrivateKeyInfo().has_value(), "the bundle holds the key");
        require(opened.getCertificate().empty(), "the bundle holds only the key");
    }
}

void build(SelfSignedCertBuilder const& builder, Settings const& settings, bool asPKCS12)
{
    if (asPKCS12) {
        auto const [certificate, bundle] = builder.buildAndGetKeyBytesInPKCS12();
        requireNothingQueued("after a build");
        checkCertificate(certificate, settings);
        checkBundle(bundle, settings);
    } else {
        auto const [certificate, pem] = builder.build();
        requireNothingQueued("after a build");
        checkCertificate(certificate, settings);
        checkPEMKey(certificate, pem, settings);
    }
}

void check(Bytes const& input)
{
    SelfSignedCertBuilder builder;
    Settings settings;
    bool asPKCS12 = false;
    for (auto const& element : elementsIn(input)) {
        if (auto const extent = firstElementIn(element.data(), element.size())) {
            auto const setting = static_cast<BuilderSetting>(element.front());
            auto const content = element.begin() + static_cast<std::ptrdiff_t>(extent->headerSize);
            apply(builder, settings, setting, Bytes(content, element.end()));
            asPKCS12 = asPKCS12 || setting == BuilderSetting::AsPKCS12;
        }
    }
    bool const possible = canBeBuilt(settings);
    clearErrorQueue();
    bool const built = succeeds<std::runtime_error>([&] {
        try {
            build(builder, settings, asPKCS12);
        } catch (std::exception const& failure) {
            checkFailure(settings, failure);
            throw;
        }
    });
    require(
        !built || possible || refersToCertificate(alternativeNamesFor(settings)),
        "a build fails if OpenSSL cannot make the certificate");
    // A bundle names its key after the common name. Not every common name is possible there.
    require(built || !possible || asPKCS12, "a build succeeds if OpenSSL can make the certificate");
    clearErrorQueue();
}

} // namespace

} // namespace foundation::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* input, std::size_t size)
{
    using namespace foundation::fuzz;
    auto const extent = firstElementIn(input, size);
    check(extent ? Bytes(input + extent->headerSize, input + extent->size()) : Bytes());
    return 0;
}
