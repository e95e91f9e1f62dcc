#include "Material.hpp"

#include "support/pki/TestKeys.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/pem.h>

#include <array>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

namespace foundation::benchmarks {

namespace {

test::KeyHandle keyOf(KeyKind kind)
{
    switch (kind) {
    case KeyKind::RSA2048:
        return test::rsaKey(2048, "typical");
    case KeyKind::P256:
        return test::p256Key("typical");
    case KeyKind::Ed25519:
        return test::ed25519Key("typical");
    }
    throw std::logic_error("no such key kind");
}

CertificateAndKey makeTypicalLeaf(KeyKind kind)
{
    auto const issuer = test::makeRoot("Typical Issuing Authority", [](test::CertificateSpec& spec) {
        spec.key = test::rsaKey(2048, "issuer");
        spec.subject = {
            {"C", "NL"},
            {"O", "Typical Authority"},
            {"OU", "Trust Services"},
            {"CN", "Typical Issuing CA 3"}};
    });
    return test::makeLeaf(issuer, "typical", [&](test::CertificateSpec& spec) {
        spec.key = keyOf(kind);
        spec.subject = {
            {"C", "NL"},
            {"ST", "Utrecht"},
            {"L", "Utrecht"},
            {"O", "Typical Organisation"},
            {"CN", "www.typical.example"}};
        spec.serialNumber = "0x4f3c2a9be1d7706512f0c4a8d3b2e1f09a8b7c";
        spec.setExtension("keyUsage", "critical,digitalSignature,keyEncipherment");
        spec.setExtension("extendedKeyUsage", "serverAuth,clientAuth");
        spec.setExtension("certificatePolicies", "2.23.140.1.2.2,1.3.6.1.4.1.44947.1.1.1");
        spec.setExtension("subjectAltName", "DNS:www.typical.example,DNS:typical.example");
        spec.setDistributionPoints({"http://crl.typical.example/ca3.crl"});
    });
}

bool isAccepted(std::string const& pem)
{
    try {
        X509Certificate const certificate(pem);
        return true;
    } catch (CertificateException const&) {
        return false;
    }
}

/// Returns the blocks of a bundle as separate texts.
std::vector<std::string> blocksOf(std::string const& bundle)
{
    constexpr std::string_view header = "-----BEGIN CERTIFICATE-----";
    constexpr std::string_view footer = "-----END CERTIFICATE-----";
    std::vector<std::string> blocks;
    auto start = bundle.find(header);
    while (start != std::string::npos) {
        auto const end = bundle.find(footer, start);
        if (end == std::string::npos) {
            break;
        }
        blocks.push_back(bundle.substr(start, end + footer.size() - start) + "\n");
        start = bundle.find(header, end);
    }
    return blocks;
}

} // namespace

CertificateAndKey const& typicalLeaf(KeyKind kind)
{
    static std::map<KeyKind, CertificateAndKey> made;
    auto const [place, isNew] = made.try_emplace(kind);
    if (isNew) {
        place->second = makeTypicalLeaf(kind);
    }
    return place->second;
}

std::vector<CertificateAndKey> roots(std::size_t count)
{
    static std::vector<CertificateAndKey> made;
    constexpr std::size_t mixedKeys = 1000;
    while (made.size() < count) {
        std::size_t const index = made.size();
        made.push_back(
            test::makeRoot("Root Authority " + std::to_string(index), [&](test::CertificateSpec& spec) {
                std::string const name = "root " + std::to_string(index % 4);
                bool const isRSA = index % 2 == 0 && index < mixedKeys;
                spec.key = isRSA ? test::rsaKey(2048, name) : test::p256Key(name);
            }));
    }
    return {made.begin(), made.begin() + static_cast<std::ptrdiff_t>(count)};
}

std::vector<CertificateAndKey> chainBelow(CertificateAndKey const& root, std::size_t length)
{
    std::vector<CertificateAndKey> chain;
    auto issuer = root;
    for (std::size_t level = length; level-- > 0;) {
        std::string const name = "Level " + std::to_string(level);
        auto const mutate = [&](test::CertificateSpec& spec) { spec.key = test::rsaKey(2048, name); };
        issuer =
            level == 0 ? test::makeLeaf(issuer, name, mutate) : test::makeIntermediate(issuer, name, mutate);
        chain.insert(chain.begin(), issuer);
    }
    return chain;
}

std::string systemBundle()
{
    std::ifstream file(getSystemCertificatesFile(), std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    std::string accepted;
    for (auto const& block : blocksOf(content.str())) {
        if (isAccepted(block)) {
            accepted += block;
        }
    }
    return accepted.empty() ? test::toPemBundle(roots(140)) : accepted;
}

bool hasFitKey(X509* certificate)
{
    EVP_PKEY const* const key = certificate == nullptr ? nullptr : X509_get0_pubkey(certificate);
    switch (key == nullptr ? EVP_PKEY_NONE : EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA:
        return EVP_PKEY_get_bits(key) >= 1024;
    case EVP_PKEY_ED25519:
        return true;
    case EVP_PKEY_EC: {
        std::array<char, 64> name{};
        return EVP_PKEY_get_group_name(key, name.data(), name.size(), nullptr) == 1 &&
               std::string_view(name.data()) == "prime256v1";
    }
    default:
        return false;
    }
}

X509_STOREUPtr bareStore(std::vector<CertificateAndKey> const& certificates)
{
    auto store = makeX509_STORE(X509_STORE_new());
    for (auto const& certificate : certificates) {
        X509_STORE_add_cert(store.get(), certificate.certificate.get());
    }
    return store;
}

X509_STOREUPtr bareCopy(X509_STORE* store)
{
    auto copy = makeX509_STORE(X509_STORE_new());
    auto const* const objects = X509_STORE_get0_objects(store);
    for (int index = 0; index < sk_X509_OBJECT_num(objects); ++index) {
        X509_STORE_add_cert(copy.get(), X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, index)));
    }
    return copy;
}

X509_STOREUPtr bareDeepCopy(X509_STORE* store)
{
    auto copy = makeX509_STORE(X509_STORE_new());
    auto const* const objects = X509_STORE_get0_objects(store);
    for (int index = 0; index < sk_X509_OBJECT_num(objects); ++index) {
        auto const duplicate =
            makeX509(X509_dup(X509_OBJECT_get0_X509(sk_X509_OBJECT_value(objects, index))));
        X509_STORE_add_cert(copy.get(), duplicate.get());
    }
    return copy;
}

void writeMaterial(std::string const& folder, std::size_t rootCount)
{
    auto const trusted = roots(rootCount);
    std::ofstream(folder + "/chain.pem") << test::toPemBundle(chainBelow(trusted.front(), 3));
    std::ofstream(folder + "/roots.pem") << test::toPemBundle(trusted);
}

} // namespace foundation::benchmarks
