#include "certificate/X509CertificateImpl.hpp"

#include "certificate/X509Access.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/ErrorMark.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/VerificationStore.hpp"
#include "validation/VerifyErrors.hpp"

#include <foundation/certificates/TrustStore.hpp>
#include <foundation/certificates/X509CertificateChain.hpp>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>
#include <utility>

// OpenSSL verifies; this file decides which store it uses, which certificates are untrusted input, which
// flags apply and which errors are forgiven. VerifyErrors words the result. A run never changes the caller's
// trust store: flags, callback and CRLs go to a store of its own. Certificates are shared by reference.

namespace foundation::certificates {

namespace {

using Options = CertificateValidationOptions;

constexpr char const noContextText[] = "Internal Error: error creating X509_STORE_CTX object\n";
constexpr char const parameterFlagsText[] = "Failed to set the flags to X509 parameters";

constexpr int progressIndex = 0;
constexpr unsigned long noFlags = 0;

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

/// Returns the operating system's roots. The first call that succeeds reads them, and they are kept until the
/// process ends. Never destroyed: the program may validate while it ends, in the destructor of a global
/// object or in a thread.
TrustStore const& systemTrustStore()
{
    static TrustStore const* const store = std::make_unique<TrustStore>(loadSystemTrustStore()).release();
    return *store;
}

X509_STOREUPtr privateStoreOf(TrustStore const& trustStore)
{
    auto store = makeVerificationStore(trustStore.empty() ? systemTrustStore() : trustStore);
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
    return store;
}

/// Returns the chain's certificates, and inserts the leaf at the front unless it is there already. The
/// insertion clears OpenSSL's error queue, as loading a certificate does.
std::vector<X509Certificate>
leafFirst(X509CertificateImpl const& handle, X509* leaf, X509CertificateChain const& chain)
{
    auto certificates = chain.getCertificates();
    if (certificates.empty() || !haveSameEncoding(X509Access::share(certificates.front()).get(), leaf)) {
        ERR_clear_error();
        certificates.insert(certificates.begin(), handle.furtherHandle());
    }
    return certificates;
}

/// Returns the certificates as a stack for one verification. A self-issued leaf that is not self-signed is
/// duplicated there, as forVerification does: OpenSSL must find it as its own issuer, and never takes the
/// object that it looks for the issuer of.
X509StackUPtr untrustedStack(std::vector<X509Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        auto untrusted = forVerification(X509Access::share(certificate).get());
        if (untrusted == nullptr || sk_X509_push(stack.get(), untrusted.get()) < 1) {
            throw X509CertificateException("Error: X509Certificate has no content.");
        }
        static_cast<void>(untrusted.release()); // the stack owns it now; a failed push would not have
    }
    return stack;
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

/// A run applies CRLs only if it downloaded all that it was asked for. After one failed download it applies
/// none, not even the CRLs of the trust store.
unsigned long chooseVerificationFlags(bool revokedAllowed, bool crlsReady, Options::CheckCRL check)
{
    constexpr unsigned long base = X509_V_FLAG_X509_STRICT | X509_V_FLAG_ALLOW_PROXY_CERTS |
                                   X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;
    return revokedAllowed || !crlsReady ? base : base | crlFlags(check);
}

/// Sets the flags in the context and in the store. The store's flags take effect, because X509_STORE_CTX_init
/// replaces the context's parameters by those of the store.
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

/// What the verify callback reads and writes.
struct Progress
{
    Options const& options;
    /// How many certificates of the chain OpenSSL has verified.
    int numVerified = 0;
};

/// Forgives what the options allow. A context that OpenSSL makes for the path of a CRL has no options, and
/// nothing is forgiven in it.
int verifyCallback(int ok, X509_STORE_CTX* context)
{
    auto* const progress = static_cast<Progress*>(X509_STORE_CTX_get_ex_data(context, progressIndex));
    if (ok == 1 && progress != nullptr) {
        ++progress->numVerified;
    }
    int const code = X509_STORE_CTX_get_error(context);
    if (code == X509_V_OK) {
        return 1;
    }
    return progress != nullptr && X509CertificateImpl::isForgiven(progress->options, code) ? 1 : ok;
}

/// What one run owns. The context borrows from the other two, so it is declared last.
struct Verification
{
    X509_STOREUPtr store = makeX509_STORE(nullptr);
    X509StackUPtr untrusted = makeX509Stack(nullptr);
    X509_STORE_CTXUPtr context = makeX509_STORE_CTX(X509_STORE_CTX_new());

