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
using test::Pkcs7Handle;
using test::SignedDataSpec;

using namespace pkcs7_option;

constexpr unsigned nothingKnown = 0;

Bytes seed(unsigned options, Bytes const& signedData, std::string const& detachedContent = "")
{
    return joinInput({signedData, test::asBytes(detachedContent), options});
}

Bytes seed(unsigned options, Pkcs7Handle const& signedData, std::string const& detachedContent = "")
{
    return seed(options, test::toDer(signedData), detachedContent);
}

SignedDataSpec signedByLeaf()
{
    SignedDataSpec spec;
    spec.content = "content";
    spec.signers = {fixedPki().leaf};
    spec.furtherCertificates = {fixedPki().ca.certificate};
    return spec;
}

template <typename Mutation>
Pkcs7Handle mutated(Mutation const& mutate)
{
    auto spec = signedByLeaf();
    mutate(spec);
    return test::makeSignedData(spec);
}

test::CertificateAndKey rsaSigner()
{
    return test::makeLeaf(fixedPki().ca, "rsa", [](test::CertificateSpec& spec) {
        fixed("rsa", "5")(spec);
        spec.key = test::rsaKey();
    });
}

/// Returns a signer with a valid chain that OpenSSL does not accept as a signer.
test::CertificateAndKey server()
{
    return test::makeLeaf(fixedPki().ca, "server", [](test::CertificateSpec& spec) {
        fixed("server", "6")(spec);
        spec.setExtension("extendedKeyUsage", "serverAuth");
    });
}

Seeds validData()
{
    auto const good = test::makeSignedData(signedByLeaf());
    auto const lonely = mutated([](SignedDataSpec& spec) { spec.furtherCertificates.clear(); });
    auto const rsa = mutated([](SignedDataSpec& spec) { spec.signers = {rsaSigner()}; });
    auto const byServer = mutated([](SignedDataSpec& spec) { spec.signers = {server()}; });
    auto const plain = mutated([](SignedDataSpec& spec) { spec.withoutAttributes = true; });
    auto const byTwo = mutated([](SignedDataSpec& spec) {
        spec.signers = {fixedPki().leaf, fixedPki().ca};
        spec.furtherCertificates.clear();
    });
    auto const detached = mutated([](SignedDataSpec& spec) { spec.detached = true; });
    return {
        {"good", seed(nothingKnown, good)},
        {"good_thoroughly", seed(thorough, good)},
        {"good_pem", seed(thorough, test::asBytes(test::toPem(good)))},
        {"text_before_pem", seed(nothingKnown, test::asBytes("text\n" + test::toPem(good)))},
        {"rsa", seed(nothingKnown, rsa)},
        {"ca_is_known", seed(knowsCa, lonely)},
        {"ca_is_unknown", seed(nothingKnown, lonely)},
        {"unrelated_root_is_trusted", seed(trustsUnrelatedRoot, good)},
        {"server", seed(knowsCa, byServer)},
        {"without_attributes", seed(nothingKnown, plain)},
        {"two_signers", seed(thorough, byTwo)},
        {"detached", seed(nothingKnown, detached, "content")},
        {"detached_without_content", seed(nothingKnown, detached)},
        {"content_inside_and_beside", seed(knowsCa, good, "content")},
    };
}

Seeds brokenData()
{
    auto const good = test::makeSignedData(signedByLeaf());
    auto const withoutCertificates = mutated([](SignedDataSpec& spec) {
        spec.withoutCertificates = true;
        spec.furtherCertificates.clear();
    });
    auto const withoutSigners = mutated([](SignedDataSpec& spec) { spec.signers.clear(); });
    return {
        {"without_certificates", seed(thorough, withoutCertificates)},
        {"without_signers", seed(nothingKnown, withoutSigners)},
        {"tampered", seed(nothingKnown, test::withTamperedContent(good))},
        {"damaged_signature", seed(nothingKnown, test::withDamagedSignature(good))},
        {"other_content", seed(nothingKnown, good, "another")},
        {"not_pem", seed(nothingKnown, test::asBytes("-----BEGIN PKCS7-----\nAAAA\n-----END PKCS7-----\n"))},
        {"certificate", seed(nothingKnown, fixedPki().leaf.der())},
        {"empty", seed(nothingKnown, Bytes())},
    };
}

Seeds otherTypes()
{
    auto const recipient = rsaSigner();
    auto const enveloped = test::makeSignedAndEnvelopedData("content", fixedPki().leaf, recipient);
    return {
        {"plain_data", seed(nothingKnown, test::makePlainData("content"))},
        {"digested", seed(nothingKnown, test::makeDigestedData("content"))},
        {"encrypted", seed(nothingKnown, test::makeEncryptedData())},
        {"enveloped", seed(nothingKnown, test::makeEnvelopedData("content", recipient))},
        {"signed_and_enveloped", seed(thorough, enveloped)},
        {"signed_without_body", seed(nothingKnown, test::contentInfoWithoutContent(NID_pkcs7_signed))},
    };
}

} // namespace

Seeds pkcs7Seeds()
{
    Seeds seeds = validData();
    seeds.merge(brokenData());
    seeds.merge(otherTypes());
    return seeds;
}

} // namespace foundation::fuzz
