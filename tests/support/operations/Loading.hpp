#pragma once

#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/x509_vfy.h>

#include <vector>

/// The way from test certificates to the library's values, and back.
namespace foundation::test {

inline certificates::X509Certificate load(CertificateAndKey const& certificate)
{
    return certificates::X509Certificate(certificate.der());
}

inline certificates::X509CertificateChain chainOf(std::vector<CertificateAndKey> const& members)
{
    certificates::X509CertificateChain chain;
    for (auto const& member : members) {
        chain.addCertificate(load(member));
    }
    return chain;
}

inline certificates::TrustStore storeOf(std::vector<CertificateAndKey> const& anchors)
{
    certificates::TrustStore store;
    for (auto const& anchor : anchors) {
        store.addCertificate(load(anchor));
    }
    return store;
}

/// A reference to the CRL goes into the live store, past the trust store.
inline void addCrl(certificates::TrustStore const& store, CrlHandle const& crl)
{
    require(X509_STORE_add_crl(certificates::getOpenSSLStore(store).get(), crl.get()));
}

/// The encodings, in order: what tests compare.
inline std::vector<Bytes> derOf(std::vector<certificates::X509Certificate> const& certificates)
{
    std::vector<Bytes> encodings;
    for (auto const& certificate : certificates) {
        encodings.push_back(certificate.getAsBytes());
    }
    return encodings;
}

inline std::vector<Bytes> derOf(certificates::X509CertificateChain const& chain)
{
    return derOf(chain.getCertificates());
}

} // namespace foundation::test