    void renew(X509_STOREUPtr newStore, X509StackUPtr newUntrusted)
    {
        X509_STORE_CTX_cleanup(context.get());
        store = std::move(newStore);
        untrusted = std::move(newUntrusted);
    }
};

void prepare(Verification const& verification, X509* leaf, unsigned long flags, Progress& progress)
{
    auto* const context = verification.context.get();
    auto* const store = verification.store.get();
    setFlags(context, store, flags);
    X509_STORE_set_verify_cb(store, verifyCallback);
    // A context without parameters would crash the verification.
    throwIfBelowOne<X509CertificateException>(
        X509_STORE_CTX_init(context, store, leaf, verification.untrusted.get()), noContextText);
    // Ignored on purpose: without the options, the callback forgives nothing.
    X509_STORE_CTX_set_ex_data(context, progressIndex, &progress);
    progress.numVerified = 0;
}

/// Whether OpenSSL ran out of memory and took the root for a certificate that another one issued. It then
/// checks neither the root's dates nor its signature, and succeeds.
bool hasSkippedRoot(X509* root, int length, int numVerified)
{
    return numVerified < length && X509_check_issued(root, root) == X509_V_OK;
}

X509CertificateImpl topOfVerifiedChain(X509_STORE_CTX* context, int verifyResult, Progress const& progress)
{
    auto const chain = makeX509Stack(X509_STORE_CTX_get1_chain(context));
    int const length = sk_X509_num(chain.get());
    X509* const root = sk_X509_value(chain.get(), length - 1);
    // After a negative result, OpenSSL has not verified the chain that the context holds.
    if (verifyResult < 0 || length < 1 || hasSkippedRoot(root, length, progress.numVerified)) {
        throw X509CertificateException("Invalid certificate chain length.\n");
    }
    return X509Access::implementationWith(root);
}

/// Whether another trust store may change the verdict. The verdicts on revoked and expired certificates and
/// on CRLs are final.
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

CertificateChainStatus statusOf(X509_STORE_CTX* context)
{
    return statusForVerifyError(X509_STORE_CTX_get_error(context));
}

void addCRLs(X509_STORE* store, X509CertificateImpl::CRLs const& crls)
{
    for (auto const& crl : crls) {
        throwIfNotOne<TrustStoreException>(
            X509_STORE_add_crl(store, crl.get()), "Failed to add CRL to store");
    }
}

/// Returns the result of `X509_verify_cert`.
/// @throws TrustStoreException as throwIfIncomplete does
int verifyOnce(Verification const& verification, X509* leaf, unsigned long flags, Progress& progress)
{
    prepare(verification, leaf, flags, progress);
    // One time for all dates. Otherwise a clock that is set back meanwhile could validate a chain that is
    // valid at no time.
    X509_STORE_CTX_set_time(verification.context.get(), noFlags, std::time(nullptr));
    int const result = X509_verify_cert(verification.context.get());
    throwIfIncomplete(verification.store.get());
    return result;
}

/// Returns the result of `X509_verify_cert`.
///
/// With a fallback store, a failure that leads to it must happen twice. Running out of memory must not lead
/// to it, because a certificate that is expired or revoked in this store may be valid in the other. `renew`
/// gives the second attempt a new store and new untrusted certificates. Only the errors of the last attempt
/// stay in the queue.
template <typename Renew>
int verify(
    Verification const& verification, X509* leaf, unsigned long flags, Progress& progress, bool hasFallback,
    Renew const& renew)
{
    {
        ErrorMark mark;
        int const result = verifyOnce(verification, leaf, flags, progress);
        if (result != 0 || !hasFallback || !deservesFallback(statusOf(verification.context.get()))) {
            return result;
        }
        mark.removeErrors();
    }
    renew();
    return verifyOnce(verification, leaf, flags, progress);
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
    Verification verification;
    X509_STORE_CTX* const context = verification.context.get();
    throwIfNull<X509CertificateException>(context, noContextText);
    verification.store = privateStoreOf(trustStore);
    auto certificates = leafFirst(*this, leaf, chain);
    verification.untrusted = untrustedStack(certificates);
    CRLs crls;
    bool const crlsReady = prepareCRLs(
        options.downloadCRL, options.checkCRL, crls, certificates, verification.store, chain, trustStore);
    bool const revokedAllowed = options.allowRevoked != Options::AllowRevokedCertificate::No;
    auto const flags = chooseVerificationFlags(revokedAllowed, crlsReady, options.checkCRL);
    bool const hasFallback =
        options.fallbackTrustStore != nullptr && options.fallbackTrustStore.get() != &trustStore;

    Progress progress{options};
    int const verifyResult = verify(verification, leaf, flags, progress, hasFallback, [&] {
        verification.renew(privateStoreOf(trustStore), untrustedStack(leafFirst(*this, leaf, chain)));
        if (crlsReady) {
            addCRLs(verification.store.get(), crls);
        }
    });

    if (verifyResult != 0) {
        return {
            topOfVerifiedChain(context, verifyResult, progress),
            CertificateValidationResults(CertificateChainStatus::Valid)};
    }
    auto results = resultForFailedVerification(context);
    if (results.getCertificateChainStatus() == CertificateChainStatus::Revoked &&
        options.checkCRL != Options::CheckCRL::None) {
        results.setCertificateRevocationResults(findRevocation(crls, certificates));
    }
    return {std::nullopt, std::move(results)};
}

} // namespace foundation::certificates
