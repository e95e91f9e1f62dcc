#include "support/KeyDerivationCost.hpp"
#include "support/openssl/OpenSSLErrors.hpp"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstdint>
#include <limits>
#include <memory>

namespace foundation::fuzz {

namespace {

using Bags = STACK_OF(PKCS12_SAFEBAG);

/// Small enough that no sum overflows.
constexpr long long tooMany = std::numeric_limits<std::int32_t>::max();

long long roundsOf(ASN1_INTEGER const* count)
{
    std::int64_t rounds = 1;
    if (count != nullptr && ASN1_INTEGER_get_int64(&rounds, count) != 1) {
        return tooMany;
    }
    return rounds < 0 || rounds > tooMany ? tooMany : rounds;
}

template <typename Parameters>
std::shared_ptr<Parameters>
parametersOf(X509_ALGOR const* algorithm, ASN1_ITEM const* form, void (*release)(Parameters*))
{
    test::ErrorQueueMark const mark; // all errors of one bundle would not fit into the queue
    return {static_cast<Parameters*>(ASN1_TYPE_unpack_sequence(form, algorithm->parameter)), release};
}

/// Returns the rounds of PBES2, which names its derivation function.
long long roundsOfScheme2(X509_ALGOR const* algorithm)
{
    auto const scheme = parametersOf<PBE2PARAM>(algorithm, ASN1_ITEM_rptr(PBE2PARAM), PBE2PARAM_free);
    if (scheme == nullptr || OBJ_obj2nid(scheme->keyfunc->algorithm) != NID_id_pbkdf2) {
        return scheme == nullptr ? 0 : tooMany;
    }
    auto const function =
        parametersOf<PBKDF2PARAM>(scheme->keyfunc, ASN1_ITEM_rptr(PBKDF2PARAM), PBKDF2PARAM_free);
    return function == nullptr ? 0 : roundsOf(function->iter);
}

/// Returns 0 for unreadable parameters, because nothing is derived from them.
long long roundsOf(X509_ALGOR const* algorithm)
{
    if (algorithm == nullptr) {
        return 0;
    }
    if (OBJ_obj2nid(algorithm->algorithm) == NID_pbes2) {
        return roundsOfScheme2(algorithm);
    }
    auto const parameters = parametersOf<PBEPARAM>(algorithm, ASN1_ITEM_rptr(PBEPARAM), PBEPARAM_free);
    return parameters == nullptr ? 0 : roundsOf(parameters->iter);
}

long long roundsOf(Bags const* bags);

long long roundsOf(PKCS12_SAFEBAG const* bag)
{
    switch (PKCS12_SAFEBAG_get_nid(bag)) {
    case NID_pkcs8ShroudedKeyBag: {
        auto const* const shrouded = PKCS12_SAFEBAG_get0_pkcs8(bag);
        X509_ALGOR const* algorithm = nullptr;
        if (shrouded != nullptr) {
            X509_SIG_get0(shrouded, &algorithm, nullptr);
        }
        return roundsOf(algorithm);
    }
    case NID_safeContentsBag:
        return roundsOf(PKCS12_SAFEBAG_get0_safes(bag));
    default:
        return 0;
    }
}

long long roundsOf(Bags const* bags)
{
    long long rounds = 0;
    for (int index = 0; index < sk_PKCS12_SAFEBAG_num(bags); ++index) {
        rounds += roundsOf(sk_PKCS12_SAFEBAG_value(bags, index));
    }
    return rounds;
}

std::shared_ptr<Bags> own(Bags* bags)
{
    return {bags, [](Bags* stack) { sk_PKCS12_SAFEBAG_pop_free(stack, PKCS12_SAFEBAG_free); }};
}

/// Includes the bags of the encrypted part only if decrypting it takes few rounds.
long long roundsOfEncrypted(PKCS7* part, std::string const& passphrase)
{
    if (part->d.encrypted == nullptr || part->d.encrypted->enc_data == nullptr) {
        return 0;
    }
    auto const rounds = roundsOf(part->d.encrypted->enc_data->algorithm);
    constexpr long long fewEnough = 10000;
    if (rounds > fewEnough) {
        return rounds;
    }
    test::ErrorQueueMark const mark;
    auto const bags = own(PKCS12_unpack_p7encdata(part, passphrase.c_str(), -1));
    return rounds + roundsOf(bags.get());
}

long long roundsOfPart(PKCS7* part, std::string const& passphrase)
{
    if (PKCS7_type_is_encrypted(part)) {
        return roundsOfEncrypted(part, passphrase);
    }
    return PKCS7_type_is_data(part) ? roundsOf(own(PKCS12_unpack_p7data(part)).get()) : 0;
}

} // namespace

long long keyDerivationRounds(test::Pkcs12Handle const& bundle, std::string const& passphrase)
{
    ASN1_INTEGER const* macRounds = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &macRounds, bundle.get());
    auto rounds = PKCS12_mac_present(bundle.get()) ? roundsOf(macRounds) : 0;
    std::shared_ptr<STACK_OF(PKCS7)> const parts(
        PKCS12_unpack_authsafes(bundle.get()),
        [](STACK_OF(PKCS7) * stack) { sk_PKCS7_pop_free(stack, PKCS7_free); });
    for (int index = 0; index < sk_PKCS7_num(parts.get()); ++index) {
        rounds += roundsOfPart(sk_PKCS7_value(parts.get(), index), passphrase);
    }
    return rounds;
}

} // namespace foundation::fuzz
