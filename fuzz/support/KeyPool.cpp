/// Replaces OpenSSL's key generator in the program that links this file. RSA keys come from a pool, because
/// generating a key takes longer than the rest of a build. Sizes that are not in the pool cannot be
/// generated.

#include "support/pki/TestKeys.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <iterator>

extern "C" EVP_PKEY*
EVP_PKEY_Q_keygen(OSSL_LIB_CTX* /*context*/, char const* /*properties*/, char const* type, ...)
{
    static constexpr std::size_t sizes[] = {512, 768, 1024, 1536, 2048};

    std::va_list arguments;
    va_start(arguments, type);
    auto const size = va_arg(arguments, std::size_t);
    va_end(arguments);
    if (std::find(std::begin(sizes), std::end(sizes), size) == std::end(sizes)) {
        ERR_raise(ERR_LIB_RSA, RSA_R_KEY_SIZE_TOO_SMALL);
        return nullptr;
    }
    // `rsaKey` caches its keys and generates them with another function of OpenSSL.
    auto const key = foundation::test::rsaKey(static_cast<unsigned>(size));
    EVP_PKEY_up_ref(key.get());
    return key.get();
}
