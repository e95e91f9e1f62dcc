#include "certificate/X509CertificateImpl.hpp"

#include "certificate/X509Duplicates.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <cstddef>
#include <exception>
#include <string>
#include <utility>

// Finds the root, and downloads the CRL of each level. Both call the verification, which calls prepareCRLs.
// The recursion ends because the lookup of the root asks for no CRL.

namespace foundation::certificates {

namespace {

using Options = CertificateValidationOptions;

/// Returns the key that signs the CRL of the level below. With a null key, no CRL passes the check.
EVP_PKEYUPtr publicKeyOfIssuer(X509Certificate const& issuer)
{
    return makeEVP_PKEY(X509_get_pubkey(readableX509Of(issuer).get()));
}

std::string downloadFailedAt(std::size_t level)
{
    return "CRL Download Error: Certificate Revocation List (CRL) download failed at level: " +
           std::to_string(level) + "\n";
}

} // namespace

X509CertificateImpl X509CertificateImpl::getRootCACertificate(
    X509CertificateChain const& chain, TrustStore const& trustStore) const
{
    Options const allTolerances(
        Options::AllowSelfSignedCertificate::Yes, Options::AllowExpiredCertificate::Yes,
        Options::AllowRevokedCertificate::Yes, Options::CheckCRL::None, Options::DownloadCRL::None);
    auto run = validateWithFallback(chain, allTolerances, trustStore);
    if (!run.root) {
        throw X509CertificateException("Error: Root CA X509Certificate has no content.");
    }
    return std::move(*run.root);
}

bool X509CertificateImpl::prepareCRLs(
    CertificateValidationOptions::DownloadCRL mode, CertificateValidationOptions::CheckCRL check, CRLs& crls,
    std::vector<X509Certificate>& certificates, X509_STOREUPtr& store, X509CertificateChain const& chain,
    TrustStore const& trustStore) const
{
    if (mode == Options::DownloadCRL::None) {
        return false;
    }
    // The root signs the CRL of the highest intermediate. It is looked up even if only the leaf is checked.
    if (!certificates.back().isSelfSigned()) {
        try {
            certificates.push_back(certificates.front().getRootCACertificate(chain, trustStore));
        } catch (std::exception const&) {
            throwIfRequired(mode, "CRL Download Error: Failed to retrieve Root CA certificate\n");
        }
    }
    // The last certificate has no CRL of its own, so a single self-signed certificate has no level to check.
    bool ready = false;
    for (std::size_t level = 0; level + 1 < certificates.size(); ++level) {
        auto issuerKey = publicKeyOfIssuer(certificates[level + 1]);
        ready = downloadCRL(certificates[level], store, crls, mode, issuerKey);
        if (!ready) {
            throwIfRequired(mode, downloadFailedAt(level));
            return false;
        }
        if (check == Options::CheckCRL::LeafOnly) {
            return true;
        }
    }
    return ready;
}

} // namespace foundation::certificates
