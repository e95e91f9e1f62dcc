#include "seeds/Seeds.hpp"
#include "support/InputOptions.hpp"
#include "support/Text.hpp"
#include "support/pki/EncryptedPem.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"
#include "support/pki/TestPki.hpp"

namespace foundation::fuzz {

namespace {

using test::Bytes;

Bytes seedOf(Bytes const& content, std::string const& passphrase = "")
{
    return joinInput({content, bytesOf(passphrase), 0});
}

} // namespace

Seeds certificateReaderSeeds()
{
    Seeds seeds;
    for (auto const& [name, certificate] : certificatesOfManyKinds()) {
        seeds["der-" + name] = seedOf(certificate);
        seeds["der-twice-" + name] = seedOf(test::joined({certificate, certificate}));
    }
    auto const root = test::makeRoot("root");
    auto const leaf = test::makeLeaf(root, "leaf");
    auto const pem = root.pem() + leaf.pem();
    auto const signedData = test::toDer(test::makeSignedData("content", leaf, {root.certificate}));
    auto const bundle = test::toDer(test::makePkcs12(leaf, "secret"));
    test::Pkcs12Spec plain;
    plain.certificate = leaf.certificate;
    plain.furtherCertificates = {root.certificate};
    plain.certificateCipher = -1;
    plain.withoutMac = true;
    seeds["pem"] = seedOf(bytesOf(pem));
    seeds["pem-unfinished"] = seedOf(bytesOf(root.pem().substr(0, 200) + "\n" + leaf.pem()));
    seeds["pem-after-der"] = seedOf(test::joined({root.der(), bytesOf("\n" + leaf.pem())}));
    seeds["pem-with-key"] = seedOf(bytesOf(test::toPem(leaf.key) + leaf.pem()));
    seeds["pem-encrypted"] = seedOf(bytesOf(test::toEncryptedPem(root.certificate)));
    seeds["pem-pkcs7"] = seedOf(bytesOf(test::toPem(test::parsePkcs7(signedData)) + pem));
    seeds["pkcs7"] = seedOf(signedData);
    seeds["pkcs12"] = seedOf(bundle, "secret");
    seeds["pkcs12-wrong-passphrase"] = seedOf(bundle, "Secret");
    seeds["pkcs12-plain"] = seedOf(test::toDer(test::makePkcs12(plain)));
    return seeds;
}

} // namespace foundation::fuzz
