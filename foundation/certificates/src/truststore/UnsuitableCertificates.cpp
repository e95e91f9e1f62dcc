#include "truststore/TrustStoreImpl.hpp"

#include "base/DiagnosticLogger.hpp"
#include "certificate/Extensions.hpp"
#include "certificate/NamesAndTimes.hpp"
#include "libcrypto/OutOfMemory.hpp"
#include "truststore/SystemCertificateUsage.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace foundation::certificates {

namespace {

using log::severity;

/// Whether OpenSSL accepts the certificate as a trust anchor for TLS servers.
/// @throws X509CertificateException as extensionOf does
bool isTLSServerAnchor(X509* certificate)
{
    // OpenSSL parses the extensions once and caches even a failure. Only a duplicate is parsed again.
    auto duplicate = makeX509(nullptr);
    bool const lacksMemory = lacksMemoryFor([&] {
        if (hasValidExtensions(certificate)) {
            return true;
        }
        duplicate = makeX509(X509_dup(certificate));
        return duplicate != nullptr && hasValidExtensions(duplicate.get());
    });
    if (lacksMemory) {
        throw X509CertificateException(unreadableExtensionsText);
    }
    X509* const judged = duplicate == nullptr ? certificate : duplicate.get();
    return X509_check_purpose(judged, X509_PURPOSE_SSL_SERVER, X509_check_ca(judged)) > 0;
}

bool keyUsageAllowsSigning(X509 const* certificate)
{
    auto const usage = keyUsageOf(certificate);
    if (usage == nullptr) {
        return true;
    }
    constexpr int digitalSignature = 0;
    constexpr int keyCertSign = 5;
    constexpr int cRLSign = 6;
    return ASN1_BIT_STRING_get_bit(usage.get(), digitalSignature) != 0 ||
           ASN1_BIT_STRING_get_bit(usage.get(), keyCertSign) != 0 ||
           ASN1_BIT_STRING_get_bit(usage.get(), cRLSign) != 0;
}

/// Whether the end of validity has passed, or cannot be read. The start does not matter: a certificate that
/// is not valid yet has not expired.
bool isExpired(X509* certificate)
{
    int days = -1;
    int seconds = -1;
    ASN1_TIME_diff(&days, &seconds, nullptr, X509_getm_notAfter(certificate));
    return days < 0 || seconds < 0;
}

/// Whether the certificate must leave the store. Logs it if so. The name and the usage of an expired
/// certificate are evaluated only if the record is enabled.
bool isUnsuitable(X509* certificate, TrustStore::Usage usage)
{
    bool const expired = isExpired(certificate);
    if (!expired && isValidForUsage(certificate, usage)) {
        return false;
    }
    diagnosticLogger().write(severity::information, [&](std::ostream& out) {
        out << "Certificate (CN: " << commonNameOf(certificate)
            << ") expired or invalid for usage (expired: " << expired
            << ", invalid for usage: " << !isValidForUsage(certificate, usage) << ")";
    });
    return true;
}

/// Whether the entry, which may be no certificate, must leave the store. Logs it if so.
bool isUnsuitableEntry(X509_OBJECT const* entry, TrustStore::Usage usage)
{
    // One error scope for each entry: OpenSSL's error queue is short, and the errors of many damaged
    // certificates would push the caller's entries out of it.
    RAIIOpenSSLErrorRemover const errors(false);
    X509* certificate = nullptr;
    try {
        certificate = certificateOf(entry);
    } catch (TrustStoreException const& failure) {
        diagnosticLogger().write(severity::information, [&](std::ostream& out) {
            out << "Failed to get certificate: " << failure.what();
        });
        return true;
    }
    return isUnsuitable(certificate, usage);
}

void removeEntries(X509_STORE* store, std::vector<X509_OBJECT*> const& unsuitable)
{
    STACK_OF(X509_OBJECT)* const entries = liveEntriesOf(store);
    StoreLock const lock(store);
    for (X509_OBJECT* const entry : unsuitable) {
        auto const removed = makeX509_OBJECT(sk_X509_OBJECT_delete_ptr(entries, entry));
    }
}

} // namespace

bool isValidForUsage(X509* certificate, TrustStore::Usage usage)
{
    switch (usage) {
    case TrustStore::Usage::ServerAuthentication:
        return isTLSServerAnchor(certificate);
    case TrustStore::Usage::Signing:
        return keyUsageAllowsSigning(certificate) &&
               extendedKeyUsageAllowsAnyOf(certificate, extendedKeyUsageNIDs(usage));
    }
    return false;
}

void TrustStoreImpl::removeUnsuitableCertificates(TrustStore::Usage usage)
{
    beginChange();
    std::vector<X509_OBJECT*> unsuitable;
    STACK_OF(X509_OBJECT)* const entries = liveEntriesOf(store());
    for (int index = 0; index < sk_X509_OBJECT_num(entries); ++index) {
        X509_OBJECT* const entry = sk_X509_OBJECT_value(entries, index);
        if (isUnsuitableEntry(entry, usage)) {
            unsuitable.push_back(entry);
        }
    }
    // Removes the entries only now, because a removal changes the indices.
    removeEntries(store(), unsuitable);
    diagnosticLogger().write(severity::information, [&](std::ostream& out) {
        out << "Removed " << std::to_string(unsuitable.size()) << " expired or invalid certificates";
    });
}

} // namespace foundation::certificates
