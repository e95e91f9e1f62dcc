#include "support/pki/Signing.hpp"

#include "support/openssl/Encoding.hpp"

#include <openssl/rsa.h>

#include <algorithm>
#include <stdexcept>

namespace foundation::test {

namespace {

bool prescribesDigest(KeyHandle const& key)
{
    return EVP_PKEY_is_a(key.get(), "ED25519") == 1 || EVP_PKEY_is_a(key.get(), "ED448") == 1;
}

BigNumberHandle parseNumber(std::string const& text)
{
    auto const negative = text.compare(0, 1, "-") == 0;
    auto const digits = text.substr(negative ? 1 : 0);
    auto const hexadecimal = digits.compare(0, 2, "0x") == 0;
    BIGNUM* parsed = nullptr;
    auto const used =
        hexadecimal ? BN_hex2bn(&parsed, digits.c_str() + 2) : BN_dec2bn(&parsed, digits.c_str());
    auto const number = own(parsed);
    if (static_cast<std::size_t>(used) != digits.size() - (hexadecimal ? 2 : 0)) {
        throw std::logic_error("Not a number: " + text);
    }
    BN_set_negative(number.get(), negative);
    return number;
}

ExtensionHandle makeRawExtension(ExtensionSpec const& spec)
{
    auto const object = own(OBJ_txt2obj(spec.name.c_str(), 0));
    auto const content = own(ASN1_STRING_type_new(V_ASN1_OCTET_STRING));
    auto const& bytes = *spec.rawContent;
    require(ASN1_STRING_set(content.get(), bytes.data(), static_cast<int>(bytes.size())));
    return own(X509_EXTENSION_create_by_OBJ(nullptr, object.get(), spec.rawCritical, content.get()));
}

void pushUri(GENERAL_NAMES* names, std::string const& uri)
{
    auto const text = own(ASN1_STRING_type_new(V_ASN1_IA5STRING));
    require(ASN1_STRING_set(text.get(), uri.data(), static_cast<int>(uri.size())));
    std::shared_ptr<GENERAL_NAME> const name(GENERAL_NAME_new(), GENERAL_NAME_free);
    GENERAL_NAME_set0_value(name.get(), GEN_URI, ASN1_STRING_dup(text.get()));
    require(sk_GENERAL_NAME_push(names, GENERAL_NAME_dup(name.get())));
}

void pushDistributionPoint(CRL_DIST_POINTS* points, std::vector<std::string> const& uris)
{
    auto* const point = DIST_POINT_new();
    require(sk_DIST_POINT_push(points, point));
    point->distpoint = DIST_POINT_NAME_new();
    point->distpoint->type = 0; // a full name, not one relative to the issuer
    point->distpoint->name.fullname = GENERAL_NAMES_new();
    for (auto const& uri : uris) {
        pushUri(point->distpoint->name.fullname, uri);
    }
}

} // namespace

AsnStringHandle makeSerial(std::string const& number)
{
    return own(BN_to_ASN1_INTEGER(parseNumber(number).get(), nullptr));
}

std::shared_ptr<CONF> parseSections(std::string const& text)
{
    std::shared_ptr<CONF> sections(NCONF_new(nullptr), NCONF_free);
    Bytes bytes(text.begin(), text.end());
    bytes.push_back('\n');
    long errorLine = 0;
    require(NCONF_load_bio(sections.get(), readerOf(bytes).get(), &errorLine));
    return sections;
}

ExtensionHandle makeExtension(ExtensionSpec const& spec, X509V3_CTX& context)
{
    if (spec.rawContent) {
        return makeRawExtension(spec);
    }
    auto* const sections = static_cast<CONF*>(context.db);
    return own(X509V3_EXT_nconf(sections, &context, spec.name.c_str(), spec.text.c_str()));
}

DigestContextHandle startSigning(KeyHandle const& key, EVP_MD const* digest, bool pss)
{
    auto context = own(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyContext = nullptr;
    auto const* const chosen = prescribesDigest(key) ? nullptr : digest;
    require(EVP_DigestSignInit(context.get(), &keyContext, chosen, nullptr, key.get()));
    if (pss) {
        require(EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING));
        require(EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST));
    }
    return context;
}

Bytes signatureOf(Bytes const& bytes, DigestContextHandle const& context)
{
    std::size_t size = 0;
    require(EVP_DigestSign(context.get(), nullptr, &size, bytes.data(), bytes.size()));
    Bytes signature(size);
    require(EVP_DigestSign(context.get(), signature.data(), &size, bytes.data(), bytes.size()));
    signature.resize(size);
    return signature;
}

Bytes distributionPointsContent(std::vector<std::vector<std::string>> const& points)
{
    std::shared_ptr<CRL_DIST_POINTS> const list(CRL_DIST_POINTS_new(), CRL_DIST_POINTS_free);
    for (auto const& uris : points) {
        pushDistributionPoint(list.get(), uris);
    }
    return encodedBy(i2d_CRL_DIST_POINTS, list.get());
}

} // namespace foundation::test
