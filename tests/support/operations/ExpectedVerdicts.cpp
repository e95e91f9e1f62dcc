#include "support/operations/ExpectedVerdicts.hpp"

#include <foundation/certificates/FreeFunctions.hpp>

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace foundation::test {

Options optionsWith(
    Tolerances const& tolerances, Options::CheckCRL check, Options::DownloadCRL download,
    std::shared_ptr<certificates::TrustStore const> fallback)
{
    return Options(
        static_cast<Options::AllowSelfSignedCertificate>(tolerances.selfSigned),
        static_cast<Options::AllowExpiredCertificate>(tolerances.expired),
        static_cast<Options::AllowRevokedCertificate>(tolerances.revoked), check, download,
        std::move(fallback));
}

void addUnchecked(certificates::TrustStore& store, X509Handle const& certificate)
{
    require(X509_STORE_add_cert(certificates::getOpenSSLStore(store).get(), certificate.get()));
}

std::string report(int code, int depth, std::string const& subject)
{
    return "Errors present: Error code " + std::to_string(code) + "  at depth " + std::to_string(depth) +
           "Certificate Subject Name=" + subject + "\n. \nMessage:" + X509_verify_cert_error_string(code) +
           "\n";
}

Status expectedStatus(int code)
{
    static std::map<Status, std::set<int>> const codes = {
        {Status::Valid, {X509_V_OK}},
        {Status::Untrusted,
         {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
          X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, X509_V_ERR_CERT_CHAIN_TOO_LONG,
          X509_V_ERR_PATH_LENGTH_EXCEEDED, X509_V_ERR_INVALID_CA}},
        {Status::SelfSigned, {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN}},
        {Status::CRLError,
         {X509_V_ERR_UNABLE_TO_GET_CRL, X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE,
          X509_V_ERR_CRL_SIGNATURE_FAILURE, X509_V_ERR_CRL_NOT_YET_VALID, X509_V_ERR_CRL_HAS_EXPIRED,
          X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD, X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD}},
        {Status::Revoked, {X509_V_ERR_CERT_REVOKED}},
        {Status::Expired, {X509_V_ERR_CERT_HAS_EXPIRED}},
        {Status::BadSignature,
         {X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE, X509_V_ERR_CERT_SIGNATURE_FAILURE}},
    };
    auto const found = std::find_if(
        codes.begin(), codes.end(), [&](auto const& entry) { return entry.second.count(code) != 0; });
    return found == codes.end() ? Status::Failed : found->first;
}

std::string expectedText(int code, int depth, std::string const& subject)
{
    switch (expectedStatus(code)) {
    case Status::Valid:
    case Status::SelfSigned:
        return "";
    case Status::Failed:
        return "Validation Failed. Return code=" + std::to_string(code) + "." + report(code, depth, subject);
    default:
        return report(code, depth, subject);
    }
}

} // namespace foundation::test
