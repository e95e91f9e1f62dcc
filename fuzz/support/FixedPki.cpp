#include "support/FixedPki.hpp"

#include "support/pki/TestKeys.hpp"

#include <openssl/core_names.h>
#include <openssl/sha.h>

namespace foundation::fuzz {

namespace {

using test::own;
using test::require;

test::BigNumberHandle privateNumber(std::string const& name)
{
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<unsigned char const*>(name.data()), name.size(), digest);
    return own(BN_bin2bn(digest, sizeof digest, nullptr));
}

test::Bytes publicPoint(BIGNUM const* privateKey)
{
    auto const curve = own(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
    auto const point = own(EC_POINT_new(curve.get()));
    require(EC_POINT_mul(curve.get(), point.get(), privateKey, nullptr, nullptr, nullptr));
    return test::uncompressed(curve.get(), point.get());
}

test::Mutation withCrlAt(char const* path, std::string const& name, std::string const& serialNumber)
{
    return [=](test::CertificateSpec& spec) {
        fixed(name, serialNumber)(spec);
        spec.setDistributionPoints({std::string("http://crl.test") + path});
    };
}

FixedPki makeFixedPki()
{
    auto const root = test::makeRoot("root", fixed("root", "1"));
    auto const ca = test::makeIntermediate(root, "ca", withCrlAt(caCrlPath, "ca", "2"));
    auto const leaf = test::makeLeaf(ca, "leaf", withCrlAt(leafCrlPath, "leaf", "3"));
    return {root, ca, leaf};
}

} // namespace

test::KeyHandle fixedKey(std::string const& name)
{
    auto const number = privateNumber(name);
    auto const point = publicPoint(number.get());
    auto const builder = own(OSSL_PARAM_BLD_new());
    require(
        OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, SN_X9_62_prime256v1, 0));
    require(OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, number.get()));
    require(
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()));
    return test::keyFrom(*builder, "EC", EVP_PKEY_KEYPAIR);
}

FixedPki const& fixedPki()
{
    static FixedPki const pki = makeFixedPki();
    return pki;
}

test::Mutation fixed(std::string const& name, std::string const& serialNumber)
{
    return [=](test::CertificateSpec& spec) {
        spec.key = fixedKey(name);
        spec.serialNumber = serialNumber;
        spec.notBefore = startOfTime();
        spec.notAfter = endOfTime();
    };
}

test::TimeSpec startOfTime()
{
    return test::TimeSpec::at(0);
}

test::TimeSpec endOfTime()
{
    constexpr std::int64_t lastSecondOf9999 = 253402300799;
    return test::TimeSpec::at(lastSecondOf9999);
}

} // namespace foundation::fuzz
