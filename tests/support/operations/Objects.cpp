#include "support/operations/Objects.hpp"

#include "support/operations/Loading.hpp"
#include "support/pki/SelfSigned.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"

#include <memory>

namespace foundation::test {

using namespace certificates;

namespace {

constexpr char const passphrase[] = "secret";

CertificateAndKey makeSigner(CertificateAndKey const& issuer)
{
    return makeLeaf(issuer, "signer", [](CertificateSpec& spec) {
        spec.key = rsaKey(1024);
        spec.setExtension("keyUsage", "digitalSignature");
        spec.setExtension(
            "extendedKeyUsage", "emailProtection,codeSigning"); // PKCS7_verify asks for the first
        spec.setExtension("certificatePolicies", "1.2.3.4");
    });
}

SignedDataSpec detachedBy(CertificateAndKey const& signer, std::vector<X509Handle> const& furtherCertificates)
{
    SignedDataSpec spec;
    spec.content = signedContent;
    spec.signers = {signer};
    spec.furtherCertificates = furtherCertificates;
    spec.detached = true;
    return spec;
}

Pkcs12Spec bundleOf(CertificateAndKey const& leaf, CertificateAndKey const& issuer)
{
    Pkcs12Spec spec;
    spec.passphrase = passphrase;
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.furtherCertificates = {issuer.certificate};
    return spec;
}

} // namespace

Objects makeObjects()
{
    auto const root = makeRoot("root");
    auto const issuer = makeIntermediate(root, "issuer");
    auto const signer = makeSigner(issuer);
    return {
        load(signer),
        chainOf({issuer, root}),
        chainOf({signer, issuer}),
        storeOf({root}),
        PKCS7Certificate(toDer(makeSignedData(signedContent, signer, {issuer.certificate}))),
        PKCS7Certificate(toDer(makeSignedData(detachedBy(signer, {issuer.certificate, root.certificate})))),
        PKCS12Certificate(toDer(makePkcs12(bundleOf(signer, issuer))), passphrase),
        fastBuilder(),
    };
}

Objects const& sharedObjects()
{
    // Never destroyed: a verification that runs out of memory leaks references to its certificates in
    // OpenSSL.
    static Objects const* const objects = std::make_unique<Objects>(makeObjects()).release();
    return *objects;
}

} // namespace foundation::test
