#include "CertificateSynthesis.hpp"

#include "GeneralNames.hpp"
#include "IssuanceHandles.hpp"
#include "SigningKeys.hpp"
#include "SubjectNames.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <initializer_list>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr int serialNumberBits = 128;

enum class Critical
{
    No,
    Yes
};

template <typename T>
T* made(T* pointer)
{
    return throwIfNull<CertificateException>(pointer, certificateNotMadeText);
}

void requireMade(long result)
{
    throwIfBelowOne<CertificateException>(result, certificateNotMadeText);
}

void setSerialNumber(X509* certificate)
{
    auto const number = makeBIGNUM(made(BN_new()));
    requireMade(BN_rand(number.get(), serialNumberBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY));
    auto const serial = makeASN1_INTEGER(made(BN_to_ASN1_INTEGER(number.get(), nullptr)));
    requireMade(X509_set_serialNumber(certificate, serial.get()));
}

void addExtension(X509* certificate, int nid, void* value, Critical critical)
{
    requireMade(X509_add1_ext_i2d(certificate, nid, value, static_cast<int>(critical), X509V3_ADD_DEFAULT));
}

void addBasicConstraints(X509* certificate)
{
    auto const constraints = makeBASIC_CONSTRAINTS(made(BASIC_CONSTRAINTS_new()));
    addExtension(certificate, NID_basic_constraints, constraints.get(), Critical::Yes);
}

/// Whether the certificate may be used for one of the purposes: it is not limited, or names one of them.
bool allowsAnyOf(std::set<Purpose> const& purposes, std::initializer_list<Purpose> wanted)
{
    return purposes.empty() || std::any_of(wanted.begin(), wanted.end(), [&](Purpose purpose) {
               return purposes.count(purpose) != 0;
           });
}

/// RSA keys also decrypt keys, in TLS up to version 1.2 and in mail. Elliptic-curve keys agree on keys in
/// mail.
void addKeyUsage(X509* certificate, CertificateContents const& contents)
{
    constexpr int digitalSignature = 0;
    constexpr int keyEncipherment = 2;
    constexpr int keyAgreement = 4;
    auto const usage = makeASN1_BIT_STRING(made(ASN1_BIT_STRING_new()));
    auto const add = [&](int bit) { requireMade(ASN1_BIT_STRING_set_bit(usage.get(), bit, 1)); };
    add(digitalSignature);
    if (isOfKind(contents.key, "RSA") &&
        allowsAnyOf(contents.purposes, {Purpose::Any, Purpose::TLSServer, Purpose::EmailProtection})) {
        add(keyEncipherment);
    }
    if (isOfKind(contents.key, "EC") &&
        allowsAnyOf(contents.purposes, {Purpose::Any, Purpose::EmailProtection})) {
        add(keyAgreement);
    }
    addExtension(certificate, NID_key_usage, usage.get(), Critical::Yes);
}

void addExtendedKeyUsage(X509* certificate, std::set<Purpose> const& purposes)
{
    if (purposes.empty() || purposes == std::set<Purpose>{Purpose::Any}) {
        return;
    }
    auto const usages = makeASN1_OBJECTStack(made(sk_ASN1_OBJECT_new_null()));
    for (auto const purpose : purposes) {
        // The object is OpenSSL's own and is not released with the stack.
        requireMade(sk_ASN1_OBJECT_push(usages.get(), made(OBJ_nid2obj(extendedKeyUsageOf(purpose)))));
    }
    bool const isTimeStamping = purposes.count(Purpose::TimeStamping) != 0;
    addExtension(certificate, NID_ext_key_usage, usages.get(), isTimeStamping ? Critical::Yes : Critical::No);
}

/// Returns the SHA-1 digest of the public key, as RFC 5280 proposes. It names the key and protects nothing.
OpenSSLHandle<ASN1_STRING> keyIdentifierOf(X509 const* certificate)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    requireMade(X509_pubkey_digest(certificate, EVP_sha1(), digest.data(), &size));
    auto identifier = makeASN1_STRING(made(ASN1_OCTET_STRING_new()));
    requireMade(ASN1_OCTET_STRING_set(identifier.get(), digest.data(), static_cast<int>(size)));
    return identifier;
}

