#include <foundation/toolkit/PathValidation.hpp>

#include "CertificateAccess.hpp"
#include "PeerName.hpp"
#include "RootStore.hpp"
#include "certificate/Extensions.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "validation/VerifyErrors.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <utility>

// OpenSSL verifies. This file gives it the options and turns its outcome into a result. Each verification has
// a context of its own, which holds the flags, the callback and the CRLs. The store of roots is shared and
// never changed.

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

constexpr char const noVerdictText[] = "Internal error: OpenSSL could not verify the certificate.";

constexpr int progressIndex = 0;

/// What the verify callback reads and writes.
struct Progress
{
    PathOptions const& options;
    /// How many certificates of the chain OpenSSL has verified.
    int numVerified = 0;
};

bool isTolerated(PathOptions const& options, int code)
{
    switch (code) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return options.allowExpired;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return options.allowSelfSigned;
    default:
        return false;
    }
}

/// Tolerates what the options allow. A context that OpenSSL makes for the path of a CRL has no options, and
/// nothing is tolerated in it.
int verifyCallback(int ok, X509_STORE_CTX* context)
{
    auto* const progress = static_cast<Progress*>(X509_STORE_CTX_get_ex_data(context, progressIndex));
    if (progress == nullptr) {
        return ok;
    }
    if (ok == 1) {
        ++progress->numVerified;
        return 1;
    }
    return isTolerated(progress->options, X509_STORE_CTX_get_error(context)) ? 1 : 0;
}

/// Returns OpenSSL's purpose; 0 if OpenSSL checks none.
int purposeForOpenSSL(Purpose purpose)
{
    constexpr int none = 0;
    switch (purpose) {
    case Purpose::TLSServer:
        return X509_PURPOSE_SSL_SERVER;
    case Purpose::TLSClient:
        return X509_PURPOSE_SSL_CLIENT;
    case Purpose::EmailProtection:
        return X509_PURPOSE_SMIME_SIGN;
    case Purpose::TimeStamping:
        return X509_PURPOSE_TIMESTAMP_SIGN;
    case Purpose::Any:
    case Purpose::CodeSigning:
        return none;
    }
    throw InvalidArgument("The purpose is unknown.");
}

unsigned long flagsForRevocation(Revocation revocation)
{
    switch (revocation) {
    case Revocation::NotChecked:
        return 0;
    case Revocation::Leaf:
        return X509_V_FLAG_CRL_CHECK;
    case Revocation::WholeChain:
        return X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL;
    }
    throw InvalidArgument("The kind of revocation check is unknown.");
}

unsigned long flagsFor(PathOptions const& options)
{
    constexpr unsigned long base =
        X509_V_FLAG_X509_STRICT | X509_V_FLAG_CHECK_SS_SIGNATURE | X509_V_FLAG_TRUSTED_FIRST;
    unsigned long const partial = options.allowTrustedIntermediate ? X509_V_FLAG_PARTIAL_CHAIN : 0;
    return base | partial | flagsForRevocation(options.revocation);
}

std::time_t secondsOf(std::chrono::system_clock::time_point time)
{
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
    auto const converted = static_cast<std::time_t>(seconds);
    if (converted != seconds) { // with 32 bits, it would be another time
        throw InvalidArgument("The time is outside of this system's range.");
    }
    return converted;
}

/// The options in the form that OpenSSL takes. Its maker refuses all that are not valid.
struct Settings
{
    explicit Settings(PathOptions const& options_)
        : options(options_),
          flags(flagsFor(options)),
          purpose(purposeForOpenSSL(options.purpose))
    {
        if (options.time) {
            time = secondsOf(*options.time);
        }
        if (options.host) {
            requireHostForVerification(*options.host);
        }
        if (options.address) {
            address = requireAddress(*options.address);
        }
        if (options.minimumSecurityLevel < 0 || options.minimumSecurityLevel > 5) {
            throw InvalidArgument("The security level is not between 0 and 5.");
        }
    }

