#include <foundation/toolkit/Certificate.hpp>

#include "Asn1Strings.hpp"
#include "CertificateAccess.hpp"
#include "GeneralNames.hpp"
#include "IssuanceHandles.hpp"
#include "PeerName.hpp"
#include "certificate/Extensions.hpp"
#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509Access.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/PEMBlocks.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

// What a query asks of OpenSSL was read at construction: the key and the extensions that OpenSSL keeps
// parsed. So no query changes the object, and threads need no lock.

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

constexpr std::size_t sizeOfSHA256 = 32;

/// OpenSSL's type name of keys on elliptic curves.
constexpr char const kindOfCurves[] = "EC";

template <typename T>
T* throwIfOutOfMemory(T* pointer)
{
    return throwIfNull<X509CertificateException>(pointer, outOfMemoryText);
}

/// Returns the certificate at the start of the bytes; null if they hold none.
X509UPtr parse(ByteArray const& der)
{
    auto certificate = makeX509(nullptr);
    if (!fitsInInt(der.size())) {
        return certificate;
    }
    runUnlessOutOfMemory([&] {
        unsigned char const* position = der.data();
        certificate = makeX509(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
        return certificate != nullptr;
    });
    return certificate;
}

bool isCertificate(PEMBlock const& block)
{
    return block.label == PEM_STRING_X509 || block.label == PEM_STRING_X509_OLD ||
           block.label == PEM_STRING_X509_TRUSTED;
}

/// Returns the certificate of the block; null if the block is damaged.
X509UPtr parse(PEMBlock const& block)
{
    std::optional<ByteArray> der;
    runUnlessOutOfMemory([&] {
        der = decode(block);
        return der.has_value();
    });
    return der ? parse(*der) : makeX509(nullptr);
}

/// Returns the time as a point of the clock, or the end of the clock's range that is nearer to it.
std::chrono::system_clock::time_point asTimePoint(ASN1_TIME const* time)
{
    using Clock = std::chrono::system_clock;
    using std::chrono::duration_cast;
    using std::chrono::seconds;
    RAIIOpenSSLErrorRemover const errors(false);
    // Clocks differ in their ticks. All of them count whole seconds without an overflow.
    auto const since1970 = duration_cast<seconds>(asn1TimeToTimePoint(time).time_since_epoch());
    if (since1970 > duration_cast<seconds>(Clock::duration::max())) {
        return Clock::time_point::max();
    }
    if (since1970 < duration_cast<seconds>(Clock::duration::min())) {
        return Clock::time_point::min();
    }
    return Clock::time_point(since1970);
}

std::string oidOrShortName(ASN1_OBJECT const* object)
{
    int const nid = OBJ_obj2nid(object);
    return nid == NID_undef ? oidToString(object) : std::string(OBJ_nid2sn(nid));
}

/// Returns the name of the algorithm of a key that OpenSSL cannot decode.
std::string algorithmOfKey(X509* certificate)
{
    ASN1_OBJECT* algorithm = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(certificate));
    return oidOrShortName(throwIfOutOfMemory(algorithm));
}

std::string curveOf(EVP_PKEY const* key)
{
    constexpr std::size_t longestName = 256;
    std::array<char, longestName> name{};
    std::size_t length = 0;
    bool isNamed = false;
    runUnlessOutOfMemory([&] {
        isNamed = EVP_PKEY_get_group_name(key, name.data(), name.size(), &length) == 1;
        return isNamed;
    });
    return isNamed ? std::string(name.data(), length) : kindOfCurves;
}

/// Appends the name if it is a URI.
void appendURI(GENERAL_NAME const* name, std::vector<std::string>& uris)
{
    int type = -1;
    auto const* const value = GENERAL_NAME_get0_value(name, &type);
    if (type == GEN_URI) {
        uris.push_back(asText(static_cast<ASN1_STRING const*>(value)));
    }
}

/// Returns whether the check found a match. OpenSSL's check returns 1 for a match, 0 for none, and less if it
/// fails. It also returns 0 if it runs out of memory for the names.
template <typename Check>
bool matches(Check const& check)
{
    RAIIOpenSSLErrorRemover const errors(false);
    int result = 0;
    runUnlessOutOfMemory([&] {
        result = check();
        return result == 1;
    });
    if (result < 0) {
        throw X509CertificateException(outOfMemoryText);
    }
    return result == 1;
}

} // namespace

bool operator==(AlternativeName const& left, AlternativeName const& right)
{
    return left.kind == right.kind && left.value == right.value;
}

bool operator!=(AlternativeName const& left, AlternativeName const& right)
{
    return !(left == right);
}

Certificate::Certificate(std::shared_ptr<x509_st> certificate) : x509(std::move(certificate)) {}

Certificate::Certificate(X509Certificate const& certificate)
    : Certificate(CertificateAccess::adopt(X509Access::share(certificate)))
{}

Certificate::Certificate(Certificate const& other) = default;

Certificate& Certificate::operator=(Certificate const& other) = default;

Certificate::~Certificate() = default;

