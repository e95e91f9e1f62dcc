#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include "certificate/X509Duplicates.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "pkcs7/GuardedPKCS7.hpp"
#include "truststore/SystemCertificateUsage.hpp"
#include "truststore/VerificationStore.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <string>

namespace foundation::certificates {

namespace {

/// OpenSSL's wording of PKCS7_R_CERTIFICATE_VERIFY_ERROR: the check of a chain failed, not that of a
/// signature.
constexpr char const chainErrorText[] = "certificate verify error";

void addTrust(TrustStore& workingStore, TrustStore const& trustStore)
{
    if (!trustStore.empty()) {
        workingStore = trustStore;
        return;
    }
    addSystemCertificatesOfAllUsages(workingStore);
}

/// Returns a copy of the trust store; a store with the operating system's roots if it is empty.
TrustStore workingStoreFor(TrustStore const& trustStore)
{
    TrustStore workingStore;
    try {
        addTrust(workingStore, trustStore);
    } catch (TrustStoreException const&) {
        // Ignored on purpose: without roots the chain is untrusted. The roots read so far are used.
    }
    return workingStore;
}

/// Returns the intermediates as a stack; null if there are no intermediates.
X509StackUPtr intermediateStack(X509CertificateChain const& intermediates)
{
    auto const certificates = intermediates.getCertificates();
    return certificates.empty() ? makeX509Stack(nullptr) : stackOf(certificates);
}

/// Adds the intermediates to the store of OpenSSL's own check, which then trusts them. A certificate that the
/// store refuses is not trusted.
void trustIntermediates(X509_STORE* store, STACK_OF(X509) const* intermediates)
{
    for (int index = 0; index < sk_X509_num(intermediates); ++index) {
        addTrustedCertificate(store, sk_X509_value(intermediates, index));
    }
}

/// Returns the detached content, read in place; null for embedded content.
BIOUPtr detachedContent(ByteArray const& data)
{
    if (data.empty()) {
        return makeBIO(nullptr);
    }
    auto content = makeReaderOf(data);
    if (content == nullptr) {
        throw PKCS7CertificateException(
            "Internal error: The given input data bytes could not be written to a buffer.");
    }
    return content;
}

/// Returns the reason of the oldest entry in the queue, and removes the entry.
std::string takeReason()
{
    return RAIIOpenSSLErrorRemover(false).getErrorString();
}

PKCS7CertificateValidationResults failed(std::string const& text)
{
    return {false, CertificateChainStatus::Failed, text};
}

} // namespace

// Does not clear or mark the error queue before it reads the reasons: an entry of an earlier call replaces
// the reason of the first pass.
PKCS7CertificateValidationResults PKCS7CertificateImpl::verifySignature(
    X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const
{
    TrustStore const workingStore = workingStoreFor(trustStore);
    auto const store = makeVerificationStore(workingStore);
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
    auto const untrusted = intermediateStack(intermediates);
    trustIntermediates(store.get(), untrusted.get());
    auto const content = detachedContent(data);
    int const flags = content == nullptr ? PKCS7_NO_DUAL_CONTENT : 0;

    bool const isVerified =
        verifySignatures(pkcs7.get(), untrusted.get(), store.get(), content.get(), nullptr, flags);
    throwIfIncomplete(store.get());
    if (isVerified) {
        return {true, CertificateChainStatus::Valid, ""};
    }
    std::string const text = takeReason();
    if (text != chainErrorText) {
        return failed(text);
    }
    // The chain failed. Check the signatures again without the chain.
    if (!verifySignatures(pkcs7.get(), untrusted.get(), nullptr, content.get(), nullptr, PKCS7_NOVERIFY)) {
        return failed(takeReason());
    }
    auto results = validateFirstSigner(intermediates, workingStore);
    // If the trust store could not be copied, the validation has used the operating system's roots instead of
    // the caller's.
    bool const usedSystemRoots = workingStore.empty() && !trustStore.empty();
    if (usedSystemRoots && results.getCertificateChainStatus() == CertificateChainStatus::Valid) {
        return {true, CertificateChainStatus::Untrusted, chainErrorText};
    }
    return results;
}

PKCS7CertificateValidationResults PKCS7CertificateImpl::validateFirstSigner(
    X509CertificateChain const& intermediates, TrustStore const& trustStore) const
{
    auto const signers = getSignerCerts().getCertificates();
    if (signers.empty()) {
        return failed(chainErrorText);
    }
    auto const results =
        signers.front().validateCertificate(intermediates, CertificateValidationOptions(), trustStore);
    auto const status = results.getCertificateChainStatus();
    // This check requires no purpose, so it can pass a chain that OpenSSL's own check rejects. The text of
    // the first pass stays then.
    return {
        true, status,
        status == CertificateChainStatus::Valid ? chainErrorText : results.getValidationErrorString()};
}

} // namespace foundation::certificates