    void applyTo(X509_VERIFY_PARAM* parameters) const
    {
        require(X509_VERIFY_PARAM_set_flags(parameters, flags));
        X509_VERIFY_PARAM_set_auth_level(parameters, options.minimumSecurityLevel);
        if (purpose != 0) {
            require(X509_VERIFY_PARAM_set_purpose(parameters, purpose));
        }
        X509_VERIFY_PARAM_set_time(parameters, time);
        if (options.host) {
            X509_VERIFY_PARAM_set_hostflags(
                parameters, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
            require(X509_VERIFY_PARAM_set1_host(parameters, options.host->data(), options.host->size()));
        }
        if (!address.empty()) {
            require(X509_VERIFY_PARAM_set1_ip(parameters, address.data(), address.size()));
        }
    }

    PathOptions const& options;
    unsigned long flags;
    int purpose;
    /// One time for all dates, even if the clock is set meanwhile.
    std::time_t time = std::time(nullptr);
    ByteArray address;

private:
    static void require(int result) { throwIfNotOne<X509CertificateException>(result, outOfMemoryText); }
};

X509_CRLUPtr parseCRL(ByteArray const& der)
{
    auto crl = makeX509_CRL(nullptr);
    if (fitsInInt(der.size())) {
        runUnlessOutOfMemory([&] {
            unsigned char const* position = der.data();
            crl = makeX509_CRL(d2i_X509_CRL(nullptr, &position, static_cast<long>(der.size())));
            return crl != nullptr;
        });
    }
    if (crl == nullptr) {
        throw InvalidArgument("The bytes are not a CRL in DER encoding.");
    }
    return crl;
}

X509_CRLStackUPtr parseCRLs(std::vector<ByteArray> const& crls)
{
    auto stack = makeX509_CRLStack(sk_X509_CRL_new_null());
    throwIfNull<X509CertificateException>(stack.get(), outOfMemoryText);
    for (auto const& der : crls) {
        auto crl = parseCRL(der);
        throwIfBelowOne<X509CertificateException>(sk_X509_CRL_push(stack.get(), crl.get()), outOfMemoryText);
        static_cast<void>(crl.release()); // the stack owns it now; a failed push would not have
    }
    return stack;
}

BorrowingX509StackUPtr stackOf(std::vector<Certificate> const& certificates)
{
    auto stack = makeBorrowingX509Stack(sk_X509_new_null());
    throwIfNull<X509CertificateException>(stack.get(), outOfMemoryText);
    for (auto const& certificate : certificates) {
        throwIfBelowOne<X509CertificateException>(
            sk_X509_push(stack.get(), CertificateAccess::get(certificate)), outOfMemoryText);
    }
    return stack;
}

/// Whether the extensions allow the certificate to take part in code signing.
bool allowsCodeSigning(X509* certificate, bool isLeaf)
{
    auto const usages = extendedKeyUsagesOf(certificate);
    bool const isNamed = namesAnyOf(usages.get(), {NID_code_sign});
    if (!isLeaf) {
        bool const isRestricted = (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0;
        return isNamed || !isRestricted;
    }
    // Without the extension, OpenSSL reports all key usages.
    return isNamed && (X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) != 0;
}

/// Records the error in the context, as OpenSSL's own checks do.
void setError(X509_STORE_CTX* context, int code, int depth, X509* certificate)
{
    X509_STORE_CTX_set_error(context, code);
    X509_STORE_CTX_set_error_depth(context, depth);
    X509_STORE_CTX_set_current_cert(context, certificate);
}

/// OpenSSL 3.0 has no purpose for code signing, so the verified chain is checked here. Returns whether it
/// passes, and records the error otherwise.
bool checkCodeSigning(X509_STORE_CTX* context)
{
    STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context);
    for (int depth = 0; depth < sk_X509_num(chain); ++depth) {
        X509* const certificate = sk_X509_value(chain, depth);
        if (!allowsCodeSigning(certificate, depth == 0)) {
            setError(context, X509_V_ERR_INVALID_PURPOSE, depth, certificate);
            return false;
        }
    }
    return true;
}

std::vector<Certificate> chainOf(X509_STORE_CTX* context, Certificate const& leaf)
{
    STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context);
    std::vector<Certificate> certificates{leaf};
    for (int index = 1; index < sk_X509_num(chain); ++index) {
        X509* const certificate = sk_X509_value(chain, index);
        throwIfNotOne<X509CertificateException>(X509_up_ref(certificate), outOfMemoryText);
        certificates.push_back(CertificateAccess::adopt(makeX509(certificate)));
    }
    return certificates;
}