Certificate Certificate::fromPEM(std::string_view text)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const blocks = splitPEMBlocks(text);
    auto const block = std::find_if(blocks.begin(), blocks.end(), isCertificate);
    if (block == blocks.end()) {
        throw InvalidArgument("The text contains no certificate in PEM encoding.");
    }
    auto certificate = parse(*block);
    if (certificate == nullptr) {
        throw InvalidArgument("The first certificate of the PEM text is damaged.");
    }
    return CertificateAccess::adopt(std::move(certificate));
}

Certificate Certificate::fromDER(ByteArray const& der)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto certificate = parse(der);
    if (certificate == nullptr) {
        throw InvalidArgument("The bytes are not a certificate in DER encoding.");
    }
    return CertificateAccess::adopt(std::move(certificate));
}

Certificate Certificate::fromX509(x509_st const* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (certificate == nullptr) {
        throw InvalidArgument("The pointer to the certificate is null.");
    }
    auto duplicate = makeX509(nullptr);
    runUnlessOutOfMemory([&] {
        duplicate = makeX509(X509_dup(certificate));
        return duplicate != nullptr;
    });
    if (duplicate == nullptr) {
        throw InvalidArgument("The certificate is not complete.");
    }
    return CertificateAccess::adopt(std::move(duplicate));
}

x509_st const* Certificate::getX509() const
{
    return x509.get();
}

std::unique_ptr<x509_st, void (*)(x509_st*)> Certificate::duplicateX509() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto duplicate = makeX509(X509_dup(x509.get()));
    throwIfOutOfMemory(duplicate.get());
    // OpenSSL does not report that it had no memory to decode the key.
    if (X509_get0_pubkey(x509.get()) != nullptr) {
        throwIfOutOfMemory(X509_get0_pubkey(duplicate.get()));
    }
    return duplicate;
}

X509Certificate Certificate::toX509Certificate() const
{
    // As PEM, since bytes in DER that contain a PEM marker would be read as PEM.
    std::string const pem = getAsPEM();
    return X509Certificate(ByteArray(pem.begin(), pem.end()));
}

ByteArray Certificate::getAsDER() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    unsigned char* buffer = nullptr;
    int const length = i2d_X509(x509.get(), &buffer);
    auto const bytes = makeOpenSSLBytes(buffer);
    if (length < 1 || bytes == nullptr) {
        throw X509CertificateException(outOfMemoryText);
    }
    return ByteArray(bytes.get(), bytes.get() + length);
}

std::string Certificate::getAsPEM() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const bio = makeMemoryBIO();
    throwIfOutOfMemory(bio.get());
    throwIfNotOne<X509CertificateException>(PEM_write_bio_X509(bio.get(), x509.get()), outOfMemoryText);
    return contentsAsString(bio.get());
}

std::string Certificate::getSubject() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return nameAsText(X509_get_subject_name(x509.get()));
}

std::string Certificate::getIssuer() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return nameAsText(X509_get_issuer_name(x509.get()));
}

std::string Certificate::getSerialNumber() const
{
    auto const* const serial = X509_get0_serialNumber(x509.get());
    bool const isNegative = ASN1_STRING_type(serial) == V_ASN1_NEG_INTEGER;
    return (isNegative ? "-" : "") + hexEncode(asBytes(serial));
}

std::chrono::system_clock::time_point Certificate::getNotBefore() const
{
    return asTimePoint(X509_get0_notBefore(x509.get()));
}

std::chrono::system_clock::time_point Certificate::getNotAfter() const
{
    return asTimePoint(X509_get0_notAfter(x509.get()));
}

std::string Certificate::getKeyKind() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    EVP_PKEY const* const key = X509_get0_pubkey(x509.get());
    if (key == nullptr) {
        return algorithmOfKey(x509.get());
    }
    // Not EVP_PKEY_is_a, which denies everything when it runs out of memory.
    std::string kind = throwIfOutOfMemory(EVP_PKEY_get0_type_name(key));
    return kind == kindOfCurves ? curveOf(key) : kind;
}

int Certificate::getKeyBits() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    EVP_PKEY const* const key = X509_get0_pubkey(x509.get());
    return key == nullptr ? 0 : EVP_PKEY_get_bits(key);
}

std::string Certificate::getSignatureAlgorithm() const
{
    return throwIfOutOfMemory(OBJ_nid2sn(X509_get_signature_nid(x509.get())));
}

std::string Certificate::getSHA256Fingerprint() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    ByteArray digest(sizeOfSHA256);
    unsigned int length = 0;
    throwIfNotOne<X509CertificateException>(
        X509_digest(x509.get(), EVP_sha256(), digest.data(), &length), outOfMemoryText);
    // OpenSSL may take the digest for SHA-1 when it runs out of memory.
    if (length != digest.size()) {
        throw X509CertificateException(outOfMemoryText);
    }
    return hexEncode(digest);
}

std::string Certificate::getSubjectKeyIdentifier() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const identifier =
        makeASN1_STRING(static_cast<ASN1_OCTET_STRING*>(extensionOf(x509.get(), NID_subject_key_identifier)));
    return hexEncode(asBytes(identifier.get()));
}

