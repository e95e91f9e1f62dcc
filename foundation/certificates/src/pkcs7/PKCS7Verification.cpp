#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include "certificate/X509Duplicates.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "pkcs7/GuardedPKCS7.hpp"
#include "truststore/SystemCertificateUsage.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <string>

namespace foundation::certificates {

namespace {

/// OpenSSL's wording of PKCS7_R_CERTIFICATE_VERIFY_ERROR: the check of a chain, and not of a signature,
/// failed.
constexpr char const chainErrorText[] = "certificate verify error";

void addTrust(TrustStore& workingStore, TrustStore const& trustStore)
{
    if (!trustStore.empty()) {
        workingStore = trustStore;
        return;
    }
    addSystemCertificatesOfAllUsages(workingStore);
}

/// A copy of the trust store; of an empty one, the operating system's certificates.
TrustStore workingStoreFor(TrustStore const& trustStore)
{
    TrustStore workingStore;
    try {
        addTrust(workingStore, trustStore);
    } catch (TrustStoreException const&) {
        // Not reported, on purpose: trust that cannot be had is no trust, and the verdict on the chain, which
        // rests on what was gathered until now, says so by itself.
    }
    return workingStore;
}

/// The untrusted certificates; null where there are none.
X509StackUPtr intermediateStack(X509CertificateChain const& intermediates)
{
    auto const certificates = intermediates.getCertificates();
    return certificates.empty() ? makeX509Stack(nullptr) : stackOf(certificates);
}

/// OpenSSL's own check of the chain takes intermediates as trusted. One that the store refuses is left out,
/// which shows in that check.
void trustIntermediates(X509_STORE* store, STACK_OF(X509) const* intermediates)
{
    for (int index = 0; index < sk_X509_num(intermediates); ++index) {
        X509_STORE_add_cert(store, sk_X509_value(intermediates, index));
    }
}

/// Content that lies apart from its signature; null where there is none.
BIOUPtr detachedContent(ByteArray const& data)
{
    if (data.empty()) {
        return makeBIO(nullptr);
    }
    auto content = makeMemoryBIO();
    if (!writeAll(content.get(), data)) {
        throw PKCS7CertificateException(
            "Internal error: The given input data bytes could not be written to a buffer.");
    }
    return content;
}

/// The reason of the oldest entry in the queue, which goes.
std::string takeReason()
{
    return RAIIOpenSSLErrorRemover(false).getErrorString();
}

PKCS7CertificateValidationResults failed(std::string const& text)
{
    return {false, CertificateChainStatus::Failed, text};
}

} // namespace

// The queue of errors is read, and neither cleared nor marked before the passes: a reason that was there
// already is taken for that of the first.
PKCS7CertificateValidationResults PKCS7CertificateImpl::verifySignature(
    X509CertificateChain const& intermediates, TrustStore const& trustStore, ByteArray const& data) const
{
    TrustStore const workingStore = workingStoreFor(trustStore);
    auto const store = copyOpenSSLStore(workingStore);
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
    auto const untrusted = intermediateStack(intermediates);
    trustIntermediates(store.get(), untrusted.get());
    auto const content = detachedContent(data);
    int const flags = content == nullptr ? PKCS7_NO_DUAL_CONTENT : 0;

    if (verifies(pkcs7.get(), untrusted.get(), store.get(), content.get(), nullptr, flags)) {
        return {true, CertificateChainStatus::Valid, ""};
    }
    std::string const text = takeReason();
    if (text != chainErrorText) {
        return failed(text);
    }
    // The chain alone failed, or failed first: once more without it.
    if (!verifies(pkcs7.get(), untrusted.get(), nullptr, content.get(), nullptr, PKCS7_NOVERIFY)) {
        return failed(takeReason());
    }
    auto results = validateFirstSigner(intermediates, workingStore);
    // Where the trust store could not be copied, the validation was left with an empty one and turned to the
    // operating system's certificates, which are not the caller's.
    bool const isOthersTrust = workingStore.empty() && !trustStore.empty();
    if (isOthersTrust && results.getCertificateChainStatus() == CertificateChainStatus::Valid) {
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
    // The text stays where this check passes what OpenSSL's refused: the two ask for different purposes.
    return {
        true, status,
        status == CertificateChainStatus::Valid ? chainErrorText : results.getValidationErrorString()};
}

} // namespace foundation::certificates
