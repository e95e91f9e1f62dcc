#include "support/pki/TestKeys.hpp"

#include "support/openssl/Encoding.hpp"
#include "support/openssl/OpenSSLErrors.hpp"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>

namespace foundation::test {

namespace {

/// Returns the process's key of that kind and name. Generates it on first use.
KeyHandle cached(std::string const& kind, std::string const& name, std::function<KeyHandle()> const& generate)
{
    static std::mutex mutex;
    static std::map<std::string, KeyHandle> keys;
    std::lock_guard const lock(mutex);
    auto& key = keys[kind + '/' + name];
    if (!key) {
        ErrorQueueMark const mark;
        key = generate();
    }
    return key;
}

KeyHandle generateFrom(KeyContextHandle const& context)
{
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_keygen(context.get(), &key));
    return own(key);
}

KeyContextHandle generatorFor(int type)
{
    auto context = own(EVP_PKEY_CTX_new_id(type, nullptr));
    require(EVP_PKEY_keygen_init(context.get()));
    return context;
}

KeyHandle generateRsa(int type, unsigned bits)
{
    auto const context = generatorFor(type);
    require(EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)));
    return generateFrom(context);
}

KeyHandle generateEc(int curve, int encoding = OPENSSL_EC_NAMED_CURVE)
{
    auto const context = generatorFor(EVP_PKEY_EC);
    require(EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), curve));
    require(EVP_PKEY_CTX_set_ec_param_enc(context.get(), encoding));
    return generateFrom(context);
}

KeyHandle namedEcKey(int curve, std::string const& name)
{
    return cached(OBJ_nid2sn(curve), name, [curve] { return generateEc(curve); });
}

KeyHandle keyWithoutParameters(int type, std::string const& name)
{
    return cached(OBJ_nid2sn(type), name, [type] { return generateFrom(generatorFor(type)); });
}

/// Returns the group of RFC 5114, section 2.3, which OpenSSL knows for Diffie-Hellman.
KeyHandle wellKnownGroup()
{
    auto const context = own(EVP_PKEY_CTX_new_from_name(nullptr, "DHX", nullptr));
    require(EVP_PKEY_paramgen_init(context.get()));
    char group[] = "dh_2048_256";
    OSSL_PARAM const parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, group, 0), OSSL_PARAM_construct_end()};
    require(EVP_PKEY_CTX_set_params(context.get(), parameters));
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_paramgen(context.get(), &key));
    return own(key);
}

BigNumberHandle numberOf(KeyHandle const& key, char const* parameter)
{
    BIGNUM* number = nullptr;
    require(EVP_PKEY_get_bn_param(key.get(), parameter, &number));
    return own(number);
}

KeyHandle dsaParameters()
{
    auto const group = wellKnownGroup();
    auto const p = numberOf(group, OSSL_PKEY_PARAM_FFC_P);
    auto const q = numberOf(group, OSSL_PKEY_PARAM_FFC_Q);
    auto const g = numberOf(group, OSSL_PKEY_PARAM_FFC_G);
    auto const builder = own(OSSL_PARAM_BLD_new());
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_FFC_P, p.get()));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_FFC_Q, q.get()));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_FFC_G, g.get()));
    return keyFrom(*builder, "DSA", EVP_PKEY_KEY_PARAMETERS);
}

/// Generates a key over the parameters of another key.
KeyHandle generateOver(KeyHandle const& parameters)
{
    auto const context = own(EVP_PKEY_CTX_new_from_pkey(nullptr, parameters.get(), nullptr));
    require(EVP_PKEY_keygen_init(context.get()));
    return generateFrom(context);
}

/// Returns a point of the curve that is not its usual generator: the generator's double.
Bytes otherGeneratorOf(EC_GROUP const* curve)
{
    auto const point = own(EC_POINT_new(curve));
    require(EC_POINT_dbl(curve, point.get(), EC_GROUP_get0_generator(curve), nullptr));
    return uncompressed(curve, point.get());
}

/// Returns parameters of prime256v1 with another generator, so that they have no name.
KeyHandle namelessCurve()
{
    auto const curve = own(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
    auto const p = own(BN_new());
    auto const a = own(BN_new());
    auto const b = own(BN_new());
    require(EC_GROUP_get_curve(curve.get(), p.get(), a.get(), b.get(), nullptr));
    auto const generator = otherGeneratorOf(curve.get());

    auto const builder = own(OSSL_PARAM_BLD_new());
    require(OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_EC_FIELD_TYPE, "prime-field", 0));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_EC_P, p.get()));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_EC_A, a.get()));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_EC_B, b.get()));
    require(
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_EC_ORDER, EC_GROUP_get0_order(curve.get())));
    require(OSSL_PARAM_BLD_push_octet_string(
        builder.get(), OSSL_PKEY_PARAM_EC_GENERATOR, generator.data(), generator.size()));
    return keyFrom(*builder, "EC", EVP_PKEY_KEY_PARAMETERS);
}

} // namespace