std::string Certificate::getAuthorityKeyIdentifier() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const authority = makeAUTHORITY_KEYID(
        static_cast<AUTHORITY_KEYID*>(extensionOf(x509.get(), NID_authority_key_identifier)));
    return authority == nullptr ? "" : hexEncode(asBytes(authority->keyid));
}

std::vector<std::string> Certificate::getKeyUsages() const
{
    constexpr std::array<char const*, 9> shortNames = {
        "digitalSignature", "nonRepudiation", "keyEncipherment", "dataEncipherment", "keyAgreement",
        "keyCertSign",      "cRLSign",        "encipherOnly",    "decipherOnly"};
    RAIIOpenSSLErrorRemover const errors(false);
    auto const usage = keyUsageOf(x509.get());
    std::vector<std::string> names;
    for (std::size_t bit = 0; usage != nullptr && bit < shortNames.size(); ++bit) {
        if (ASN1_BIT_STRING_get_bit(usage.get(), static_cast<int>(bit)) == 1) {
            names.emplace_back(shortNames[bit]);
        }
    }
    return names;
}

std::vector<std::string> Certificate::getExtendedKeyUsages() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const usages = extendedKeyUsagesOf(x509.get());
    std::vector<std::string> oids;
    oids.reserve(static_cast<std::size_t>(std::max(0, sk_ASN1_OBJECT_num(usages.get()))));
    for (int index = 0; index < sk_ASN1_OBJECT_num(usages.get()); ++index) {
        oids.push_back(oidToString(sk_ASN1_OBJECT_value(usages.get(), index)));
    }
    return oids;
}

std::vector<AlternativeName> Certificate::getAlternativeNames() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const names =
        makeGENERAL_NAMEStack(static_cast<GENERAL_NAMES*>(extensionOf(x509.get(), NID_subject_alt_name)));
    return alternativeNamesFrom(names.get());
}

std::vector<std::string> Certificate::getIssuerURLs() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const accesses = makeACCESS_DESCRIPTIONStack(
        static_cast<AUTHORITY_INFO_ACCESS*>(extensionOf(x509.get(), NID_info_access)));
    std::vector<std::string> uris;
    for (int index = 0; index < sk_ACCESS_DESCRIPTION_num(accesses.get()); ++index) {
        auto const* const access = sk_ACCESS_DESCRIPTION_value(accesses.get(), index);
        if (OBJ_obj2nid(access->method) == NID_ad_ca_issuers) {
            appendURI(access->location, uris);
        }
    }
    return uris;
}

std::vector<std::string> Certificate::getCRLURLs() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const points = makeDIST_POINTStack(
        static_cast<CRL_DIST_POINTS*>(extensionOf(x509.get(), NID_crl_distribution_points)));
    std::vector<std::string> uris;
    for (int index = 0; index < sk_DIST_POINT_num(points.get()); ++index) {
        constexpr int fullName = 0;
        auto const* const name = sk_DIST_POINT_value(points.get(), index)->distpoint;
        if (name == nullptr || name->type != fullName) {
            continue;
        }
        for (int part = 0; part < sk_GENERAL_NAME_num(name->name.fullname); ++part) {
            appendURI(sk_GENERAL_NAME_value(name->name.fullname, part), uris);
        }
    }
    return uris;
}

bool Certificate::isCA() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return X509_check_ca(x509.get()) > 0;
}

bool Certificate::isIssuedBy(Certificate const& issuer) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    EVP_PKEY* const key = X509_get0_pubkey(issuer.x509.get());
    return key != nullptr && matches([&] {
               int const issued = X509_check_issued(issuer.x509.get(), x509.get());
               // OpenSSL tests last whether the issuer may sign certificates.
               bool const fits = issued == X509_V_OK || issued == X509_V_ERR_KEYUSAGE_NO_CERTSIGN;
               return fits && X509_verify(x509.get(), key) == 1 ? 1 : 0;
           });
}

bool Certificate::matchesHost(std::string const& host) const
{
    constexpr unsigned int flags = X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;
    requireHost(host);
    return matches([&] { return X509_check_host(x509.get(), host.data(), host.size(), flags, nullptr); });
}

bool Certificate::matchesAddress(std::string const& address) const
{
    constexpr unsigned int noFlags = 0;
    ByteArray const bytes = requireAddress(address);
    return matches([&] { return X509_check_ip(x509.get(), bytes.data(), bytes.size(), noFlags); });
}

bool operator==(Certificate const& left, Certificate const& right)
{
    return left.getX509() == right.getX509() || left.getAsDER() == right.getAsDER();
}

bool operator!=(Certificate const& left, Certificate const& right)
{
    return !(left == right);
}

bool CertificateLess::operator()(Certificate const& left, Certificate const& right) const
{
    return left.getX509() != right.getX509() && left.getAsDER() < right.getAsDER();
}

std::size_t CertificateHash::operator()(Certificate const& certificate) const
{
    ByteArray const der = certificate.getAsDER();
    return std::hash<std::string>()(std::string(der.begin(), der.end()));
}

} // namespace foundation::toolkit
