#include "libcrypto/IntRange.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/SelfSignedCertBuilder.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace foundation::certificates {

struct SelfSignedCertBuilder::KeyAndCertificate
{
    EVP_PKEYUPtr key;
    X509UPtr certificate;
};

namespace {

constexpr std::size_t defaultKeySize = 2048;
constexpr std::uint32_t defaultValidityDays = 365;
constexpr std::int64_t secondsPerDay = 86400;
constexpr int serialNumberBits = 64;

/// The attributes after the common name in every subject, in ASCII.
constexpr std::array<std::array<char const*, 2>, 5> fixedSubjectAttributes{{
    {"C", "US"},
    {"ST", "Ostravale"},
    {"L", "Bexhollow"},
    {"O", "Corvane, Inc."},
    {"OU", "Corvane, Inc."},
}};

/// Throws the exception of this file, which is outside the library's exception family. It names OpenSSL's
/// oldest error by its number, and removes that error from the queue.
[[noreturn]] void failGeneration()
{
    auto const code = static_cast<std::uint32_t>(ERR_get_error());
    throw std::runtime_error("Failed to generate a certificate: " + std::to_string(code));
}

template <typename T>
T* guarded(T* pointer)
{
    if (pointer == nullptr) {
        failGeneration();
    }
    return pointer;
}

void guarded(int result)
{
    if (result < 1) {
        failGeneration();
    }
}

/// OpenSSL takes lengths as int. It would use only the beginning of a longer text, and so encrypt a key with
/// the beginning of its passphrase.
std::string const& guarded(std::string const& text)
{
    if (!fitsInInt(text.size())) {
        failGeneration();
    }
    return text;
}

/// Start and end of validity, in seconds from now.
struct Validity
{
    long start;
    long end;
};

/// Fails if the seconds exceed 32 bits, the smallest size of long, so that no date wraps around.
long inRange(std::int64_t seconds)
{
    using Range = std::numeric_limits<std::int32_t>;
    if (seconds < Range::min() || seconds > Range::max()) {
        failGeneration();
    }
    return static_cast<long>(seconds);
}

Validity validityFrom(std::int32_t offsetDays, std::uint32_t lifetimeDays)
{
    std::int64_t const start = offsetDays * secondsPerDay;
    return {inRange(start), inRange(start + lifetimeDays * secondsPerDay)};
}

EVP_PKEYUPtr makeRSAKey(std::size_t bits)
{
    return makeEVP_PKEY(guarded(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits)));
}

/// Reads the clock once for both ends, so that the lifetime is exact.
void setValidity(X509* certificate, Validity const& validity)
{
    std::time_t now = std::time(nullptr);
    guarded(X509_time_adj(X509_getm_notBefore(certificate), validity.start, &now));
    guarded(X509_time_adj(X509_getm_notAfter(certificate), validity.end, &now));
}

/// Adds an attribute. Leaves out an attribute that OpenSSL refuses, such as a common name of more than 64
/// characters. Fails if OpenSSL runs out of memory.
void addAttribute(X509_NAME* name, char const* field, int type, char const* value)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): OpenSSL takes characters as bytes
    auto const* const bytes = reinterpret_cast<unsigned char const*>(value);
    auto const add = [&] { return X509_NAME_add_entry_by_txt(name, field, type, bytes, -1, -1, 0) == 1; };
    if (lacksMemoryFor(add)) {
        failGeneration();
    }
}

void setNames(X509* certificate, std::string const& commonName)
{
    auto const name = makeX509_NAME(guarded(X509_NAME_new()));
    addAttribute(name.get(), "CN", MBSTRING_UTF8, commonName.c_str());
    for (auto const& [field, value] : fixedSubjectAttributes) {
        addAttribute(name.get(), field, MBSTRING_ASC, value);
    }
    guarded(X509_set_subject_name(certificate, name.get()));
    guarded(X509_set_issuer_name(certificate, name.get()));
}

void addExtension(X509* certificate, int nid, std::string const& value)
{
    X509V3_CTX context{};
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    auto const extension =
        makeX509_EXTENSION(guarded(X509V3_EXT_conf_nid(nullptr, &context, nid, guarded(value).c_str())));
    guarded(X509_add_ext(certificate, extension.get(), -1));
}

/// Refuses a name that OpenSSL would read as several. The alternative names are one text: a comma starts
/// another name, and a line end or a NUL ends the list.
void refuseListSyntax(std::string const& commonName)
{
    constexpr std::string_view separatorsAndEnds(",\r\n\0", 4);
    if (commonName.find_first_of(separatorsAndEnds) != std::string::npos) {
        failGeneration();
    }
}

