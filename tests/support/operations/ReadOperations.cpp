#include "support/operations/ReadOperations.hpp"

#include "support/Text.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <map>
#include <memory>
#include <optional>
#include <type_traits>
#include <unordered_map>

namespace foundation::test {

namespace {

using namespace foundation::certificates;

constexpr char const content[] = "content";
constexpr char const passphrase[] = "secret";

std::string text(std::string value)
{
    return value;
}

std::string text(bool value)
{
    return value ? "true" : "false";
}

/// Sizes and numbers of 64 bits are one type on some systems and two on others.
template <typename Number, typename = std::enable_if_t<std::is_unsigned_v<Number>>>
std::string text(Number value)
{
    return std::to_string(value);
}

std::string text(ByteArray const& value)
{
    return hexEncode(value);
}

std::string text(std::vector<std::string> const& values)
{
    std::string all;
    for (auto const& value : values) {
        all += value + "\n";
    }
    return all;
}

std::string text(std::unordered_map<std::string, std::string> const& values)
{
    std::string all;
    for (auto const& [name, value] : std::map<std::string, std::string>(values.begin(), values.end())) {
        all += name + "=" + value + "\n";
    }
    return all;
}

std::string text(X509Certificate::TimePoint value)
{
    return std::to_string(value.time_since_epoch().count());
}

std::string text(PublicKeyInfo const& value)
{
    return value.getType() == KeyType::RSA ? text(value.getRSAModulus()) : text(value.getECCPublicPoint());
}

std::string text(std::optional<PrivateKeyInfo> const& value)
{
    return value ? text(value->getRSAPrivateExponent()) : "none";
}

std::string text(X509Certificate const& value)
{
    return value.getAsPEMString();
}

std::string text(std::vector<X509Certificate> const& values)
{
    std::string all;
    for (auto const& value : values) {
        all += text(value);
    }
    return all;
}

std::string text(X509CertificateChain const& value)
{
    return value.getAsString();
}

std::string text(CertificateValidationResults const& value)
{
    return std::to_string(static_cast<int>(value.getCertificateChainStatus())) +
           value.getValidationErrorString() +
           (value.getRootCertificate() ? text(*value.getRootCertificate()) : "no root");
}

std::string text(PKCS7CertificateValidationResults const& value)
{
    return text(value.getSignatureVerificationStatus()) +
           std::to_string(static_cast<int>(value.getCertificateChainStatus())) +
           value.getValidationErrorString();
}

std::string numObjectsIn(X509_STORE* store)
{
    return std::to_string(sk_X509_OBJECT_num(X509_STORE_get0_objects(store)));
}

CertificateAndKey makeSigner(CertificateAndKey const& issuer)
{
    return makeLeaf(issuer, "signer", [](CertificateSpec& spec) {
        spec.key = rsaKey(1024);
        spec.setExtension("keyUsage", "digitalSignature");
        // What PKCS7_verify asks of a signer.
        spec.setExtension("extendedKeyUsage", "emailProtection,codeSigning");
        spec.setExtension("certificatePolicies", "1.2.3.4");
    });
}

// The macro names each query once.
#define FOUNDATION_TEST_QUERY(object, query)                                                                 \
    {                                                                                                        \
#object "." #query, [](Objects const& all) { return text(all.object.query()); }                      \
    }

void appendCertificateOperations(std::vector<ReadOperation>& operations)
{
    std::vector<ReadOperation> const queries{
        FOUNDATION_TEST_QUERY(certificate, empty),
        FOUNDATION_TEST_QUERY(certificate, getSubjectName),
        FOUNDATION_TEST_QUERY(certificate, getIssuerName),
        FOUNDATION_TEST_QUERY(certificate, getSubjectNameAsRDNs),
        FOUNDATION_TEST_QUERY(certificate, getIssuerNameAsRDNs),
        FOUNDATION_TEST_QUERY(certificate, getSubjectCommonName),
        FOUNDATION_TEST_QUERY(certificate, getIssuerCommonName),
        FOUNDATION_TEST_QUERY(certificate, getSerialNumber),
        FOUNDATION_TEST_QUERY(certificate, getSHA256Fingerprint),
        FOUNDATION_TEST_QUERY(certificate, getSignatureAlgorithm),
        FOUNDATION_TEST_QUERY(certificate, getValidNotBefore),
        FOUNDATION_TEST_QUERY(certificate, getValidNotAfter),
        FOUNDATION_TEST_QUERY(certificate, getValidNotBeforeTimePoint),
        FOUNDATION_TEST_QUERY(certificate, getValidNotAfterTimePoint),
        FOUNDATION_TEST_QUERY(certificate, getKeySize),
        FOUNDATION_TEST_QUERY(certificate, getModulus),
        FOUNDATION_TEST_QUERY(certificate, getPublicExponent),
        FOUNDATION_TEST_QUERY(certificate, getPublicKeyInfo),
        FOUNDATION_TEST_QUERY(certificate, getExtendedKeyUsages),
        FOUNDATION_TEST_QUERY(certificate, getPolicies),
        FOUNDATION_TEST_QUERY(certificate, isCACertificate),
        FOUNDATION_TEST_QUERY(certificate, isSelfSigned),
        FOUNDATION_TEST_QUERY(certificate, isValidForDigitalSigning),
        FOUNDATION_TEST_QUERY(certificate, getAsBytes),
        FOUNDATION_TEST_QUERY(certificate, getAsString),
        FOUNDATION_TEST_QUERY(certificate, getAsPEMString),
        {"certificate.print", [](Objects const& all) { return printed(all.certificate); }},
        {"certificate <<", [](Objects const& all) { return streamed(all.certificate); }},
        {"certificate ==", [](Objects const& all) { return text(all.certificate == all.certificate); }},
        {"certificate !=",
         [](Objects const& all) { return text(all.certificate != all.bundle.getCertificate()); }},
        {"certificate copied", [](Objects const& all) { return text(X509Certificate(all.certificate)); }},
        // Where the leaf is put in front of the chain, it is loaded, and a load empties the queue.
        {"certificate.validateCertificate",
         [](Objects const& all) {
             return text(
                 all.certificate.validateCertificate(all.chain, CertificateValidationOptions(), all.store));
         },
         ForeignErrors::Go},
        {"certificate.validateCertificate, chain with leaf",
         [](Objects const& all) {
             return text(all.certificate.validateCertificate(
                 all.chainWithLeaf, CertificateValidationOptions(), all.store));
         }},
        {"certificate.getRootCACertificate",
         [](Objects const& all) { return text(all.certificate.getRootCACertificate(all.chain, all.store)); },
         ForeignErrors::Go},
    };
    operations.insert(operations.end(), queries.begin(), queries.end());
}

void appendChainOperations(std::vector<ReadOperation>& operations)
{
    std::vector<ReadOperation> const queries{
        FOUNDATION_TEST_QUERY(chain, empty),
        FOUNDATION_TEST_QUERY(chain, getNumCertificates),
        FOUNDATION_TEST_QUERY(chain, getCertificates),
        FOUNDATION_TEST_QUERY(chain, getAsString),
        {"chain.print", [](Objects const& all) { return printed(all.chain); }},
        {"chain <<", [](Objects const& all) { return streamed(all.chain); }},
        {"chain ==", [](Objects const& all) { return text(all.chain == all.chain); }},
        {"chain !=", [](Objects const& all) { return text(all.chain != all.chainWithLeaf); }},
        {"chain copied", [](Objects const& all) { return text(X509CertificateChain(all.chain)); }},
    };
    operations.insert(operations.end(), queries.begin(), queries.end());
}

void appendTrustStoreOperations(std::vector<ReadOperation>& operations)
{
    std::vector<ReadOperation> const queries{
        FOUNDATION_TEST_QUERY(store, empty),
        FOUNDATION_TEST_QUERY(store, size),
        FOUNDATION_TEST_QUERY(store, getCertificates),
        FOUNDATION_TEST_QUERY(store, getPEMStrings),
        {"store copied", [](Objects const& all) { return text(TrustStore(all.store).getCertificates()); }},
        {"getOpenSSLStore",
         [](Objects const& all) { return numObjectsIn(getOpenSSLStore(all.store).get()); }},
        {"copyOpenSSLStore",
         [](Objects const& all) { return numObjectsIn(copyOpenSSLStore(all.store).get()); }},
        {"attachTrustStoreToSSLCTX",
         [](Objects const& all) {
             std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> const context(
                 SSL_CTX_new(TLS_method()), SSL_CTX_free);
             attachTrustStoreToSSLCTX(all.store, context.get());
             return numObjectsIn(SSL_CTX_get_cert_store(context.get()));
         }},
    };
    operations.insert(operations.end(), queries.begin(), queries.end());
}

void appendBundleOperations(std::vector<ReadOperation>& operations)
{
    std::vector<ReadOperation> const queries{
        FOUNDATION_TEST_QUERY(signedData, empty),
        FOUNDATION_TEST_QUERY(signedData, getAsBytes),
        FOUNDATION_TEST_QUERY(signedData, getAsString),
        FOUNDATION_TEST_QUERY(signedData, getCertificates),
        FOUNDATION_TEST_QUERY(signedData, getNumCertificates),
        FOUNDATION_TEST_QUERY(signedData, getSignedData),
        FOUNDATION_TEST_QUERY(signedData, getSignerCerts),
        {"signedData.verifySignature",
         [](Objects const& all) {
             return text(all.signedData.verifySignature(all.chain, all.store, ByteArray()));
         }},
        {"detached.verifySignature",
         [](Objects const& all) {
             return text(all.detached.verifySignature(all.chain, all.store, asBytes(content)));
         }},
        {"signedData.print", [](Objects const& all) { return printed(all.signedData); }},
        {"signedData <<", [](Objects const& all) { return streamed(all.signedData); }},
        {"signedData ==", [](Objects const& all) { return text(all.signedData == all.signedData); }},
        {"signedData !=", [](Objects const& all) { return text(all.signedData != all.detached); }},
        {"signedData copied",
         [](Objects const& all) { return text(PKCS7Certificate(all.signedData).getAsString()); }},
        FOUNDATION_TEST_QUERY(bundle, empty),
        FOUNDATION_TEST_QUERY(bundle, getAsBytes),
        FOUNDATION_TEST_QUERY(bundle, getCertificate),
        FOUNDATION_TEST_QUERY(bundle, getCAChain),
        FOUNDATION_TEST_QUERY(bundle, getPrivateExponent),
        FOUNDATION_TEST_QUERY(bundle, getPrivateKeyInfo),
        {"bundle.print", [](Objects const& all) { return printed(all.bundle); }},
        {"bundle <<", [](Objects const& all) { return streamed(all.bundle); }},
        {"bundle ==", [](Objects const& all) { return text(all.bundle == all.bundle); }},
        {"bundle !=", [](Objects const& all) { return text(all.bundle != PKCS12Certificate(all.bundle)); }},
        {"bundle copied",
         [](Objects const& all) { return text(PKCS12Certificate(all.bundle).getAsBytes()); }},
    };
    operations.insert(operations.end(), queries.begin(), queries.end());
}

#undef FOUNDATION_TEST_QUERY

} // namespace

Objects makeObjects()
{
    auto const root = makeRoot("root");
    auto const issuer = makeIntermediate(root, "issuer");
    auto const signer = makeSigner(issuer);
    SignedDataSpec detached;
    detached.content = content;
    detached.signers = {signer};
    detached.furtherCertificates = {issuer.certificate, root.certificate};
    detached.detached = true;
    Pkcs12Spec bundle;
    bundle.passphrase = passphrase;
    bundle.certificate = signer.certificate;
    bundle.key = signer.key;
    bundle.furtherCertificates = {issuer.certificate};
    return {
        load(signer),
        chainOf({issuer, root}),
        chainOf({signer, issuer}),
        storeOf({root}),
        PKCS7Certificate(toDer(makeSignedData(content, signer, {issuer.certificate}))),
        PKCS7Certificate(toDer(makeSignedData(detached))),
        PKCS12Certificate(toDer(makePkcs12(bundle)), passphrase),
    };
}

std::vector<ReadOperation> const& readOperations()
{
    static std::vector<ReadOperation> const all = [] {
        std::vector<ReadOperation> operations;
        appendCertificateOperations(operations);
        appendChainOperations(operations);
        appendTrustStoreOperations(operations);
        appendBundleOperations(operations);
        return operations;
    }();
    return all;
}

} // namespace foundation::test
