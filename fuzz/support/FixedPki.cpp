#include "support/FixedPki.hpp"

#include "support/pki/TestKeys.hpp"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/sha.h>

#include <memory>

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
    std::shared_ptr<EC_GROUP> const group(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1), EC_GROUP_free);
    std::shared_ptr<EC_POINT> const point(EC_POINT_new(group.get()), EC_POINT_free);
    require(EC_POINT_mul(group.get(), point.get(), privateKey, nullptr, nullptr, nullptr));
    test::Bytes bytes(65);
    require(static_cast<long>(EC_POINT_point2oct(
        group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, bytes.data(), bytes.size(), nullptr)));
    return bytes;
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
    std::shared_ptr<OSSL_PARAM_BLD> const builder(OSSL_PARAM_BLD_new(), OSSL_PARAM_BLD_free);
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