void sign(X509* certificate, EVP_PKEY* key)
{
    EVP_MD const* const digest = EVP_sha512();
    auto const context = makeEVP_MD_CTX(guarded(EVP_MD_CTX_new()));
    EVP_PKEY_CTX* keyContext = nullptr; // owned by the digest context
    guarded(EVP_DigestSignInit(context.get(), &keyContext, digest, nullptr, key));
    guarded(EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING));
    guarded(EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_MAX_SIGN));
    guarded(EVP_PKEY_CTX_set_rsa_mgf1_md(keyContext, digest));
    guarded(X509_sign_ctx(certificate, context.get()));
}

std::string certificateAsPEM(X509* certificate)
{
    auto const bio = makeMemoryBIO();
    // The result is ignored on purpose: after a failure the text does not load as a certificate.
    PEM_write_bio_X509(bio.get(), certificate);
    return contentsAsString(bio.get());
}

std::string keyAsPEM(EVP_PKEY* key, std::optional<std::string> const& passphrase)
{
    auto const bio = makeMemoryBIO();
    guarded(bio.get());
    EVP_CIPHER const* const cipher = passphrase ? EVP_des_ede3_cbc() : nullptr;
    // Without a callback, the user data is the passphrase.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): OpenSSL does not change it
    void* const userData = passphrase ? const_cast<char*>(guarded(*passphrase).c_str()) : nullptr;
    guarded(PEM_write_bio_PrivateKey(bio.get(), key, cipher, nullptr, 0, nullptr, userData));
    return contentsAsString(bio.get());
}

/// Returns a bundle with the key only. The caller gets the certificate separately.
ByteArray
keyAsPKCS12(EVP_PKEY* key, std::optional<std::string> const& passphrase, std::string const& friendlyName)
{
    char const* const pass = passphrase ? guarded(*passphrase).c_str() : nullptr;
    auto const bundle =
        makePKCS12(guarded(PKCS12_create(pass, friendlyName.c_str(), key, nullptr, nullptr, 0, 0, 0, 0, 0)));
    auto const bio = makeMemoryBIO();
    guarded(i2d_PKCS12_bio(bio.get(), bundle.get()));
    return contentsAsBytes(bio.get());
}

} // namespace

SelfSignedCertBuilder::KeyAndCertificate SelfSignedCertBuilder::synthesize() const
{
    auto const validity =
        validityFrom(validityPeriodOffset.value_or(0), validityPeriod.value_or(defaultValidityDays));
    auto key = makeRSAKey(privateKeySize ? static_cast<std::size_t>(*privateKeySize) : defaultKeySize);
    auto certificate = makeX509(guarded(X509_new()));
    X509* const x509 = certificate.get();
    std::string const name = guarded(effectiveCommonName());

    guarded(X509_set_version(x509, X509_VERSION_3));
    guarded(X509_set_serialNumber(x509, makeSerialNumber().get()));
    setValidity(x509, validity);
    guarded(X509_set_pubkey(x509, key.get()));
    setNames(x509, name);
    addExtension(x509, NID_subject_alt_name, makeSubjectAlternativeName(name));
    refuseListSyntax(name); // after OpenSSL, whose own refusal has an error number
    addExtension(x509, NID_basic_constraints, makeBasicConstraints());
    addExtension(x509, NID_key_usage, makeKeyUsage());
    addExtension(x509, NID_ext_key_usage, makeExtendedKeyUsage());
    sign(x509, key.get());
    return {std::move(key), std::move(certificate)};
}

std::unique_ptr<asn1_string_st, void (*)(asn1_string_st*)> SelfSignedCertBuilder::makeSerialNumber() const
{
    auto serial = makeASN1_INTEGER(guarded(ASN1_INTEGER_new()));
    if (serialNumber) {
        guarded(ASN1_INTEGER_set_uint64(serial.get(), *serialNumber));
        return serial;
    }
    auto const number = makeBIGNUM(guarded(BN_new()));
    guarded(BN_rand(number.get(), serialNumberBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY));
    guarded(BN_to_ASN1_INTEGER(number.get(), serial.get()));
    return serial;
}

std::pair<X509Certificate, std::string> SelfSignedCertBuilder::build() const
{
    auto const made = synthesize();
    std::string const pem = certificateAsPEM(made.certificate.get());
    std::string privateKey = keyAsPEM(made.key.get(), privateKeyPassphrase);
    return {X509Certificate(pem), std::move(privateKey)};
}

std::pair<X509Certificate, ByteArray> SelfSignedCertBuilder::buildAndGetKeyBytesInPKCS12() const
{
    auto const made = synthesize();
    std::string const pem = certificateAsPEM(made.certificate.get());
    ByteArray bundle = keyAsPKCS12(made.key.get(), privateKeyPassphrase, effectiveCommonName());
    return {X509Certificate(pem), std::move(bundle)};
}

} // namespace foundation::certificates
