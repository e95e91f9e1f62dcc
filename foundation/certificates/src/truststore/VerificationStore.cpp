#include "truststore/VerificationStore.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509_vfy.h>

namespace foundation::certificates {

X509_STOREUPtr makeVerificationStore(TrustStore const& trustStore)
{
    return copyOpenSSLStore(trustStore);
}

void addTrustedCertificate(X509_STORE* store, X509* certificate)
{
    X509_STORE_add_cert(store, certificate);
}

} // namespace foundation::certificates