OpenSSLHandle<ASN1_STRING> keyIdentifierOfIssuer(X509* issuer)
{
    auto const* const identifier = X509_get0_subject_key_id(issuer);
    return identifier == nullptr ? keyIdentifierOf(issuer)
                                 : makeASN1_STRING(made(ASN1_OCTET_STRING_dup(identifier)));
}

void addKeyIdentifiers(X509* certificate, X509* issuer)
{
    auto const own = keyIdentifierOf(certificate);
    addExtension(certificate, NID_subject_key_identifier, own.get(), Critical::No);
    auto const authority = makeAUTHORITY_KEYID(made(AUTHORITY_KEYID_new()));
    auto identifier = issuer == nullptr ? keyIdentifierOf(certificate) : keyIdentifierOfIssuer(issuer);
    authority->keyid = identifier.release();
    addExtension(certificate, NID_authority_key_identifier, authority.get(), Critical::No);
}

void addAlternativeNames(X509* certificate, std::vector<AlternativeName> const& names)
{
    if (names.empty()) {
        return;
    }
    bool const hasSubject = X509_NAME_entry_count(X509_get_subject_name(certificate)) > 0;
    addExtension(
        certificate, NID_subject_alt_name, generalNamesFrom(names).get(),
        hasSubject ? Critical::No : Critical::Yes);
}

void sign(X509* certificate, EVP_PKEY* key)
{
    bool isSigned = false;
    auto const signing = [&] {
        // A damaged key can sign what its public half does not verify.
        isSigned = X509_sign(certificate, key, digestFor(key)) > 0 && X509_verify(certificate, key) == 1;
        return isSigned;
    };
    throwIfLacksMemoryFor<CertificateException>(signing, certificateNotMadeText);
    if (!isSigned) {
        throw InvalidArgument("The key cannot sign.");
    }
}

} // namespace

int extendedKeyUsageOf(Purpose purpose)
{
    switch (purpose) {
    case Purpose::Any:
        return NID_anyExtendedKeyUsage;
    case Purpose::TLSServer:
        return NID_server_auth;
    case Purpose::TLSClient:
        return NID_client_auth;
    case Purpose::CodeSigning:
        return NID_code_sign;
    case Purpose::EmailProtection:
        return NID_email_protect;
    case Purpose::TimeStamping:
        return NID_time_stamp;
    }
    return NID_undef;
}

ASN1_TIMEUPtr timeFrom(std::chrono::system_clock::time_point time)
{
    using Days = std::chrono::duration<int, std::ratio<86400>>;
    auto const day = std::chrono::floor<Days>(time);
    auto const second = std::chrono::floor<std::chrono::seconds>(time - day);
    auto encoded = makeASN1_TIME(nullptr);
    // As an offset from 1970, because the C library of some systems knows no earlier times.
    auto const encode = [&] {
        encoded = makeASN1_TIME(
            ASN1_TIME_adj(nullptr, 0, day.time_since_epoch().count(), static_cast<long>(second.count())));
        return encoded != nullptr;
    };
    throwIfLacksMemoryFor<CertificateException>(encode, certificateNotMadeText);
    throwIfNull<InvalidArgument>(encoded.get(), "The validity is outside of the years 0 to 9999.");
    return encoded;
}

Certificate synthesize(CertificateContents const& contents, Signer const& signer)
{
    auto const certificate = makeX509(made(X509_new()));
    X509* const x509 = certificate.get();
    auto const subject = nameFrom(contents.subject);
    requireMade(X509_set_version(x509, X509_VERSION_3));
    setSerialNumber(x509);
    requireMade(X509_set_subject_name(x509, subject.get()));
    requireMade(X509_set_issuer_name(
        x509, signer.certificate == nullptr ? subject.get() : X509_get_subject_name(signer.certificate)));
    requireMade(X509_set1_notBefore(x509, timeFrom(contents.notBefore).get()));
    requireMade(X509_set1_notAfter(x509, timeFrom(contents.notAfter).get()));
    requireMade(X509_set_pubkey(x509, contents.key));
    addBasicConstraints(x509);
    addKeyUsage(x509, contents);
    addExtendedKeyUsage(x509, contents.purposes);
    addKeyIdentifiers(x509, signer.certificate);
    addAlternativeNames(x509, contents.alternativeNames);
    sign(x509, signer.key);
    return Certificate::fromX509(x509);
}

} // namespace foundation::toolkit
