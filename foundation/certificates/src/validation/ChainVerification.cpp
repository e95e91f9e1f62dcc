#include "certificate/X509CertificateImpl.hpp"

#include "certificate/X509Duplicates.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/SystemCertificateUsage.hpp"
#include "validation/VerifyErrors.hpp"

#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <utility>

// One verification in OpenSSL's hands. What is decided here is which store is used, what the untrusted set
// holds, which flags apply, which errors are forgiven; how the outcome is worded is VerifyErrors' business.
// Nothing outlives a run but its result, and the caller's trust store is never touched: flags, callback and
// CRLs go to a copy.

namespace foundation::certificates {

namespace {

using Options = CertificateValidationOptions;

constexpr char const noContextText[] = "Internal Error: error creating X509_STORE_CTX object\n";
constexpr char const parameterFlagsText[] = "Failed to set the flags to X509 parameters";

constexpr int optionsIndex = 0;

TrustStore loadSystemTrustStore()
{
    try {
        TrustStore store;
        addSystemCertificatesOfAllUsages(store);
        return store;
    } catch (TrustStoreException const& failure) {
        throw X509CertificateException(std::string("Internal error:") + failure.what());
    }
}

/// Returns the operating system's roots. The first call that succeeds reads them; they are kept for the life
/// of the process. Never destroyed: the program may validate while it ends, in the destructor of a global
/// object or in a thread.
TrustStore const& systemTrustStore()
{
    static TrustStore const* const store = std::make_unique<TrustStore>(loadSystemTrustStore()).release();
    return *store;
}

X509_STOREUPtr privateStoreOf(TrustStore const& trustStore)
{
    auto store = copyOpenSSLStore(trustStore.empty() ? systemTrustStore() : trustStore);
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
    return store;
}

/// The chain's certificates, with the leaf put in front unless it stands there. Where it is put, OpenSSL's
/// queue is emptied, as whenever a certificate is loaded.
std::vector<X509Certificate> leafFirst(X509CertificateImpl const& leaf, X509CertificateChain const& chain)
{
    auto certificates = chain.getCertificates();
    if (certificates.empty() || certificates.front().getAsPEMString() != leaf.getAsPEMString()) {
        ERR_clear_error();
        certificates.insert(certificates.begin(), leaf.furtherHandle());
    }
    return certificates;
}

unsigned long crlFlags(Options::CheckCRL check)
{
    switch (check) {
    case Options::CheckCRL::LeafOnly:
        return X509_V_FLAG_CRL_CHECK;
    case Options::CheckCRL::WholeChain:
        return X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    case Options::CheckCRL::None:
        break;
    }
    return 0;
}

/// CRLs are applied only in a run that fetched all it was asked for: those that the trust store holds are not
/// consulted otherwise, and one failed download switches the check off for the whole run.
unsigned long chooseVerificationFlags(bool revokedAllowed, bool crlsReady, Options::CheckCRL check)
{
    constexpr unsigned long base = X509_V_FLAG_X509_STRICT | X509_V_FLAG_ALLOW_PROXY_CERTS |
                                   X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;
    return revokedAllowed || !crlsReady ? base : base | crlFlags(check);
}

/// X509_STORE_CTX_init replaces the context's parameters by what it inherits from the store: the store's
/// flags are the ones in force.
void setFlags(X509_STORE_CTX* context, X509_STORE* store, unsigned long flags)
{
    auto parameters = makeX509_VERIFY_PARAM(X509_VERIFY_PARAM_new());
    throwIfNull<X509CertificateException>(parameters.get(), parameterFlagsText);
    throwIfBelowOne<X509CertificateException>(
        X509_VERIFY_PARAM_set_flags(parameters.get(), flags), parameterFlagsText);
    X509_STORE_CTX_set0_param(context, parameters.release());
    throwIfBelowOne<X509CertificateException>(
        X509_STORE_set_flags(store, flags), "Failed to set the flags to X509_STORE");
}

/// Lets pass what the options forgive. Without options, as in a context that OpenSSL makes by itself for the
/// path of a CRL, nothing is forgiven.
int verifyCallback(int ok, X509_STORE_CTX* context)
{
    int const code = X509_STORE_CTX_get_error(context);
    if (code == X509_V_OK) {
        return 1;
    }
    auto const* options = static_cast<Options const*>(X509_STORE_CTX_get_ex_data(context, optionsIndex));
    return options != nullptr && X509CertificateImpl::isForgiven(*options, code) ? 1 : ok;
}

void prepareContext(
    X509_STORE_CTX* context, X509_STORE* store, X509* leaf, STACK_OF(X509) * untrusted,
    Options const& options)
{
    X509_STORE_set_verify_cb(store, verifyCallback);
    // A context that could not be set up has no parameters, which the verification would stumble over.
    throwIfBelowOne<X509CertificateException>(
        X509_STORE_CTX_init(context, store, leaf, untrusted), noContextText);
    // The callback only reads the options. Should they not get there, it forgives nothing.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): it is read as constant
    X509_STORE_CTX_set_ex_data(context, optionsIndex, const_cast<Options*>(&options));
}

X509CertificateImpl topOfVerifiedChain(X509_STORE_CTX* context, int verifyResult)
{
    auto const chain = makeX509Stack(X509_STORE_CTX_get1_chain(context));
    int const length = sk_X509_num(chain.get());
    // A negative result says that OpenSSL could not finish: whatever chain there is was never verified.
    if (verifyResult < 0 || length < 1) {
        throw X509CertificateException("Invalid certificate chain length.\n");
    }
    return X509CertificateImpl(sk_X509_value(chain.get(), length - 1));
}

/// Whether another trust store may change the verdict. What is revoked, expired, or stopped by a CRL gets no
/// second chance.
bool deservesFallback(CertificateChainStatus status)
{
    switch (status) {
    case CertificateChainStatus::Untrusted:
    case CertificateChainStatus::SelfSigned:
    case CertificateChainStatus::BadSignature:
    case CertificateChainStatus::Failed:
        return true;
    case CertificateChainStatus::Valid:
    case CertificateChainStatus::CRLError:
    case CertificateChainStatus::Revoked:
    case CertificateChainStatus::Expired:
        break;
    }
    return false;
}

} // namespace

bool X509CertificateImpl::isForgiven(CertificateValidationOptions const& options, int errorCode)
{
    switch (errorCode) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return options.allowExpired == Options::AllowExpiredCertificate::Yes;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return options.allowSelfSigned == Options::AllowSelfSignedCertificate::Yes;
    case X509_V_ERR_CERT_REVOKED:
        return options.allowRevoked == Options::AllowRevokedCertificate::Yes;
    default:
        return false;
    }
}

