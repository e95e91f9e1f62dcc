#include "seeds/Seeds.hpp"

#include "support/FixedPki.hpp"
#include "support/InputOptions.hpp"
#include "support/Text.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestKeys.hpp"

#include <openssl/objects.h>

namespace foundation::fuzz {

namespace {

using test::Bytes;
using test::Pkcs12Spec;

using namespace pkcs12_option;

constexpr unsigned asItIs = 0;
constexpr int notEncrypted = -1;

Bytes seed(unsigned options, std::string const& passphrase, Bytes const& bundle)
{
    return joinInput({bundle, test::asBytes(passphrase), options});
}

Pkcs12Spec leafSpec()
{
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = fixedPki().leaf.certificate;
    spec.key = fixedPki().leaf.key;
    spec.furtherCertificates = {fixedPki().ca.certificate, fixedPki().root.certificate};
    spec.friendlyName = "leaf";
    return spec;
}

template <typename Mutation>
Bytes bundle(Mutation const& mutate)
{
    auto spec = leafSpec();
    mutate(spec);
    return test::toDer(test::makePkcs12(spec));
}

Bytes bundleOf(test::KeyHandle const& key)
{
    auto const certificate = test::makeSelfSignedLeaf("self", [&](test::CertificateSpec& spec) {
        fixed("self", "1")(spec);
        spec.key = key;
    });
    return bundle([&](Pkcs12Spec& spec) {
        spec.certificate = certificate.certificate;
        spec.key = key;
        spec.furtherCertificates.clear();
        spec.keyCipher = notEncrypted;
        spec.certificateCipher = notEncrypted;
    });
}

Seeds parts()
{
    auto const keyAlone = bundle([](Pkcs12Spec& spec) {
        spec.certificate = nullptr;
        spec.furtherCertificates.clear();
    });
    auto const certificateAlone = bundle([](Pkcs12Spec& spec) { spec.key = nullptr; });
    auto const nothing = bundle([](Pkcs12Spec& spec) {
        spec.certificate = nullptr;
        spec.key = nullptr;
        spec.furtherCertificates.clear();
    });
    auto const otherKey = bundle([](Pkcs12Spec& spec) { spec.key = fixedKey("other"); });
    auto const open = bundle([](Pkcs12Spec& spec) {
        spec.keyCipher = notEncrypted;
        spec.certificateCipher = notEncrypted;
    });
    return {
        {"whole", seed(thorough, "secret", bundle([](Pkcs12Spec&) {}))},
        {"whole_with_new_mac", seed(newMac, "secret", bundle([](Pkcs12Spec&) {}))},
        {"open_thoroughly", seed(newMac | thorough, "secret", open)},
        {"open", seed(newMac, "secret", open)},
        {"key_alone", seed(newMac | thorough, "secret", keyAlone)},
        {"certificate_alone", seed(newMac, "secret", certificateAlone)},
        {"nothing", seed(newMac, "secret", nothing)},
        {"key_of_another_certificate", seed(newMac, "secret", otherKey)},
    };
}

Seeds keys()
{
    return {
        {"rsa", seed(newMac | thorough, "", bundleOf(test::rsaKey()))},
        {"rsa_1024", seed(newMac, "", bundleOf(test::rsaKey(1024)))},
        {"ed25519", seed(newMac, "", bundleOf(test::ed25519Key()))},
        {"p384", seed(newMac, "", bundleOf(test::p384Key()))},
        {"explicit_p256", seed(newMac, "", bundleOf(test::explicitP256Key()))},
        {"dsa", seed(newMac, "", bundleOf(test::dsaKey()))},
    };
}

Seeds passphrases()
{
    auto const withoutMac = bundle([](Pkcs12Spec& spec) { spec.withoutMac = true; });
    auto const withoutPassphrase = bundle([](Pkcs12Spec& spec) { spec.passphrase.clear(); });
    auto const legacy = bundle([](Pkcs12Spec& spec) {
        spec.keyCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
        spec.certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC;
        spec.macDigest = EVP_sha1();
    });
    auto const costly = bundle([](Pkcs12Spec& spec) { spec.iterations = 2048; });
    return {
        {"wrong", seed(asItIs, "secrets", bundle([](Pkcs12Spec&) {}))},
        {"zero_inside", seed(newMac, std::string("sec\0ret", 7), bundle([](Pkcs12Spec&) {}))},
        {"zero_behind", seed(newMac, std::string("secret\0", 7), bundle([](Pkcs12Spec&) {}))},
        {"beyond_ascii", seed(newMac, "\xC3\xA9\xF0\x9F\x94\x91", withoutPassphrase)},
        {"not_utf8", seed(newMac, "\xFF\xFE", withoutPassphrase)},
        {"none", seed(asItIs, "", withoutPassphrase)},
        {"without_mac", seed(asItIs, "secret", withoutMac)},
        {"legacy", seed(asItIs, "secret", legacy)},
        {"costly", seed(asItIs, "secret", costly)},
    };
}

} // namespace

Seeds pkcs12Seeds()
{
    Seeds seeds = parts();
    seeds.merge(keys());
    seeds.merge(passphrases());
    seeds["not_a_bundle"] = seed(asItIs, "", fixedPki().leaf.der());
    seeds["empty"] = seed(asItIs, "", {});
    return seeds;
}

} // namespace foundation::fuzz