PathResult resultOf(X509_STORE_CTX* context, bool isValid, Certificate const& leaf)
{
    PathResult result;
    result.chain = chainOf(context, leaf);
    if (isValid) {
        result.status = CertificateChainStatus::Valid;
        return result;
    }
    auto const failure = resultForFailedVerification(context);
    result.status = failure.getCertificateChainStatus();
    result.text = failure.getValidationErrorString();
    result.errorCode = X509_STORE_CTX_get_error(context);
    result.errorDepth = X509_STORE_CTX_get_error_depth(context);
    // A failed verification always has an error. Without one there is no verdict.
    if (result.status == CertificateChainStatus::Valid) {
        throw X509CertificateException(noVerdictText);
    }
    return result;
}

/// Verifies once. Does not tell a bad chain from running out of memory; nothing is returned if OpenSSL failed
/// without a verdict.
std::optional<PathResult> verifyOnce(
    X509_STORE* store, Certificate const& leaf, std::vector<Certificate> const& intermediates,
    Settings const& settings)
{
    auto const untrusted = stackOf(intermediates);
    auto const crls = parseCRLs(settings.options.crls);
    Progress progress{settings.options};
    auto const owner = makeX509_STORE_CTX(X509_STORE_CTX_new());
    X509_STORE_CTX* const context = throwIfNull<X509CertificateException>(owner.get(), outOfMemoryText);
    throwIfNotOne<X509CertificateException>(
        X509_STORE_CTX_init(context, store, CertificateAccess::get(leaf), untrusted.get()), outOfMemoryText);
    settings.applyTo(
        throwIfNull<X509CertificateException>(X509_STORE_CTX_get0_param(context), outOfMemoryText));
    X509_STORE_CTX_set0_crls(context, crls.get());
    X509_STORE_CTX_set_verify_cb(context, verifyCallback);
    throwIfNotOne<X509CertificateException>(
        X509_STORE_CTX_set_ex_data(context, progressIndex, &progress), outOfMemoryText);

    int const verified = X509_verify_cert(context);
    int const length = sk_X509_num(X509_STORE_CTX_get0_chain(context));
    // OpenSSL counts a certificate only after it has checked the signature and the dates.
    if (verified < 0 || (verified == 1 && (length < 1 || progress.numVerified < length))) {
        return std::nullopt;
    }
    bool const isPurposeChecked = settings.options.purpose != Purpose::CodeSigning;
    bool const isAccepted = verified == 1 && (isPurposeChecked || checkCodeSigning(context));
    return resultOf(context, isAccepted, leaf);
}

bool isValid(std::optional<PathResult> const& result)
{
    return result && result->isValid();
}

bool areAlike(std::optional<PathResult> const& left, std::optional<PathResult> const& right)
{
    if (!left || !right) {
        return !left && !right;
    }
    return left->errorCode == right->errorCode && left->errorDepth == right->errorDepth &&
           left->text == right->text && left->chain == right->chain;
}

} // namespace

bool PathResult::isValid() const
{
    return status == CertificateChainStatus::Valid;
}

PathValidator::PathValidator(TrustStore const& roots) : store(makeRootStore(roots)) {}

PathValidator::PathValidator(std::vector<Certificate> const& roots) : store(makeRootStore(roots)) {}

PathValidator::PathValidator(PathValidator const& other) = default;

PathValidator& PathValidator::operator=(PathValidator const& other) = default;

PathValidator::~PathValidator() = default;

PathValidator PathValidator::withSystemRoots(TrustStore::Usage usage)
{
    TrustStore roots;
    roots.addSystemCertificates(usage);
    return PathValidator(roots);
}

PathResult PathValidator::validate(
    Certificate const& leaf, std::vector<Certificate> const& intermediates, PathOptions const& options) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    Settings const settings(options);
    std::vector<std::optional<PathResult>> attempts;
    runUnlessOutOfMemory([&] {
        attempts.push_back(verifyOnce(store.get(), leaf, intermediates, settings));
        return isValid(attempts.back());
    });
    auto const& last = attempts.back();
    // One of two failed attempts may have run out of memory. A failure counts only if both are alike.
    if (!isValid(last) && !areAlike(attempts.front(), last)) {
        throw X509CertificateException(outOfMemoryText);
    }
    if (!last) {
        throw X509CertificateException(noVerdictText);
    }
    return *last;
}

} // namespace foundation::toolkit
