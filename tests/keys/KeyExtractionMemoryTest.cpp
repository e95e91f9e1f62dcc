#include "support/allocation/AllocationFailure.hpp"
#include "support/pki/TestKeys.hpp"

#include "keys/KeyExtraction.hpp"

#include <foundation/certificates/Exceptions.hpp>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// A key as decoded from a certificate or a bundle, before OpenSSL has converted any part of it.
struct Key
{
    KeyHandle key;
};

std::string rendered(Key const& key)
{
    return toPem(key.key);
}

Key read(Bytes const& der)
{
    unsigned char const* position = der.data();
    return {own(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(der.size())))};
}

struct Curve
{
    EC_GROUPUPtr group = makeEC_GROUPUPtr(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
};

std::string rendered(Curve const& curve)
{
    return std::to_string(EC_GROUP_get_curve_name(curve.group.get()));
}

OperationOn<Key> sanityCheck()
{
    return {"sanityCheckEVPKey", [](Key& k) { return static_cast<int>(sanityCheckEVPKey(k.key.get())); }};
}

OperationOn<Key> curve(AllowedOutcomes const& outcomes)
{
    return {
        "getECCCurveFromEVPKey", [](Key& k) { return static_cast<int>(getECCCurveFromEVPKey(k.key.get())); },
        outcomes};
}

OperationOn<Key> privateInteger(AllowedOutcomes const& outcomes)
{
    return {
        "getECCPrivateIntegerFromEVPKey", [](Key& k) { return getECCPrivateIntegerFromEVPKey(k.key.get()); },
        outcomes};
}

/// An empty answer means that nothing was read.
OperationOn<Key> publicPoint()
{
    return {
        "readPublicKeyInfo, point",
        [](Key& k) {
            auto const info = readPublicKeyInfo(k.key.get());
            return info ? info->getECCPublicPoint() : ByteArray();
        },
        orEmptyAnswer()};
}

OperationOn<Key> modulus()
{
    return {
        "readPublicKeyInfo, modulus",
        [](Key& k) {
            auto const info = readPublicKeyInfo(k.key.get());
            return info ? info->getRSAModulus() : ByteArray();
        },
        orEmptyAnswer()};
}

Failure const noParameters =
    failure<CertificateException>("Fail to create OSSL_PARAMUPtr; the given raw pointer is NULL");
Failure const noPublicKey =
    failure<CertificateException>("Could not extract public key information from EVP_PKEY");
Failure const noPrivateKey =
    failure<CertificateException>("Failed to extract information from private EVP_PKEY.");
Failure const noNumber =
    failure<CertificateException>("Failed to initialize BIGNUM with private integer data.");
Failure const noContext =
    failure<CertificateException>("Fail to create BN_CTXUPtr; the given raw pointer is NULL");
Failure const noPoint =
    failure<CertificateException>("Fail to create EC_POINTUPtr; the given raw pointer is NULL");
Failure const noOctets = failure<CertificateException>("Failed to convert EC_POINT to ByteArray");
Failure const noConversion =
    failure<CertificateException>("Failed to convert point from bytes to an EC_POINT");

std::vector<OperationOn<Curve>> conversions()
{
    auto const pointAsBytes = [](Curve& curve) {
        return ecPointToByteArray(EC_GROUP_get0_generator(curve.group.get()), curve.group.get());
    };
    Curve p256;
    auto const bytesAsPoint = [bytes = pointAsBytes(p256)](Curve& curve) {
        return byteArrayToECPoint(bytes, curve.group.get()) != nullptr;
    };
    auto const numberAsBytes = [](Curve& curve) {
        return bigNumToByteArray(EC_GROUP_get0_order(curve.group.get()));
    };
    return {
        {"ecPointToByteArray", pointAsBytes, failsWith(Failures{noContext, noOctets})},
        {"byteArrayToECPoint", bytesAsPoint, failsWith(Failures{noContext, noPoint, noConversion})},
        {"bigNumToByteArray", numberAsBytes},
    };
}

std::vector<SweptOperation> withKey(KeyHandle const& key, std::vector<OperationOn<Key>> const& table)
{
    return operationsOn<Key>(
        "", [der = privateKeyDer(key)] { return read(der); }, table);
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(
    P256,
    withKey(
        p256Key(), {sanityCheck(), publicPoint(), curve(failsWith(Failures{noPublicKey, noParameters})),
                    privateInteger(failsWith(Failures{noPrivateKey, noPublicKey, noParameters, noNumber}))}));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Ed25519, withKey(
                 ed25519Key(), {sanityCheck(), publicPoint(), curve({}),
                                privateInteger(failsWith(Failures{noPrivateKey, noParameters}))}));
FOUNDATION_TEST_ALLOCATION_FAILURE(RSA, withKey(rsaKey(), {sanityCheck(), modulus()}));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Conversions, operationsOn<Curve>(
                     "", [] { return Curve(); }, conversions()));
