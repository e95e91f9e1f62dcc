#include "support/Text.hpp"
#include "support/openssl/OpenSSLErrors.hpp"
#include "support/pki/TestBundles.hpp"
#include "support/pki/TestCrl.hpp"

#include <openssl/pkcs12.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

using namespace foundation::test;
using namespace std::chrono_literals;

namespace {

constexpr std::int64_t lastSecondOf9999 = 253402300799;

/// Returns the content if all signatures fit. Does not verify chains.
std::string verifiedContent(Pkcs7Handle const& pkcs7)
{
    auto const out = own(BIO_new(BIO_s_mem()));
    auto const isSound = PKCS7_verify(pkcs7.get(), nullptr, nullptr, nullptr, out.get(), PKCS7_NOVERIFY) == 1;
    return isSound ? asText(contentOf(out)) : "not verified";
}

CertificateAndKey rsaRoot()
{
    return makeRoot("rsa root", [](CertificateSpec& spec) {
        spec.key = rsaKey();
        spec.setExtension("keyUsage", "critical,keyCertSign,cRLSign,digitalSignature,keyEncipherment");
    });
}

struct OpenedPkcs12
{
    bool opened = false;
    KeyHandle key;
    X509Handle certificate;
    X509StackHandle further;
};

OpenedPkcs12 open(Pkcs12Handle const& pkcs12, char const* passphrase)
{
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* further = nullptr;
    OpenedPkcs12 result;
    result.opened = PKCS12_parse(pkcs12.get(), passphrase, &key, &certificate, &further) == 1;
    result.key.reset(key, EVP_PKEY_free);
    result.certificate.reset(certificate, X509_free);
    result.further.reset(further, [](auto* stack) { sk_X509_pop_free(stack, X509_free); });
    return result;
}

} // namespace

TEST(TestCrl, IsSignedByIssuerAndListsCertificates)
{
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    auto const crl = makeCrl(root, {revoke(leaf), {"-7"}});

    EXPECT_EQ(X509_CRL_verify(crl.get(), root.key.get()), 1);
    X509_REVOKED* entry = nullptr;
    EXPECT_EQ(X509_CRL_get0_by_cert(crl.get(), &entry, leaf.certificate.get()), 1);
    EXPECT_EQ(X509_CRL_get0_by_cert(crl.get(), &entry, root.certificate.get()), 0);
    EXPECT_EQ(X509_cmp_current_time(X509_CRL_get0_nextUpdate(crl.get())), 1);
    EXPECT_EQ(toPem(crl).find("-----BEGIN X509 CRL-----\n"), 0u);
}

TEST(TestCrl, CanHaveInvalidSignature)
{
    CleanErrorQueue const clean;
    auto const root = makeRoot("root");
    auto const byOtherKey = makeCrl(root, {}, [](CrlSpec& spec) { spec.signingKey = p256Key("other"); });
    auto const damaged = makeCrl(root, {}, [](CrlSpec& spec) { spec.damagedSignature = true; });
    EXPECT_NE(X509_CRL_verify(byOtherKey.get(), root.key.get()), 1);
    EXPECT_NE(X509_CRL_verify(damaged.get(), root.key.get()), 1);
}

TEST(TestCrl, StoresNextUpdateOfAnyKind)
{
    auto const root = makeRoot("root");
    auto const without = makeCrl(root, {}, [](CrlSpec& spec) { spec.nextUpdate.reset(); });
    EXPECT_EQ(X509_CRL_get0_nextUpdate(without.get()), nullptr);
    for (auto const& [time, text] :
         {std::pair(TimeSpec::at(lastSecondOf9999), "99991231235959Z"),
          std::pair(TimeSpec::raw(V_ASN1_GENERALIZEDTIME, "16771231000000Z"), "16771231000000Z"),
          std::pair(TimeSpec::unreadable(), "no time at all")}) {
        auto const nextUpdate = time;
        auto const crl = makeCrl(root, {}, [&](CrlSpec& spec) { spec.nextUpdate = nextUpdate; });
        auto const* const stored = X509_CRL_get0_nextUpdate(crl.get());
        EXPECT_STREQ(reinterpret_cast<char const*>(ASN1_STRING_get0_data(stored)), text);
    }
}

