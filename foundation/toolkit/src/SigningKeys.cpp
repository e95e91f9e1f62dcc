#include "SigningKeys.hpp"

#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/core_names.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

/// What OpenSSL's security level 1 asks for, which is the default of TLS and of PathOptions.
constexpr int leastSecurityBits = 80;

bool hasExplicitParameters(EVP_PKEY* key)
{
    int isExplicit = 0;
    throwIfNotOne<CertificateException>(
        EVP_PKEY_get_int_param(key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS, &isExplicit),
        "Internal error: The curve of the key could not be read.");
    return isExplicit != 0;
}

} // namespace

bool isOfKind(EVP_PKEY const* key, std::string_view kind)
{
    char const* const name = EVP_PKEY_get0_type_name(key);
    return name != nullptr && name == kind;
}

void requireCertifiableKey(EVP_PKEY* key)
{
    constexpr std::array<std::string_view, 5> kinds{"RSA", "RSA-PSS", "EC", "ED25519", "ED448"};
    auto const is = [&](std::string_view kind) { return isOfKind(key, kind); };
    if (std::none_of(kinds.begin(), kinds.end(), is)) {
        throw InvalidArgument("The key is of a kind that certificates are not made for.");
    }
    if (EVP_PKEY_get_security_bits(key) < leastSecurityBits) {
        throw InvalidArgument("The key is too weak.");
    }
    if (is("EC") && hasExplicitParameters(key)) {
        throw InvalidArgument("The key has explicit curve parameters.");
    }
}

EVP_MD const* digestFor(EVP_PKEY* key)
{
    constexpr int isMandatory = 2;
    std::array<char, 64> name{};
    if (EVP_PKEY_get_default_digest_name(key, name.data(), name.size()) == isMandatory) {
        return EVP_get_digestbyname(name.data()); // null for "UNDEF"
    }
    int const bits = isOfKind(key, "EC") ? EVP_PKEY_get_bits(key) : 0;
    return bits > 384 ? EVP_sha512() : bits > 256 ? EVP_sha384() : EVP_sha256();
}

bool isSamePublicKey(EVP_PKEY* first, EVP_PKEY* second, char const* errorText)
{
    bool isSame = false;
    auto const compare = [&] {
        isSame = EVP_PKEY_eq(first, second) == 1;
        return isSame;
    };
    throwIfLacksMemoryFor<CertificateException>(compare, errorText);
    return isSame;
}

} // namespace foundation::toolkit