X509Certificate X509CertificateImpl::furtherHandle() const
{
    X509CertificateImpl share;
    share.x509 = x509;
    return X509Certificate(std::move(share));
}

CertificateValidationResults X509CertificateImpl::validateCertificate(
    X509CertificateChain const& chain, CertificateValidationOptions const& options,
    TrustStore const& trustStore) const
{
    auto run = validateWithFallback(chain, options, trustStore);
    if (run.root) {
        run.results.setRootCertificate(X509Certificate(std::move(*run.root)));
    }
    return run.results;
}

X509CertificateImpl::ValidationRun X509CertificateImpl::validateWithFallback(
    X509CertificateChain const& chain, CertificateValidationOptions const& options,
    TrustStore const& trustStore) const
{
    auto first = verifyAgainstStore(chain, options, trustStore);
    if (options.fallbackTrustStore != nullptr &&
        deservesFallback(first.results.getCertificateChainStatus())) {
        return verifyAgainstStore(chain, options, *options.fallbackTrustStore);
    }
    return first;
}

X509CertificateImpl::ValidationRun X509CertificateImpl::verifyAgainstStore(
    X509CertificateChain const& chain, CertificateValidationOptions const& options,
    TrustStore const& trustStore) const
{
    X509* const leaf = content();
    // Made first, but declared last: the context borrows from the store and the stack.
    auto store = makeX509_STORE(nullptr);
    auto untrusted = makeX509Stack(nullptr);
    auto const context = makeX509_STORE_CTX(X509_STORE_CTX_new());
    throwIfNull<X509CertificateException>(context.get(), noContextText);

    store = privateStoreOf(trustStore);
    auto certificates = leafFirst(*this, chain);
    untrusted = stackOf(certificates);
    CRLs crls;
    bool const crlsReady =
        prepareCRLs(options.downloadCRL, options.checkCRL, crls, certificates, store, chain, trustStore);

    bool const revokedAllowed = options.allowRevoked != Options::AllowRevokedCertificate::No;
    setFlags(
        context.get(), store.get(), chooseVerificationFlags(revokedAllowed, crlsReady, options.checkCRL));
    prepareContext(context.get(), store.get(), leaf, untrusted.get(), options);

    int const verifyResult = X509_verify_cert(context.get());
    if (verifyResult != 0) {
        return {
            topOfVerifiedChain(context.get(), verifyResult),
            CertificateValidationResults(CertificateChainStatus::Valid)};
    }
    auto results = resultForFailedVerification(context.get());
    if (results.getCertificateChainStatus() == CertificateChainStatus::Revoked &&
        options.checkCRL != Options::CheckCRL::None) {
        results.setCertificateRevocationResults(findRevocation(crls, certificates));
    }
    return {std::nullopt, std::move(results)};
}

} // namespace foundation::certificates
