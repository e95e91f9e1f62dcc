#include "certificate/X509CertificateImpl.hpp"

#include "certificate/Extensions.hpp"
#include "keys/KeyExtraction.hpp"
#include "keys/RSAKeySize.hpp"
#include "libcrypto/ErrorMark.hpp"
#include "libcrypto/InputReading.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLCleanup.hpp"
#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <ostream>
#include <string_view>
#include <utility>

namespace foundation::certificates {

namespace {

constexpr std::string_view pemHeader = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view pemFooter = "-----END CERTIFICATE-----";
constexpr StructureFunctions<X509> certificateFunctions = {PEM_read_bio_X509, d2i_X509_bio, X509_free};
constexpr std::size_t pemLineLength = 63;

constexpr char const noNotBeforeText[] =
    "Error: Certificate does not have validNotBefore field correctly set.";
constexpr char const noNotAfterText[] = "Error: Certificate does not have validNotAfter field correctly set.";

template <typename ObjectAt>
std::vector<std::string> oidTexts(int count, ObjectAt const& objectAt)
{
    std::vector<std::string> oids;
    oids.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int index = 0; index < count; ++index) {
        oids.push_back(oidToString(objectAt(index)));
    }
    return oids;
}

EVP_PKEYUPtr publicKeyOf(X509* certificate)
{
    return makeEVP_PKEY(X509_get_pubkey(certificate));
}

/// Returns 0 if OpenSSL cannot encode the certificate. Leaves OpenSSL's error queue as it is.
std::size_t encodedSizeOf(X509 const* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return static_cast<std::size_t>(std::max(i2d_X509(certificate, nullptr), 0));
}

/// Removes what is not part of the certificate's encoding.
void removeAuxiliaryData(X509* certificate)
{
    X509_trust_clear(certificate);
    X509_reject_clear(certificate);
    X509_alias_set1(certificate, nullptr, 0);
    X509_keyid_set1(certificate, nullptr, 0);
}

} // namespace

X509CertificateImpl::X509CertificateImpl()
{
    registerOpenSSLCleanup();
}

X509CertificateImpl::X509CertificateImpl(ByteArray const& data) : X509CertificateImpl()
{
    load(data);
}

X509CertificateImpl::X509CertificateImpl(std::string const& data) : X509CertificateImpl()
{
    load(bytesOfString(data, "The input certificate data string is invalid. Reason:"));
}

X509CertificateImpl::X509CertificateImpl(std::istream& stream) : X509CertificateImpl()
{
    load(bytesOfStream(
        stream, "The input certificate data stream is invalid.",
        "The input certificate data stream is invalid. Reason:"));
}

X509CertificateImpl::X509CertificateImpl(X509* certificate)
    : x509(makeX509(certificate == nullptr ? nullptr : X509_dup(certificate)))
{
    throwIfKeyTooWeak();
    parseExtensions(x509.get());
}

X509CertificateImpl X509CertificateImpl::adopt(X509* certificate)
{
    ErrorMark mark;
    try {
        X509CertificateImpl adopted;
        if (certificate != nullptr && X509_up_ref(certificate) == 1) {
            adopted.x509 = makeX509(certificate);
            removeAuxiliaryData(certificate);
        }
        adopted.throwIfKeyTooWeak();
        parseExtensions(adopted.x509.get());
        return adopted;
    } catch (CertificateException const&) {
        // OpenSSL may have lacked memory for the key or the extensions. A duplicate is parsed again.
        mark.removeErrors();
    }
    return X509CertificateImpl(certificate);
}

