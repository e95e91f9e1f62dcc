#include <foundation/toolkit/Issuance.hpp>

#include "CertificateAccess.hpp"
#include "CertificateSynthesis.hpp"
#include "GeneralNames.hpp"
#include "KeyTexts.hpp"
#include "RequestAccess.hpp"
#include "SigningKeys.hpp"
#include "SubjectNames.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <tuple>
#include <utility>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr std::chrono::hours defaultLifetime{24 * 365};

void requireKnown(std::set<Purpose> const& purposes)
{
    for (auto const purpose : purposes) {
        if (extendedKeyUsageOf(purpose) == NID_undef) {
            throw InvalidArgument("Unknown purpose.");
        }
    }
    if (purposes.count(Purpose::TimeStamping) != 0 && purposes.size() > 1) {
        throw InvalidArgument("A certificate for time stamping has no other purpose.");
    }
}

/// Refuses what OpenSSL's strict checks refuse as an issuer, such as a CA of version 1.
void requireAuthority(X509* authority)
{
    constexpr int hasBasicConstraints = 1;
    if (X509_check_ca(authority) != hasBasicConstraints) {
        throw InvalidArgument("The authority is no CA.");
    }
    if (X509_NAME_entry_count(X509_get_subject_name(authority)) < 1) {
        throw InvalidArgument("The authority has no subject.");
    }
}

void requireKeyOf(X509* authority, EVP_PKEY* key)
{
    bool isItsKey = false;
    auto const check = [&] {
        isItsKey = X509_check_private_key(authority, key) == 1;
        return isItsKey;
    };
    throwIfLacksMemoryFor<CertificateException>(check, certificateNotMadeText);
    if (!isItsKey) {
        throw InvalidArgument("The key is not that of the authority.");
    }
}

EVP_PKEYUPtr keyOf(X509_REQ* request)
{
    auto key = provenKey(request);
    throwIfNull<InvalidArgument>(key.get(), "The signature of the request does not verify.");
    return key;
}

bool isEmptySubject(ByteArray const& subject)
{
    return X509_NAME_entry_count(nameFrom(subject).get()) < 1;
}

Certificate
signedBy(CertificateContents const& contents, Certificate const& authority, SecretString const& authorityKey)
{
    auto* const issuer = CertificateAccess::get(authority);
    requireAuthority(issuer);
    auto const issuerKey = privateKeyFromPEM(authorityKey);
    requireKeyOf(issuer, issuerKey.get());
    return synthesize(contents, {issuer, issuerKey.get()});
}

} // namespace

SecretString makePrivateKey(KeyChoice choice)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const make = [](char const* type, auto... parameters) {
        auto const key = makeEVP_PKEY(EVP_PKEY_Q_keygen(nullptr, nullptr, type, parameters...));
        throwIfNull<CertificateException>(key.get(), "Internal error: The private key could not be made.");
        return privateKeyToPEM(key.get());
    };
    constexpr std::size_t smallRSA = 2048;
    constexpr std::size_t mediumRSA = 3072;
    constexpr std::size_t largeRSA = 4096;
    switch (choice) {
    case KeyChoice::Prime256v1:
        return make("EC", "prime256v1");
    case KeyChoice::Secp384r1:
        return make("EC", "secp384r1");
    case KeyChoice::Ed25519:
        return make("ED25519");
    case KeyChoice::RSA2048:
        return make("RSA", smallRSA);
    case KeyChoice::RSA3072:
        return make("RSA", mediumRSA);
    case KeyChoice::RSA4096:
        return make("RSA", largeRSA);
    }
    throw InvalidArgument("Unknown choice of key.");
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes it by value
EndEntityCertificateBuilder& EndEntityCertificateBuilder::withSubject(Attributes attributes)
{
    RAIIOpenSSLErrorRemover const errors(false);
    subject = subjectFrom(attributes);
    return *this;
}

EndEntityCertificateBuilder&
EndEntityCertificateBuilder::withAlternativeNames(std::vector<AlternativeName> names)
{
    RAIIOpenSSLErrorRemover const errors(false);
    generalNamesFrom(names); // refuses invalid values now
    alternativeNames = std::move(names);
    return *this;
}

EndEntityCertificateBuilder& EndEntityCertificateBuilder::withPurposes(std::set<Purpose> purposes)
{
    requireKnown(purposes);
    allowedPurposes = std::move(purposes);
    return *this;
}

EndEntityCertificateBuilder&
EndEntityCertificateBuilder::withValidity(time_point notBefore, time_point notAfter)
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (notAfter < notBefore) {
        throw InvalidArgument("The validity ends before it starts.");
    }
    timeFrom(notBefore); // refuse times that no certificate can have
    timeFrom(notAfter);
    validity.emplace(notBefore, notAfter);
    return *this;
}

EndEntityCertificateBuilder& EndEntityCertificateBuilder::fromRequest(CertificateRequest const& request)
{
    RAIIOpenSSLErrorRemover const errors(false);
    std::shared_ptr<EVP_PKEY> provenRequestKey = keyOf(request.request.get());
    auto requestedSubject = subjectFrom(X509_REQ_get_subject_name(request.request.get()));
    withAlternativeNames(request.getAlternativeNames());
    subject = std::move(requestedSubject);
    requestKey = std::move(provenRequestKey);
    return *this;
}

CertificateContents EndEntityCertificateBuilder::contentsFor(evp_pkey_st* key) const
{
    requireCertifiableKey(key);
    if (requestKey != nullptr && !isSamePublicKey(key, requestKey.get(), certificateNotMadeText)) {
        throw InvalidArgument("The key is not that of the request.");
    }
    CertificateContents contents;
    contents.subject = subject ? *subject : subjectFrom(Attributes());
    contents.alternativeNames = alternativeNames.value_or(std::vector<AlternativeName>());
    if (isEmptySubject(contents.subject) && contents.alternativeNames.empty()) {
        throw InvalidArgument("Neither subject nor alternative names are given.");
    }
    contents.purposes = allowedPurposes;
    // The clock that OpenSSL reads. The system clock can already be in the next second, and a new certificate
    // would not be valid yet.
    auto const now = std::chrono::system_clock::from_time_t(std::time(nullptr));
    std::tie(contents.notBefore, contents.notAfter) =
        validity.value_or(std::pair(now, now + defaultLifetime));
    contents.key = key;
    return contents;
}

Certificate EndEntityCertificateBuilder::signSelf(SecretString const& privateKey) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const key = privateKeyFromPEM(privateKey);
    auto const contents = contentsFor(key.get());
    if (isEmptySubject(contents.subject)) {
        throw InvalidArgument("A self-signed certificate needs a subject.");
    }
    return synthesize(contents, {nullptr, key.get()});
}

Certificate EndEntityCertificateBuilder::signBy(
    Certificate const& authority, SecretString const& authorityKey, SecretString const& privateKey) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const key = privateKeyFromPEM(privateKey);
    return signedBy(contentsFor(key.get()), authority, authorityKey);
}

Certificate EndEntityCertificateBuilder::signBy(
    Certificate const& authority, SecretString const& authorityKey, CertificateRequest const& request) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    EndEntityCertificateBuilder builder(*this);
    if (!subject && !alternativeNames) {
        builder.fromRequest(request);
    }
    auto const key = keyOf(request.request.get());
    return signedBy(builder.contentsFor(key.get()), authority, authorityKey);
}

} // namespace foundation::toolkit