TEST(TestCrl, HoldsManyEntries)
{
    std::vector<RevokedEntry> entries;
    for (int number = 1; number <= 100'000; ++number) {
        entries.push_back({std::to_string(number)});
    }
    auto const root = makeRoot("root");
    auto const crl = makeCrl(root, std::move(entries));
    EXPECT_EQ(sk_X509_REVOKED_num(X509_CRL_get_REVOKED(crl.get())), 100'000);
}

TEST(TestSignedData, VerifiesUnlessChanged)
{
    CleanErrorQueue const clean;
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    auto const signedData = makeSignedData("content", leaf, {root.certificate});

    EXPECT_EQ(verifiedContent(signedData), "content");
    EXPECT_EQ(verifiedContent(withTamperedContent(signedData)), "not verified");
    EXPECT_EQ(verifiedContent(withDamagedSignature(signedData)), "not verified");
    EXPECT_EQ(sk_X509_num(signedData->d.sign->cert), 2);
    EXPECT_EQ(toPem(signedData).find("-----BEGIN PKCS7-----\n"), 0u);
}

TEST(TestSignedData, SupportsSeveralSignersAndOptions)
{
    auto const root = makeRoot("root");
    SignedDataSpec spec;
    spec.signers = {makeLeaf(root, "one"), makeLeaf(root, "two")};
    auto const both = makeSignedData(spec);
    EXPECT_EQ(sk_PKCS7_SIGNER_INFO_num(PKCS7_get_signer_info(both.get())), 2);
    EXPECT_EQ(sk_X509_num(both->d.sign->cert), 2);
    EXPECT_EQ(verifiedContent(both), "signed content");

    spec.detached = true;
    EXPECT_EQ(PKCS7_is_detached(makeSignedData(spec).get()), 1);

    spec.withoutCertificates = true;
    EXPECT_LE(sk_X509_num(makeSignedData(spec)->d.sign->cert), 0);

    spec.signers.clear();
    EXPECT_LE(sk_PKCS7_SIGNER_INFO_num(PKCS7_get_signer_info(makeSignedData(spec).get())), 0);
}

TEST(TestSignedData, SupportsEveryContentType)
{
    auto const root = rsaRoot();
    EXPECT_TRUE(PKCS7_type_is_data(makePlainData("x").get()));
    EXPECT_TRUE(PKCS7_type_is_digest(makeDigestedData("x").get()));
    EXPECT_TRUE(PKCS7_type_is_encrypted(makeEncryptedData().get()));
    EXPECT_TRUE(PKCS7_type_is_enveloped(makeEnvelopedData("x", root).get()));
    auto const both = makeSignedAndEnvelopedData("x", root, root);
    EXPECT_TRUE(PKCS7_type_is_signedAndEnveloped(both.get()));
    EXPECT_EQ(sk_X509_num(both->d.signed_and_enveloped->cert), 1);
}

TEST(TestSignedData, MayHaveNoContent)
{
    auto const parsed = parsePkcs7(contentInfoWithoutContent(NID_pkcs7_signed));
    EXPECT_TRUE(PKCS7_type_is_signed(parsed.get()));
    EXPECT_EQ(parsed->d.sign, nullptr);
}

TEST(TestPkcs12, OpensOnlyWithItsPassphrase)
{
    CleanErrorQueue const clean;
    auto const root = makeRoot("root");
    auto const leaf = makeLeaf(root, "leaf");
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = leaf.certificate;
    spec.key = leaf.key;
    spec.furtherCertificates = {root.certificate};
    spec.friendlyName = "name";

    auto const opened = open(makePkcs12(spec), "secret");

    ASSERT_TRUE(opened.opened);
    EXPECT_EQ(EVP_PKEY_eq(opened.key.get(), leaf.key.get()), 1);
    EXPECT_EQ(X509_cmp(opened.certificate.get(), leaf.certificate.get()), 0);
    EXPECT_EQ(sk_X509_num(opened.further.get()), 1);
    EXPECT_FALSE(open(makePkcs12(spec), "other").opened);
}

TEST(TestPkcs12, MayOmitAnyPart)
{
    CleanErrorQueue const clean;
    auto const root = makeRoot("root");
    Pkcs12Spec spec;
    spec.passphrase = "secret";

    spec.key = root.key;
    auto const onlyKey = open(makePkcs12(spec), "secret");
    EXPECT_TRUE(onlyKey.key);
    EXPECT_FALSE(onlyKey.certificate);

    spec.key.reset();
    spec.certificate = root.certificate;
    auto const onlyCertificate = open(makePkcs12(spec), "secret");
    EXPECT_FALSE(onlyCertificate.key);
    EXPECT_TRUE(onlyCertificate.certificate || sk_X509_num(onlyCertificate.further.get()) == 1);

    spec.withoutMac = true;
    EXPECT_EQ(PKCS12_mac_present(makePkcs12(spec).get()), 0);
}

TEST(TestPkcs12, UsesRequestedCiphers)
{
    CleanErrorQueue const clean;
    auto const root = makeRoot("root");
    Pkcs12Spec spec;
    spec.passphrase = "secret";
    spec.certificate = root.certificate;
    spec.key = root.key;

    spec.keyCipher = -1;
    spec.certificateCipher = -1;
    EXPECT_TRUE(open(makePkcs12(spec), "secret").opened);

    spec.keyCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    spec.certificateCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    EXPECT_TRUE(open(makePkcs12(spec), "secret").opened);

    spec.certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC;
    EXPECT_FALSE(open(makePkcs12(spec), "secret").opened) << "The default provider does not implement RC2.";
}
