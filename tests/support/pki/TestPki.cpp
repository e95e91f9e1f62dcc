#include "support/pki/TestPki.hpp"

#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/Signing.hpp"

#include <openssl/conf.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>

namespace foundation::test {

namespace {

std::string nextSerialNumber()
{
    static std::atomic<unsigned long> counter{1000};
    return std::to_string(++counter);
}

std::vector<ExtensionSpec>::iterator find(std::vector<ExtensionSpec>& extensions, std::string const& name)
{
    return std::find_if(
        extensions.begin(), extensions.end(), [&](auto const& extension) { return extension.name == name; });
}

void setExtensionIn(std::vector<ExtensionSpec>& extensions, ExtensionSpec extension)
{
    auto const place = find(extensions, extension.name);
    if (place == extensions.end()) {
        extensions.push_back(std::move(extension));
    } else {
        *place = std::move(extension);
    }
}

/// Adds an authority key identifier if the issuer has a subject key identifier that it can refer to.
void addAuthorityKeyIdentifier(CertificateSpec& spec, CertificateAndKey const& issuer)
{
    if (X509_get0_subject_key_id(issuer.certificate.get())) {
        spec.setExtension("authorityKeyIdentifier", "keyid:always");
    }
}

CertificateAndKey mutateAndMake(CertificateSpec spec, Mutation const& mutate)
{
    if (mutate) {
        mutate(spec);
    }
    return make(spec);
}

void setNames(X509* certificate, CertificateSpec const& spec)
{
    auto const subject = makeName(spec.subject);
    require(X509_set_subject_name(certificate, subject.get()));
    if (spec.issuer) {
        require(X509_set_issuer_name(certificate, makeName(*spec.issuer).get()));
    } else if (spec.signer) {
        require(X509_set_issuer_name(certificate, X509_get_subject_name(spec.signer->certificate.get())));
    } else {
        require(X509_set_issuer_name(certificate, subject.get()));
    }
}

void setPlainFields(X509* certificate, CertificateSpec const& spec)
{
    require(X509_set_version(certificate, spec.version));
    auto const serial = makeSerial(spec.serialNumber.empty() ? nextSerialNumber() : spec.serialNumber);
    require(X509_set_serialNumber(certificate, serial.get()));
    require(X509_set1_notBefore(certificate, spec.notBefore.toAsn1().get()));
    require(X509_set1_notAfter(certificate, spec.notAfter.toAsn1().get()));
    require(X509_set_pubkey(certificate, spec.key.get()));
}

void addExtensions(X509* certificate, CertificateSpec const& spec)
{
    X509* const issuer = spec.signer ? spec.signer->certificate.get() : certificate;
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    auto const sections = parseSections(spec.extensionSections);
    X509V3_set_nconf(&context, sections.get());
    for (auto const& extension : spec.extensions) {
        require(X509_add_ext(certificate, makeExtension(extension, context).get(), -1));
    }
}

void setPublicKey(X509_PUBKEY* publicKey, Bytes const& encoding)
{
    ErrorQueueMark const mark;
    auto const* position = encoding.data();
    std::shared_ptr<X509_PUBKEY> const decoded(
        d2i_X509_PUBKEY(nullptr, &position, static_cast<long>(encoding.size())), X509_PUBKEY_free);
    ASN1_OBJECT* algorithm = nullptr;
    unsigned char const* bits = nullptr;
    int numBytes = 0;
    X509_ALGOR* parameters = nullptr;
    require(X509_PUBKEY_get0_param(&algorithm, &bits, &numBytes, &parameters, decoded.get()));
    void const* value = nullptr;
    int type = V_ASN1_UNDEF;
    X509_ALGOR_get0(nullptr, &type, &value, parameters);
    require(X509_PUBKEY_set0_param(
        publicKey, OBJ_dup(algorithm), type, ASN1_STRING_dup(static_cast<ASN1_STRING const*>(value)),
        static_cast<unsigned char*>(OPENSSL_memdup(bits, static_cast<std::size_t>(numBytes))), numBytes));
}

/// Rewrites the encoding of the public key. OpenSSL's cached key disappears when the certificate is parsed
/// again.
void spoilPublicKey(X509* certificate, PublicKeyFault fault)
{
    if (fault == PublicKeyFault::None) {
        return;
    }
    auto* const publicKey = changeable(X509_get_X509_PUBKEY(certificate));
    if (fault == PublicKeyFault::NamelessCurve) {
        return setPublicKey(publicKey, namelessCurveDer());
    }
    ASN1_OBJECT* algorithm = nullptr;
    require(X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, publicKey));
    auto const chosen = own(
        fault == PublicKeyFault::UnknownType ? OBJ_txt2obj("1.3.6.1.4.1.99999.1", 1) : OBJ_dup(algorithm));
    Bytes const garbage = {0x30, 0x05, 0x02, 0x01};
    auto* const bits = static_cast<unsigned char*>(OPENSSL_memdup(garbage.data(), garbage.size()));
    require(X509_PUBKEY_set0_param(
        publicKey, OBJ_dup(chosen.get()), V_ASN1_NULL, nullptr, bits, static_cast<int>(garbage.size())));
}

/// Changes the version of a signed certificate and replaces its signature.
void signAsVersion(X509* certificate, long version, DigestContextHandle const& context)
{
    require(X509_set_version(certificate, version));
    auto const signature = signatureOf(encodedBy(i2d_re_X509_tbs, certificate), context);
    ASN1_BIT_STRING const* place = nullptr;
    X509_get0_signature(&place, nullptr, certificate);
    require(ASN1_STRING_set(
        const_cast<ASN1_BIT_STRING*>(place), signature.data(), static_cast<int>(signature.size())));
}

void sign(X509* certificate, CertificateSpec const& spec)
{
    auto const fallback = spec.signer ? spec.signer->key : spec.key;
    auto const key = spec.signingKey ? spec.signingKey : fallback;
    auto const start = [&] { return startSigning(key, spec.digest, spec.pssSignature); };
    auto const version = X509_get_version(certificate);
    require(X509_sign_ctx(certificate, start().get()));
    // OpenSSL 3.5 sets version 3 if there are extensions.
    if (X509_get_version(certificate) != version) {
        signAsVersion(certificate, version, start());
    }
}

} // namespace

