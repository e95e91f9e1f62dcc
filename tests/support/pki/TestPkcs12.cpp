#include "support/pki/TestBundles.hpp"

#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"

#include <openssl/pkcs12.h>
#include <openssl/provider.h>

namespace foundation::test {

namespace {

/// A library context with the legacy ciphers. The process's default context stays unchanged.
class LegacyContext
{
public:
    OSSL_LIB_CTX* get() const { return context.get(); }

private:
    using ProviderHandle = std::shared_ptr<OSSL_PROVIDER>;

    ProviderHandle load(char const* name) const
    {
        auto* const provider = OSSL_PROVIDER_load(context.get(), name);
        require(provider ? 1 : 0);
        return {provider, OSSL_PROVIDER_unload};
    }

    std::shared_ptr<OSSL_LIB_CTX> context{OSSL_LIB_CTX_new(), OSSL_LIB_CTX_free};
    ProviderHandle defaultProvider = load("default");
    ProviderHandle legacyProvider = load("legacy");
};

OSSL_LIB_CTX* legacyContext()
{
    static LegacyContext const context;
    return context.get();
}

using BagsHandle = std::shared_ptr<STACK_OF(PKCS12_SAFEBAG)>;
using SafesHandle = std::shared_ptr<STACK_OF(PKCS7)>;

void freeBags(STACK_OF(PKCS12_SAFEBAG) * bags)
{
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}

void freeSafes(STACK_OF(PKCS7) * safes)
{
    sk_PKCS7_pop_free(safes, PKCS7_free);
}

/// Avoids OpenSSL's own default: some calls still choose a cipher of the legacy provider.
int cipherOrDefault(int cipher)
{
    return cipher == 0 ? NID_aes_256_cbc : cipher;
}

/// Adds the identifier by which readers match a key with its certificate, even if the two do not match.
void mark(PKCS12_SAFEBAG* bag, Pkcs12Spec const& spec)
{
    require(bag ? 1 : 0);
    unsigned char id[] = {1};
    require(PKCS12_add_localkeyid(bag, id, sizeof id));
    if (spec.friendlyName) {
        require(PKCS12_add_friendlyname_utf8(
            bag, spec.friendlyName->c_str(), static_cast<int>(spec.friendlyName->size())));
    }
}

BagsHandle certificateBags(Pkcs12Spec const& spec)
{
    BagsHandle bags(sk_PKCS12_SAFEBAG_new_null(), freeBags);
    auto* stack = bags.get();
    if (spec.certificate) {
        mark(PKCS12_add_cert(&stack, spec.certificate.get()), spec);
    }
    for (auto const& certificate : spec.furtherCertificates) {
        require(PKCS12_add_cert(&stack, certificate.get()) ? 1 : 0);
    }
    return bags;
}

BagsHandle keyBags(Pkcs12Spec const& spec)
{
    BagsHandle bags(sk_PKCS12_SAFEBAG_new_null(), freeBags);
    auto* stack = bags.get();
    if (spec.key) {
        auto const cipher = cipherOrDefault(spec.keyCipher);
        mark(
            PKCS12_add_key_ex(
                &stack, spec.key.get(), 0, spec.iterations, cipher, spec.passphrase.c_str(), legacyContext(),
                nullptr),
            spec);
    }
    return bags;
}

void addSafe(SafesHandle const& safes, BagsHandle const& bags, int cipher, Pkcs12Spec const& spec)
{
    if (sk_PKCS12_SAFEBAG_num(bags.get()) == 0) {
        return;
    }
    auto* stack = safes.get();
    require(PKCS12_add_safe_ex(
        &stack, bags.get(), cipher, spec.iterations, spec.passphrase.c_str(), legacyContext(), nullptr));
}

} // namespace

Pkcs12Handle makePkcs12(Pkcs12Spec const& spec)
{
    ErrorQueueMark const queue;
    SafesHandle const safes(sk_PKCS7_new_null(), freeSafes);
    addSafe(safes, certificateBags(spec), cipherOrDefault(spec.certificateCipher), spec);
    addSafe(safes, keyBags(spec), -1, spec); // key bags are encrypted one by one
    auto const pkcs12 = own(PKCS12_add_safes_ex(safes.get(), 0, legacyContext(), nullptr));
    if (!spec.withoutMac) {
        require(PKCS12_set_mac(
            pkcs12.get(), spec.passphrase.c_str(), -1, nullptr, 0, spec.iterations, spec.macDigest));
    }
    return own(d2i_PKCS12_bio(readerOf(toDer(pkcs12)).get(), nullptr));
}

Pkcs12Handle makePkcs12(CertificateAndKey const& content, std::string const& passphrase)
{
    Pkcs12Spec spec;
    spec.passphrase = passphrase;
    spec.certificate = content.certificate;
    spec.key = content.key;
    return makePkcs12(spec);
}

Bytes toDer(Pkcs12Handle const& pkcs12)
{
    return encodedBy(i2d_PKCS12, pkcs12.get());
}

} // namespace foundation::test
