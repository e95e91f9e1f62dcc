#include "certificate/X509CertificateImpl.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "revocation/HttpUrl.hpp"
#include "revocation/TemporaryCRLFile.hpp"

#include <openssl/err.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace foundation::certificates {

namespace {

using DownloadCRL = CertificateValidationOptions::DownloadCRL;
using RevocationStatus = CertificateRevocationResults::RevocationStatus;

/// Writes the server's answer to the file. Returns whether it succeeded.
bool fetchIntoFile(
    X509CertificateImpl const& implementation, HttpUrl const& url, TemporaryCRLFile const& file,
    DownloadCRL mode)
{
    try {
        std::string const response = implementation.fetchHttpResponse(url.host, url.path, mode);
        if (response.empty()) {
            // The handler below adds its own sentence, so the caller reads both.
            implementation.throwIfRequired(mode, "CRL Download Error: CRL HTTP data is empty\n");
            return false;
        }
        file.write(response);
        return true;
    } catch (std::exception const& failure) {
        implementation.throwIfRequired(
            mode, std::string("CRL Download Error: Unable to get Certificate Revocation List HTTP data. ") +
                      failure.what() + "\n");
        return false;
    }
}

/// Returns the file's CRL in DER form; null if the file cannot be read or holds anything else. Closes the
/// file, so that every system can remove it.
X509_CRLUPtr parseCRL(std::string const& fileName)
{
    auto const bio = makeBIO(BIO_new(BIO_s_file()));
    if (BIO_read_filename(bio.get(), fileName.c_str()) < 1) {
        return makeX509_CRL(nullptr);
    }
    return makeX509_CRL(d2i_X509_CRL_bio(bio.get(), nullptr));
}

/// Returns the CRL as parseCRL does. OpenSSL parses a CRL's extensions with the CRL, and succeeds without
/// those that fail. If memory runs out, a CRL could lose its scope that way and cover too many certificates.
/// The error queue shows the failure, so a CRL that left an error is parsed again.
X509_CRLUPtr readCRL(std::string const& fileName)
{
    ERR_set_mark();
    auto crl = parseCRL(fileName);
    if (crl != nullptr && ERR_peek_error() != 0) {
        ERR_pop_to_mark();
        return parseCRL(fileName);
    }
    ERR_clear_last_mark();
    return crl;
}

bool isSignedWith(X509_CRL* crl, EVP_PKEY* issuerKey)
{
    return issuerKey != nullptr && X509_CRL_verify(crl, issuerKey) == 1;
}

bool hasPassed(ASN1_TIME const* time)
{
    // Ticks of 100 ns cover all dates of a certificate; nanoseconds in 64 bits do not.
    using Ticks = X509Certificate::TimePoint::duration;
    auto const now = std::chrono::time_point_cast<Ticks>(std::chrono::system_clock::now());
    return asn1TimeToTimePoint(time) <= now;
}

/// Returns a text for the CRL's first fault; null if it has none. Does not check the start of its validity.
/// Does not check its issuer's name either: the signature binds it to the issuer.
char const* faultOf(X509_CRL* crl, EVP_PKEY* issuerKey)
{
    if (!isSignedWith(crl, issuerKey)) {
        return "CRL Verification Error: Failed to verify the Certificate Revocation List signature\n";
    }
    ASN1_TIME const* nextUpdate = X509_CRL_get0_nextUpdate(crl);
    if (nextUpdate == nullptr) {
        return "CRL Verification Error: Failed to retrieve the next update date from the Certificate "
               "Revocation List\n";
    }
    if (hasPassed(nextUpdate)) {
        return "CRL Verification Error: Certificate Revocation List has expired\n";
    }
    return nullptr;
}

/// Returns the number, which ignores leading zeros of the encoding.
BIGNUMUPtr serialNumber(ASN1_INTEGER const* serial)
{
    auto number = makeBIGNUM(serial == nullptr ? nullptr : ASN1_INTEGER_to_BN(serial, nullptr));
    throwIfNull<X509CertificateException>(number.get(), "Internal error: Unable to get serial number.");
    return number;
}

BIGNUMUPtr serialNumberOf(X509Certificate const& certificate)
{
    return serialNumber(X509_get0_serialNumber(readableX509Of(certificate).get()));
}

/// Returns the CRL's entry for the serial number; status `NotRevoked` if it has none.
CertificateRevocationResults findEntry(X509_CRL* crl, BIGNUM const* wanted)
{
    auto* entries = crl == nullptr ? nullptr : X509_CRL_get_REVOKED(crl);
    for (int index = 0; index < sk_X509_REVOKED_num(entries); ++index) {
        X509_REVOKED const* entry = sk_X509_REVOKED_value(entries, index);
        if (entry == nullptr) {
            continue;
        }
        ASN1_INTEGER const* serial = X509_REVOKED_get0_serialNumber(entry);
        if (BN_cmp(serialNumber(serial).get(), wanted) == 0) {
            return {
                RevocationStatus::Revoked, asn1TimeToString(X509_REVOKED_get0_revocationDate(entry)),
                serialToDecimalString(serial)};
        }
    }
    return {};
}

} // namespace

bool X509CertificateImpl::downloadCRL(
    X509Certificate const& certificate, X509_STOREUPtr& store, CRLs& crls, DownloadCRL mode,
    EVP_PKEYUPtr& issuerKey) const
{
    auto const fail = [&](char const* message) {
        throwIfRequired(mode, message);
        return false;
    };

    auto const distributionPoints = getCRLDistributionPoints(certificate);
    if (distributionPoints.empty()) {
        return fail("CRL Download Error: Certificate Revocation List Distribution Points not available\n");
    }
    auto const url = firstHttpUrl(distributionPoints);
    if (!url) {
        return fail(
            "CRL Download Error: Unable to resolve Certificate Revocation List Distribution Points\n");
    }
    TemporaryCRLFile const file;
    if (!fetchIntoFile(*this, *url, file, mode)) {
        return false;
    }
    auto crl = readCRL(file.name());
    if (crl == nullptr) {
        return fail("CRL Download Error: Invalid Certificate Revocation List\n");
    }
    if (char const* fault = faultOf(crl.get(), issuerKey.get())) {
        return fail(fault);
    }
    // A store that refuses the CRL has no error text of its own: prepareCRLs has the text.
    bool const added = store != nullptr && X509_STORE_add_crl(store.get(), crl.get()) == 1;
    crls.push_back(std::move(crl));
    return added;
}

CertificateRevocationResults
X509CertificateImpl::findRevocation(CRLs const& crls, std::vector<X509Certificate> const& certificates) const
{
    // Only the CRL of its own level covers a certificate.
    auto const levels = std::min(crls.size(), certificates.size());
    for (std::size_t level = 0; level < levels; ++level) {
        auto results = findEntry(crls[level].get(), serialNumberOf(certificates[level]).get());
        if (results.getRevocationStatus() == RevocationStatus::Revoked) {
            return results;
        }
    }
    return {};
}

} // namespace foundation::certificates