CertificateSpec& CertificateSpec::setExtension(std::string const& name, std::string const& text)
{
    setExtensionIn(extensions, {name, text, std::nullopt, false});
    return *this;
}

CertificateSpec& CertificateSpec::setRawExtension(std::string const& name, Bytes content, bool critical)
{
    setExtensionIn(extensions, {name, {}, std::move(content), critical});
    return *this;
}

CertificateSpec& CertificateSpec::removeExtension(std::string const& name)
{
    auto const place = find(extensions, name);
    if (place == extensions.end()) {
        throw std::logic_error("There is no extension " + name + " to remove");
    }
    extensions.erase(place);
    return *this;
}

CertificateSpec& CertificateSpec::setDistributionPoints(std::vector<std::string> const& uris)
{
    std::vector<std::vector<std::string>> points;
    for (auto const& uri : uris) {
        points.push_back({uri});
    }
    return setRawExtension("crlDistributionPoints", distributionPointsContent(points));
}

CertificateSpec rootSpec(std::string const& name)
{
    CertificateSpec spec;
    spec.subject = commonName(name);
    spec.key = p256Key(name);
    spec.setExtension("basicConstraints", "critical,CA:TRUE");
    spec.setExtension("keyUsage", "critical,keyCertSign,cRLSign");
    spec.setExtension("subjectKeyIdentifier", "hash");
    return spec;
}

CertificateSpec intermediateSpec(CertificateAndKey const& issuer, std::string const& name)
{
    auto spec = rootSpec(name);
    spec.signer = issuer;
    addAuthorityKeyIdentifier(spec, issuer);
    return spec;
}