KeyHandle p256Key(std::string const& name)
{
    return namedEcKey(NID_X9_62_prime256v1, name);
}

KeyHandle rsaKey(unsigned bits, std::string const& name)
{
    return cached("RSA" + std::to_string(bits), name, [bits] { return generateRsa(EVP_PKEY_RSA, bits); });
}

KeyHandle rsaPssKey(unsigned bits, std::string const& name)
{
    return cached("PSS" + std::to_string(bits), name, [bits] { return generateRsa(EVP_PKEY_RSA_PSS, bits); });
}

KeyHandle p384Key(std::string const& name)
{
    return namedEcKey(NID_secp384r1, name);
}

KeyHandle p521Key(std::string const& name)
{
    return namedEcKey(NID_secp521r1, name);
}

KeyHandle secp256k1Key(std::string const& name)
{
    return namedEcKey(NID_secp256k1, name);
}

KeyHandle explicitP256Key(std::string const& name)
{
    return cached("explicit prime256v1", name, [] {
        return generateEc(NID_X9_62_prime256v1, OPENSSL_EC_EXPLICIT_CURVE);
    });
}

KeyHandle namelessCurveKey(std::string const& name)
{
    return cached("nameless curve", name, [] { return generateOver(namelessCurve()); });
}

bool acceptsNamelessCurves()
{
    static bool const accepts = [] {
        ErrorQueueMark const mark;
        try {
            namelessCurveKey();
            return true;
        } catch (std::runtime_error const&) {
            return false;
        }
    }();
    return accepts;
}

KeyHandle ed25519Key(std::string const& name)
{
    return keyWithoutParameters(EVP_PKEY_ED25519, name);
}

KeyHandle ed448Key(std::string const& name)
{
    return keyWithoutParameters(EVP_PKEY_ED448, name);
}

KeyHandle x25519Key(std::string const& name)
{
    return keyWithoutParameters(EVP_PKEY_X25519, name);
}

KeyHandle dsaKey(std::string const& name)
{
    return cached("DSA", name, [] { return generateOver(dsaParameters()); });
}

Bytes uncompressed(EC_GROUP const* curve, EC_POINT const* point)
{
    auto const write = [&](unsigned char* bytes, std::size_t size) {
        return EC_POINT_point2oct(curve, point, POINT_CONVERSION_UNCOMPRESSED, bytes, size, nullptr);
    };
    Bytes bytes(write(nullptr, 0));
    require(static_cast<long>(write(bytes.data(), bytes.size())));
    return bytes;
}

KeyHandle keyFrom(OSSL_PARAM_BLD& builder, char const* type, int selection)
{
    std::shared_ptr<OSSL_PARAM> const parameters(OSSL_PARAM_BLD_to_param(&builder), OSSL_PARAM_free);
    auto const context = own(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    require(EVP_PKEY_fromdata_init(context.get()));
    EVP_PKEY* key = nullptr;
    require(EVP_PKEY_fromdata(context.get(), &key, selection, parameters.get()));
    return own(key);
}

std::string toPem(KeyHandle const& key, std::string const& passphrase)
{
    return asText(writtenBy(
        PEM_write_bio_PKCS8PrivateKey, key.get(), passphrase.empty() ? nullptr : EVP_aes_256_cbc(),
        passphrase.data(), static_cast<int>(passphrase.size()), nullptr, nullptr));
}

Bytes publicKeyDer(KeyHandle const& key)
{
    return encodedBy(i2d_PUBKEY, key.get());
}

Bytes namelessCurveDer()
{
    auto const curve = own(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
    auto const usual = uncompressed(curve.get(), EC_GROUP_get0_generator(curve.get()));
    auto const other = otherGeneratorOf(curve.get());
    auto encoding = publicKeyDer(explicitP256Key());
    auto const place = std::search(encoding.begin(), encoding.end(), usual.begin(), usual.end());
    require(place != encoding.end());
    std::copy(other.begin(), other.end(), place);
    return encoding;
}

Bytes privateKeyDer(KeyHandle const& key)
{
    return writtenBy(i2d_PKCS8PrivateKeyInfo_bio, key.get());
}

} // namespace foundation::test
