#pragma once

#include <openssl/crypto.h>

namespace foundation::certificates {

/// Makes OpenSSL register its cleanup for the end of the process, unless it has already done so. Every
/// constructor that creates a handle's implementation from nothing calls this. A global object is destroyed
/// before what was registered earlier than its constructor ended, so its destructor can still use OpenSSL.
inline void registerOpenSSLCleanup()
{
    // Without an option OpenSSL may return before it registers the cleanup. This option reads no
    // configuration.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
}

} // namespace foundation::certificates