CertificateSpec leafSpec(CertificateAndKey const& issuer, std::string const& name)
{
    auto spec = intermediateSpec(issuer, name);
    spec.setExtension("basicConstraints", "critical,CA:FALSE");
    spec.setExtension("keyUsage", "critical,digitalSignature");
    return spec;
}

CertificateAndKey make(CertificateSpec const& spec)
{
    ErrorQueueMark const mark;
    auto const certificate = own(X509_new());
    setPlainFields(certificate.get(), spec);
    setNames(certificate.get(), spec);
    addExtensions(certificate.get(), spec);
    spoilPublicKey(certificate.get(), spec.publicKeyFault);
    if (spec.beforeSigning) {
        spec.beforeSigning(certificate.get());
    }
    sign(certificate.get(), spec);
    auto der = toDer(certificate);
    if (spec.damagedSignature) {
        der.back() ^= 1; // the signature is the last field of the encoding
    }
    return {parseDer(der), spec.key};
}

CertificateAndKey makeRoot(std::string const& name, Mutation const& mutate)
{
    return mutateAndMake(rootSpec(name), mutate);
}

CertificateAndKey
makeIntermediate(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate)
{
    return mutateAndMake(intermediateSpec(issuer, name), mutate);
}

CertificateAndKey makeLeaf(CertificateAndKey const& issuer, std::string const& name, Mutation const& mutate)
{
    return mutateAndMake(leafSpec(issuer, name), mutate);
}

CertificateAndKey makeSelfSignedLeaf(std::string const& name, Mutation const& mutate)
{
    auto spec = rootSpec(name);
    spec.setExtension("basicConstraints", "critical,CA:FALSE");
    spec.setExtension("keyUsage", "critical,digitalSignature");
    return mutateAndMake(std::move(spec), mutate);
}

Topology::Topology(std::vector<Node> const& nodes, std::string const& mutated, Mutation const& mutate)
{
    auto const issuesOthers = [&](std::string const& name) {
        return std::any_of(nodes.begin(), nodes.end(), [&](Node const& node) { return node.issuer == name; });
    };
    for (auto const& [name, issuer] : nodes) {
        auto const& mutation = name == mutated ? mutate : Mutation();
        if (issuer.empty()) {
            made[name] = makeRoot(name, mutation);
        } else if (issuesOthers(name)) {
            made[name] = makeIntermediate(made.at(issuer), name, mutation);
        } else {
            made[name] = makeLeaf(made.at(issuer), name, mutation);
        }
    }
    if (!mutated.empty() && made.count(mutated) == 0) {
        throw std::logic_error("There is no certificate " + mutated + " to mutate");
    }
}

CertificateAndKey const& Topology::operator[](std::string const& name) const
{
    return made.at(name);
}

std::string Topology::pemBundle(std::vector<std::string> const& names) const
{
    std::string bundle;
    for (auto const& name : names) {
        bundle += made.at(name).pem();
    }
    return bundle;
}

Bytes CertificateAndKey::der() const
{
    return toDer(certificate);
}

std::string CertificateAndKey::pem() const
{
    return toPem(certificate);
}

Bytes toDer(X509Handle const& certificate)
{
    return encodedBy(i2d_X509, certificate.get());
}

std::string toPem(X509Handle const& certificate)
{
    return asText(writtenBy(PEM_write_bio_X509, certificate.get()));
}

std::string toPemBundle(std::vector<X509Handle> const& certificates)
{
    std::string bundle;
    for (auto const& certificate : certificates) {
        bundle += toPem(certificate);
    }
    return bundle;
}

std::string toPemBundle(std::vector<CertificateAndKey> const& certificates)
{
    std::string bundle;
    for (auto const& certificate : certificates) {
        bundle += certificate.pem();
    }
    return bundle;
}

X509Handle parseDer(Bytes const& der)
{
    ErrorQueueMark const mark;
    return own(d2i_X509_bio(readerOf(der).get(), nullptr));
}

} // namespace foundation::test
