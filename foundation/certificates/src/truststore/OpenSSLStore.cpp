#include "truststore/TrustStoreImpl.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/ssl.h>

namespace foundation::certificates {

std::shared_ptr<x509_store_st> getOpenSSLStore(TrustStore const& trustStore)
{
    std::lock_guard<std::mutex> const lock(trustStore.mutex);
    return trustStore.impl == nullptr ? nullptr : trustStore.impl->handOutStore();
}

std::unique_ptr<x509_store_st, void (*)(x509_store_st*)> copyOpenSSLStore(TrustStore const& trustStore)
{
    std::lock_guard<std::mutex> const lock(trustStore.mutex);
    return trustStore.impl == nullptr ? makeX509_STORE(nullptr) : trustStore.impl->copyStore();
}

void attachTrustStoreToSSLCTX(TrustStore const& trustStore, ssl_ctx_st* context)
{
    auto const store = getOpenSSLStore(trustStore);
    if (store == nullptr || context == nullptr) {
        return;
    }
    // The first call passes a reference to the context. The second one replaces it.
    SSL_CTX_set_cert_store(context, store.get());
    X509_STORE_up_ref(store.get());
}

} // namespace foundation::certificates