X509CertificateImpl::X509CertificateImpl(
    X509CertificateImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : x509(other.x509)
{}

X509CertificateImpl::X509CertificateImpl(X509CertificateImpl&& other) noexcept = default;

X509CertificateImpl& X509CertificateImpl::operator=(X509CertificateImpl&& other) noexcept = default;

X509CertificateImpl::~X509CertificateImpl() = default;

void X509CertificateImpl::load(ByteArray const& data)
{
    if (data.empty()) {
        throw InvalidArgument("The input certificate has no content.");
    }
    RAIIOpenSSLErrorRemover errors(true);
    InputForm const form = containsMarker(data, pemHeader) ? InputForm::PEM : InputForm::DER;
    x509 = readStructure<X509CertificateException>(data, form, certificateFunctions, errors);
    throwIfKeyTooWeak();
    parseExtensions(x509.get());
}

bool X509CertificateImpl::empty() const
{
    return x509 == nullptr;
}

X509* X509CertificateImpl::content() const
{
    return throwIfNull<X509CertificateException>(x509.get(), "Error: X509Certificate has no content.");
}

X509* X509CertificateImpl::duplicateX509() const
{
    return X509_dup(content());
}

std::string X509CertificateImpl::getSubjectName() const
{
    return nameAsText(X509_get_subject_name(content()));
}

std::string X509CertificateImpl::getIssuerName() const
{
    return nameAsText(X509_get_issuer_name(content()));
}

std::unordered_map<std::string, std::string> X509CertificateImpl::getSubjectNameAsRDNs() const
{
    return nameAsRDNs(X509_get_subject_name(content()));
}

std::unordered_map<std::string, std::string> X509CertificateImpl::getIssuerNameAsRDNs() const
{
    return nameAsRDNs(X509_get_issuer_name(content()));
}

std::string X509CertificateImpl::getSubjectCommonName() const
{
    return lastCommonNameIn(X509_get_subject_name(content()), "Subject name has no CN.");
}

std::string X509CertificateImpl::getIssuerCommonName() const
{
    return lastCommonNameIn(X509_get_issuer_name(content()), "Issuer name has no CN.");
}

std::string X509CertificateImpl::getSerialNumber() const
{
    return serialToDecimalString(X509_get0_serialNumber(content()));
}

std::string X509CertificateImpl::getSHA256Fingerprint() const
{
    ByteArray digest(32);
    unsigned int length = 0;
    if (X509_digest(content(), EVP_sha256(), digest.data(), &length) == 0 || length != digest.size()) {
        throw X509CertificateException("Internal error: Unable to compute the SHA256 fingerprint.");
    }
    return hexEncode(digest);
}

std::string X509CertificateImpl::getSignatureAlgorithm() const
{
    return throwIfNull<X509CertificateException>(
        OBJ_nid2sn(X509_get_signature_nid(content())),
        "Internal error: Unable to fetch the signature algorithm");
}

std::string X509CertificateImpl::getValidNotBefore() const
{
    return asn1TimeToString(
        throwIfNull<X509CertificateException>(X509_getm_notBefore(content()), noNotBeforeText));
}

std::string X509CertificateImpl::getValidNotAfter() const
{
    return asn1TimeToString(
        throwIfNull<X509CertificateException>(X509_getm_notAfter(content()), noNotAfterText));
}

X509Certificate::TimePoint X509CertificateImpl::getValidNotBeforeTimePoint() const
{
    return asn1TimeToTimePoint(
        throwIfNull<X509CertificateException>(X509_getm_notBefore(content()), noNotBeforeText));
}

X509Certificate::TimePoint X509CertificateImpl::getValidNotAfterTimePoint() const
{
    // Both time point getters have the same text, on purpose.
    return asn1TimeToTimePoint(
        throwIfNull<X509CertificateException>(X509_getm_notAfter(content()), noNotBeforeText));
}

std::vector<std::string> X509CertificateImpl::getExtendedKeyUsages() const
{
    auto const usages = extendedKeyUsagesOf(content());
    return oidTexts(sk_ASN1_OBJECT_num(usages.get()), [&](int index) {
        return sk_ASN1_OBJECT_value(usages.get(), index);
    });
}

std::vector<std::string> X509CertificateImpl::getPolicies() const
{
    auto const policies = makePOLICYINFOStack(
        static_cast<STACK_OF(POLICYINFO)*>(extensionOf(content(), NID_certificate_policies)));
    return oidTexts(sk_POLICYINFO_num(policies.get()), [&](int index) {
        return sk_POLICYINFO_value(policies.get(), index)->policyid;
    });
}

bool X509CertificateImpl::isCACertificate() const
{
    return X509_check_ca(content()) > 0;
}

bool X509CertificateImpl::isSelfSigned() const
{
    return getIssuerName() == getSubjectName();
}

bool X509CertificateImpl::isValidForDigitalSigning() const
{
    auto const usage = keyUsageOf(content());
    constexpr int digitalSignature = 0;
    return usage != nullptr && ASN1_BIT_STRING_get_bit(usage.get(), digitalSignature) != 0 &&
           extendedKeyUsageAllowsAnyOf(content(), {NID_code_sign});
}

PublicKeyInfo X509CertificateImpl::getPublicKeyInfo() const
{
    if (auto info = readPublicKeyInfo(publicKeyOf(content()).get())) {
        return *std::move(info);
    }
    return publicKeyInfoInSteps();
}

PublicKeyInfo X509CertificateImpl::publicKeyInfoInSteps() const
{
    switch (sanityCheckEVPKey(publicKeyOf(content()).get())) {
    case KeyType::RSA: {
        ByteArray const modulus = getModulus();
        ByteArray const exponent = getPublicExponent();
        return PublicKeyInfo(getKeySize(), exponent, modulus);
    }
    case KeyType::ECC: {
        EllipticCurve const curve = getECCCurve();
        ByteArray const point = getECCPublicPoint();
        return PublicKeyInfo(getKeySize(), point, curve);
    }
    }
    throw CertificateException("Unknown key type");
}

bool X509CertificateImpl::hasRSAKey() const
{
    return sanityCheckEVPKey(publicKeyOf(content()).get()) == KeyType::RSA;
}

std::uint64_t X509CertificateImpl::getKeySize() const
{
    auto const key = publicKeyOf(content());
    int const bits = EVP_PKEY_get_bits(key.get());
    // OpenSSL counts the bits when it decodes the key, and caches 0 if it runs out of memory. The modulus of
    // an RSA key can really be 0; loading refuses such a key as too weak.
    if (bits < 1 && sanityCheckEVPKey(key.get()) == KeyType::ECC) {
        throw CertificateException("Could not extract public key information from EVP_PKEY");
    }
    return static_cast<std::uint64_t>(bits);
}

ByteArray
X509CertificateImpl::rsaParameter(char const* name, char const* notRSAText, char const* failureText) const
{
    auto const key = publicKeyOf(content());
    if (sanityCheckEVPKey(key.get()) != KeyType::RSA) {
        throw NotRSAKey(notRSAText);
    }
    auto const number = makeBIGNUM(BN_new());
    BIGNUM* target = number.get();
    throwIfBelowOne<X509CertificateException>(
        target == nullptr ? 0 : EVP_PKEY_get_bn_param(key.get(), name, &target), failureText);
    return bigNumToByteArray(number.get());
}

ByteArray X509CertificateImpl::getModulus() const
{
    return rsaParameter(
        OSSL_PKEY_PARAM_RSA_N, "Cannot get modulus because the certificate does not contain an RSA key",
        "Failed to get the modulus for the public key");
}

ByteArray X509CertificateImpl::getPublicExponent() const
{
    return rsaParameter(
        OSSL_PKEY_PARAM_RSA_E,
        "Cannot get public exponent because the certificate does not contain an RSA key",
        "Failed to get the public exponent for the public key");
}

ByteArray X509CertificateImpl::getECCPublicPoint() const
{
    auto const key = publicKeyOf(content());
    OSSL_PARAM* exported = nullptr;
    throwIfNotOne<CertificateException>(
        EVP_PKEY_todata(key.get(), EVP_PKEY_PUBLIC_KEY, &exported),
        "Failed to extract public point from public EVP_PKEY");
    auto const parameters = makeOSSL_PARAMUPtr(exported);
    auto const* point = throwIfNull<CertificateException>(
        OSSL_PARAM_locate_const(parameters.get(), OSSL_PKEY_PARAM_PUB_KEY),
        "Could not find 'pub' in parameter list from EVP_PKEY_todata");
    auto const* bytes = static_cast<unsigned char const*>(point->data);
    return bytes == nullptr ? ByteArray() : ByteArray(bytes, bytes + point->data_size);
}

EllipticCurve X509CertificateImpl::getECCCurve() const
{
    return getECCCurveFromEVPKey(publicKeyOf(content()).get());
}

void X509CertificateImpl::throwIfKeyTooWeak() const
{
    auto const key = getPublicKeyInfo();
    switch (key.getType()) {
    case KeyType::RSA:
        throwIfWeakRSAKey<X509CertificateException>(key.getKeySize());
        return;
    case KeyType::ECC:
        return;
    }
    throw CertificateException("This should be unreachable");
}

ByteArray X509CertificateImpl::getAsBytes() const
{
    ByteArray bytes = encoding();
    return bytes.empty() ? bytesByBIO() : bytes;
}

ByteArray X509CertificateImpl::encoding() const
{
    X509 const* const certificate = content();
    if (encodedSize == 0) {
        encodedSize = encodedSizeOf(certificate);
    }
    ByteArray bytes(encodedSize);
    unsigned char* position = bytes.data();
    if (encodedSize > 0 && i2d_X509(certificate, &position) != static_cast<int>(encodedSize)) {
        bytes.clear();
    }
    return bytes;
}

ByteArray X509CertificateImpl::bytesByBIO() const
{
    auto const bio = makeMemoryBIO();
    throwIfBelowOne<X509CertificateException>(
        i2d_X509_bio(bio.get(), content()), "Internal error: Could not serialize the X509 certificate.");
    ByteArray bytes = contentsAsBytes(bio.get());
    if (bytes.empty()) {
        throw X509CertificateException("Internal error: The DER serialized X509 data came up empty.");
    }
    return bytes;
}

std::string X509CertificateImpl::getAsString() const
{
    return base64Encode(getAsBytes());
}

std::string X509CertificateImpl::getAsPEMString() const
{
    std::string const base64 = getAsString();
    std::string pem;
    pem.reserve(pemHeader.size() + pemFooter.size() + 3 + base64.size() + base64.size() / pemLineLength);
    pem.append(pemHeader).push_back('\n');
    for (std::size_t start = 0; start < base64.size(); start += pemLineLength) {
        pem.append(base64, start, pemLineLength).push_back('\n');
    }
    pem.append(pemFooter).push_back('\n');
    return pem;
}

void X509CertificateImpl::print(std::ostream& out) const
{
    std::string const subject = getSubjectName();
    std::string const issuer = getIssuerName();
    out << "Certificate Details:\n"
        << "--------------------\n"
        << "Subject Name: " << subject << ";\n"
        << "Issuer Name: " << issuer << ";\n";
    // A failure of the digest comes after the lines above, on purpose.
    out << "SHA256 Fingerprint: " << getSHA256Fingerprint() << ";\n";
    out << "isSelfSigned: " << (issuer == subject ? "1" : "0") << ";\n"
        << "isCA: " << (isCACertificate() ? "1" : "0") << ";\n"
        << std::endl;
}

} // namespace foundation::certificates
