#pragma once

#include "support/Text.hpp"
#include "support/operations/Loading.hpp"
#include "support/pki/TestCrl.hpp"
#include "support/pki/TestPki.hpp"

#include <foundation/certificates/CertificateValidation.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/// What tests of validation share: a verification with the bare OpenSSL API as the witness.
namespace foundation::test {

using Options = certificates::CertificateValidationOptions;
using Status = certificates::CertificateChainStatus;

/// For certificates that the library itself would refuse to add.
inline void addUnchecked(certificates::TrustStore& store, X509Handle const& certificate)
{
    require(X509_STORE_add_cert(certificates::getOpenSSLStore(store).get(), certificate.get()));
}

struct Tolerances
{
    bool selfSigned = false;
    bool expired = false;
    bool revoked = false;
};

inline std::ostream& operator<<(std::ostream& out, Tolerances const& tolerances)
{
    return out << "self-signed " << tolerances.selfSigned << ", expired " << tolerances.expired
               << ", revoked " << tolerances.revoked;
}

inline std::vector<Tolerances> allTolerances()
{
    std::vector<Tolerances> all;
    for (int bits = 0; bits < 8; ++bits) {
        all.push_back({(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0});
    }
    return all;
}

inline Options optionsWith(
    Tolerances const& tolerances, Options::CheckCRL check = Options::CheckCRL::None,
    Options::DownloadCRL download = Options::DownloadCRL::None,
    std::shared_ptr<certificates::TrustStore const> fallback = nullptr)
{
    return Options(
        static_cast<Options::AllowSelfSignedCertificate>(tolerances.selfSigned),
        static_cast<Options::AllowExpiredCertificate>(tolerances.expired),
        static_cast<Options::AllowRevokedCertificate>(tolerances.revoked), check, download,
        std::move(fallback));
}

/// The report that a verification error is to have; OpenSSL's sentence is computed.
inline std::string report(int code, int depth, std::string const& subject)
{
    return "Errors present: Error code " + std::to_string(code) + "  at depth " + std::to_string(depth) +
           "Certificate Subject Name=" + subject + "\n. \nMessage:" + X509_verify_cert_error_string(code) +
           "\n";
}

/// The verdict that an error code of OpenSSL is to have.
inline Status expectedStatus(int code)
{
    static std::map<int, Status> const named = {
        {0, Status::Valid},        {2, Status::Untrusted},    {20, Status::Untrusted},
        {21, Status::Untrusted},   {22, Status::Untrusted},   {25, Status::Untrusted},
        {79, Status::Untrusted},   {18, Status::SelfSigned},  {19, Status::SelfSigned},
        {3, Status::CRLError},     {5, Status::CRLError},     {8, Status::CRLError},
        {11, Status::CRLError},    {12, Status::CRLError},    {15, Status::CRLError},
        {16, Status::CRLError},    {23, Status::Revoked},     {10, Status::Expired},
        {4, Status::BadSignature}, {7, Status::BadSignature},
    };
    auto const found = named.find(code);
    return found == named.end() ? Status::Failed : found->second;
}

/// The text that goes with the code.
inline std::string expectedText(int code, int depth, std::string const& subject)
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

/// A verification by bare OpenSSL: the witness.
struct BareVerification
{
    X509Handle leaf;
    std::vector<X509Handle> untrusted;
    std::vector<X509Handle> trusted;
    std::vector<CrlHandle> crls;
    unsigned long flags = 0xC060;
    Tolerances tolerances;
};

struct BareOutcome
{
    int result = -1;
    int code = 0;
    int depth = 0;
    /// Of the certificate at which the verification stood at its end.
    std::string subject;
    /// Leaf first; after success alone.
    std::vector<X509Handle> chain;
};

inline int forgiveTolerated(int ok, X509_STORE_CTX* context)
{
    auto const* const given = static_cast<Tolerances const*>(X509_STORE_CTX_get_app_data(context));
    auto const tolerances = given == nullptr ? Tolerances() : *given;
    auto const code = X509_STORE_CTX_get_error(context);
    auto const isForgiven = (code == 10 && tolerances.expired) ||
                            ((code == 18 || code == 19) && tolerances.selfSigned) ||
                            (code == 23 && tolerances.revoked);
    return isForgiven ? 1 : ok;
}

inline std::string subjectOf(X509 const* certificate)
{
    auto const bio = own(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
    return asText(contentOf(bio));
}

inline BareOutcome verify(BareVerification const& question)
{
    auto const store = own(X509_STORE_new());
    for (auto const& anchor : question.trusted) {
        require(X509_STORE_add_cert(store.get(), anchor.get()));
    }
    for (auto const& crl : question.crls) {
        require(X509_STORE_add_crl(store.get(), crl.get()));
    }
    auto const untrusted = makeStack(question.untrusted);
    auto tolerances = question.tolerances;
    auto const context = own(X509_STORE_CTX_new());
    require(X509_STORE_CTX_init(context.get(), store.get(), question.leaf.get(), untrusted.get()));
    X509_STORE_CTX_set_flags(context.get(), question.flags);
    X509_STORE_CTX_set_verify_cb(context.get(), forgiveTolerated);
    X509_STORE_CTX_set_app_data(context.get(), &tolerances);

    BareOutcome outcome;
    outcome.result = X509_verify_cert(context.get());
    outcome.code = X509_STORE_CTX_get_error(context.get());
    outcome.depth = X509_STORE_CTX_get_error_depth(context.get());
    if (auto const* const current = X509_STORE_CTX_get_current_cert(context.get())) {
        outcome.subject = subjectOf(current);
    }
    auto* const built = X509_STORE_CTX_get0_chain(context.get());
    for (int index = 0; outcome.result == 1 && index < sk_X509_num(built); ++index) {
        outcome.chain.push_back(share(sk_X509_value(built, index)));
    }
    return outcome;
}

/// The library's verdict is that of bare OpenSSL, and so are the failure and the root.
inline void expectSame(certificates::CertificateValidationResults const& results, BareOutcome const& outcome)
{
    auto const valid = outcome.result == 1;
    EXPECT_EQ(results.getCertificateChainStatus(), valid ? Status::Valid : expectedStatus(outcome.code));
    EXPECT_EQ(
        results.getValidationErrorString(),
        valid ? "" : expectedText(outcome.code, outcome.depth, outcome.subject));
    ASSERT_EQ(results.getRootCertificate().has_value(), valid);
    if (valid) {
        EXPECT_EQ(results.getRootCertificate()->getAsBytes(), toDer(outcome.chain.back()));
    }
}

} // namespace foundation::test
