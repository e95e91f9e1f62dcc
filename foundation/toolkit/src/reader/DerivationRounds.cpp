#include "reader/DerivationRounds.hpp"

#include "CertificateAccess.hpp"

#include "libcrypto/OpenSSLHandles.hpp"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <initializer_list>

namespace foundation::toolkit {

namespace {

using foundation::certificates::OpenSSLHandle;

constexpr std::int64_t tooMany = mostDerivationRounds + 1;

std::int64_t numberOf(ASN1_INTEGER const* number)
{
    std::int64_t value = 0;
    bool const isReadable = ASN1_INTEGER_get_int64(&value, number) == 1;
    return isReadable && value >= 0 ? std::min(value, tooMany) : tooMany;
}

/// Returns the product, or one more than the limit.
std::int64_t productOf(std::initializer_list<ASN1_INTEGER const*> numbers)
{
    std::int64_t product = 1;
    for (auto const* const number : numbers) {
        product = std::min(product * numberOf(number), tooMany);
    }
    return product;
}

int kindOf(X509_ALGOR const* algorithm)
{
    ASN1_OBJECT const* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    return OBJ_obj2nid(object);
}

/// Returns the algorithm's parameters; null if they are damaged.
template <typename Parameters>
OpenSSLHandle<Parameters>
parametersOf(X509_ALGOR const* algorithm, ASN1_ITEM const* form, void (*release)(Parameters*))
{
    int type = V_ASN1_UNDEF;
    void const* value = nullptr;
    X509_ALGOR_get0(nullptr, &type, &value, algorithm);
    OpenSSLHandle<Parameters> parameters(nullptr, release);
    if (type == V_ASN1_SEQUENCE) {
        runUnlessOutOfMemory([&] {
            auto const* const encoded = static_cast<ASN1_STRING const*>(value);
            parameters.reset(static_cast<Parameters*>(ASN1_item_unpack(encoded, form)));
            return parameters != nullptr;
        });
    }
    return parameters;
}

/// Returns the rounds of a derivation function that PBES2 or PBMAC1 names.
std::int64_t roundsOfFunction(X509_ALGOR const* function)
{
    switch (kindOf(function)) {
    case NID_id_pbkdf2: {
        auto const parameters =
            parametersOf<PBKDF2PARAM>(function, ASN1_ITEM_rptr(PBKDF2PARAM), PBKDF2PARAM_free);
        return parameters == nullptr ? 0 : numberOf(parameters->iter);
    }
    case NID_id_scrypt: {
        auto const parameters =
            parametersOf<SCRYPT_PARAMS>(function, ASN1_ITEM_rptr(SCRYPT_PARAMS), SCRYPT_PARAMS_free);
        return parameters == nullptr ? 0
                                     : productOf(
                                           {parameters->costParameter, parameters->blockSize,
                                            parameters->parallelizationParameter});
    }
    default:
        return 0; // OpenSSL knows no other
    }
}

/// Returns the rounds of an algorithm that derives a key from a passphrase.
std::int64_t roundsOf(X509_ALGOR const* algorithm)
{
    switch (kindOf(algorithm)) {
    case NID_pbes2:
    case NID_pbmac1: { // its parameters have the same form
        auto const scheme = parametersOf<PBE2PARAM>(algorithm, ASN1_ITEM_rptr(PBE2PARAM), PBE2PARAM_free);
        return scheme == nullptr ? 0 : roundsOfFunction(scheme->keyfunc);
    }
    default: {
        auto const parameters = parametersOf<PBEPARAM>(algorithm, ASN1_ITEM_rptr(PBEPARAM), PBEPARAM_free);
        return parameters == nullptr || parameters->iter == nullptr ? 0 : numberOf(parameters->iter);
    }
    }
}

} // namespace

std::int64_t roundsOfMAC(PKCS12 const* bundle)
{
    ASN1_INTEGER const* rounds = nullptr;
    X509_ALGOR const* algorithm = nullptr;
    PKCS12_get0_mac(nullptr, &algorithm, nullptr, &rounds, bundle);
    if (algorithm == nullptr) {
        return 0;
    }
    return std::max(roundsOf(algorithm), rounds == nullptr ? 1 : numberOf(rounds));
}

std::int64_t roundsOfPart(PKCS7 const* part)
{
    bool const isEncrypted = OBJ_obj2nid(part->type) == NID_pkcs7_encrypted;
    if (!isEncrypted || part->d.encrypted == nullptr || part->d.encrypted->enc_data == nullptr) {
        return 0;
    }
    return roundsOf(part->d.encrypted->enc_data->algorithm);
}

} // namespace foundation::toolkit
