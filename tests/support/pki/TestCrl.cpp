#include "support/pki/TestCrl.hpp"

#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Signing.hpp"

#include <openssl/pem.h>

#include <utility>

namespace foundation::test {

namespace {

std::string serialNumberOf(X509* certificate)
{
    auto const number = own(ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
    std::shared_ptr<char> const text(BN_bn2dec(number.get()), [](char* string) { OPENSSL_free(string); });
    return text.get();
}

void addEntry(X509_CRL* crl, RevokedEntry const& entry)
{
    auto const revoked = own(X509_REVOKED_new());
    require(X509_REVOKED_set_serialNumber(revoked.get(), makeSerial(entry.serialNumber).get()));
    require(X509_REVOKED_set_revocationDate(revoked.get(), entry.date.toAsn1().get()));
    if (entry.reason) {
        auto const reason = own(ASN1_STRING_type_new(V_ASN1_ENUMERATED));
        require(ASN1_ENUMERATED_set(reason.get(), *entry.reason));
        require(X509_REVOKED_add1_ext_i2d(revoked.get(), NID_crl_reason, reason.get(), 0, 0));
    }
    auto* const copy = X509_REVOKED_dup(revoked.get());
    require(copy != nullptr && X509_CRL_add0_revoked(crl, copy) == 1);
}

void addExtensions(X509_CRL* crl, CrlSpec const& spec)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, spec.issuer.certificate.get(), nullptr, nullptr, crl, 0);
    X509V3_set_nconf(&context, nullptr);
    for (auto const& extension : spec.extensions) {
        require(X509_CRL_add_ext(crl, makeExtension(extension, context).get(), -1));
    }
}

void setFields(X509_CRL* crl, CrlSpec const& spec)
{
    auto* const issuer = X509_get_subject_name(spec.issuer.certificate.get());
    require(X509_CRL_set_version(crl, spec.version));
    require(X509_CRL_set_issuer_name(crl, spec.issuerName ? makeName(*spec.issuerName).get() : issuer));
    require(X509_CRL_set1_lastUpdate(crl, spec.thisUpdate.toAsn1().get()));
    if (spec.nextUpdate) {
        require(X509_CRL_set1_nextUpdate(crl, spec.nextUpdate->toAsn1().get()));
    }
}

} // namespace

RevokedEntry revoke(CertificateAndKey const& certificate)
{
    return {serialNumberOf(certificate.certificate.get())};
}

RevokedEntry revoke(CertificateAndKey const& certificate, TimeSpec const& date)
{
    return {serialNumberOf(certificate.certificate.get()), date};
}

CrlSpec crlSpec(CertificateAndKey const& issuer)
{
    CrlSpec spec;
    spec.issuer = issuer;
    if (X509_get0_subject_key_id(issuer.certificate.get())) {
        spec.extensions.push_back({"authorityKeyIdentifier", "keyid:always"});
    }
    Bytes const one = {0x02, 0x01, 0x01}; // OpenSSL's configuration language has no CRL number
    spec.extensions.push_back({"crlNumber", {}, one});
    return spec;
}

CrlHandle make(CrlSpec const& spec)
{
    ErrorQueueMark const mark;
    auto const crl = own(X509_CRL_new());
    setFields(crl.get(), spec);
    for (auto const& entry : spec.revoked) {
        addEntry(crl.get(), entry);
    }
    addExtensions(crl.get(), spec);
    auto const context = startSigning(spec.signingKey ? spec.signingKey : spec.issuer.key, spec.digest);
    require(X509_CRL_sign_ctx(crl.get(), context.get()));
    auto der = toDer(crl);
    if (spec.damagedSignature) {
        der.back() ^= 1; // the signature is the last field of the encoding
    }
    return own(d2i_X509_CRL_bio(readerOf(der).get(), nullptr));
}

CrlHandle makeCrl(
    CertificateAndKey const& issuer, std::vector<RevokedEntry> revoked,
    std::function<void(CrlSpec&)> const& mutate)
{
    auto spec = crlSpec(issuer);
    spec.revoked = std::move(revoked);
    if (mutate) {
        mutate(spec);
    }
    return make(spec);
}

Bytes toDer(CrlHandle const& crl)
{
    return encodedBy(i2d_X509_CRL, crl.get());
}

std::string toPem(CrlHandle const& crl)
{
    return asText(writtenBy(PEM_write_bio_X509_CRL, crl.get()));
}

} // namespace foundation::test
