#include "libcrypto/LegacyProvider.hpp"

#include <openssl/provider.h>

#include <atomic>

namespace foundation::certificates {

bool loadLegacyProvider()
{
    // Every load returns the same provider. OpenSSL's cleanup does not release it, so keep a pointer to it
    // for leak checkers.
    static std::atomic<OSSL_PROVIDER*> loaded(nullptr);
    constexpr int keepDefault = 1;
    OSSL_PROVIDER* const provider = OSSL_PROVIDER_try_load(nullptr, "legacy", keepDefault);
    if (provider == nullptr) {
        return false;
    }
    loaded = provider;
    return true;
}

} // namespace foundation::certificates
