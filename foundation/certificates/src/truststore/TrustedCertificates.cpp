#include "truststore/TrustedCertificates.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"
#include "truststore/StoreEntries.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/x509v3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

namespace foundation::certificates {

namespace {

int compareSubject(X509* certificate, X509_NAME const* subject)
{
    return X509_NAME_cmp(X509_get_subject_name(certificate), subject);
}

X509_CRLUPtr furtherReference(X509_CRL* crl)
{
    return makeX509_CRL(crl != nullptr && X509_CRL_up_ref(crl) == 1 ? crl : nullptr);
}

bool isCRL(X509_OBJECT const* entry)
{
    return entry != nullptr && X509_OBJECT_get_type(entry) == X509_LU_CRL;
}

TrustStoreException notAdded(X509* certificate)
{
    return TrustStoreException("Failed to add certificate to store, CN: " + commonNameOf(certificate));
}

X509UPtr duplicateOf(X509* certificate)
{
    auto duplicate = makeX509(X509_dup(certificate));
    if (duplicate == nullptr) {
        throw notAdded(certificate);
    }
    return duplicate;
}

/// What OpenSSL found when it read a certificate.
std::pair<std::uint32_t, int> findingsIn(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return {X509_get_extension_flags(certificate), EVP_PKEY_get_bits(X509_get0_pubkey(certificate))};
}

/// Replaces a certificate that OpenSSL could not read by a duplicate, which it reads again. Returns whether
/// the outcome is final: a success, or the same failure twice although memory is available.
bool readCompletely(X509UPtr& certificate)
{
    if (isReadCompletely(certificate.get())) {
        return true;
    }
    auto duplicate = duplicateOf(certificate.get());
    bool const isFinal = isReadCompletely(duplicate.get()) ||
                         (findingsIn(duplicate.get()) == findingsIn(certificate.get()) && hasMemoryAtHand());
    certificate = std::move(duplicate);
    return isFinal;
}

} // namespace

TrustedCertificates::TrustedCertificates(
    std::vector<X509UPtr> certificates, std::vector<X509_CRLUPtr> storedCRLs)
    : bySubject(makeX509Stack(sk_X509_new_reserve(nullptr, static_cast<int>(certificates.size())))),
      storeCRLs(std::move(storedCRLs))
{
    constexpr char const noMemoryText[] = "Failed to create X509_STORE";
    throwIfNull<TrustStoreException>(bySubject.get(), noMemoryText);
    std::stable_sort(
        certificates.begin(), certificates.end(), [](X509UPtr const& left, X509UPtr const& right) {
            return compareSubject(left.get(), X509_get_subject_name(right.get())) < 0;
        });
    for (X509UPtr& certificate : certificates) {
        throwIfZero<TrustStoreException>(
            static_cast<std::size_t>(sk_X509_push(bySubject.get(), certificate.get())), noMemoryText);
        static_cast<void>(certificate.release()); // the stack owns it now; a failed push would not have
    }
}

TrustedCertificates::Range TrustedCertificates::withSubject(X509_NAME const* subject) const
{
    Range range{0, sk_X509_num(bySubject.get())};
    while (range.begin < range.end) {
        int const middle = range.begin + (range.end - range.begin) / 2;
        if (compareSubject(at(middle), subject) < 0) {
            range.begin = middle + 1;
        } else {
            range.end = middle;
        }
    }
    while (range.end < sk_X509_num(bySubject.get()) && compareSubject(at(range.end), subject) == 0) {
        ++range.end;
    }
    return range;
}

X509* TrustedCertificates::at(int position) const
{
    return sk_X509_value(bySubject.get(), position);
}

std::vector<X509_CRLUPtr> const& TrustedCertificates::crls() const
{
    return storeCRLs;
}

TrustedCertificatesReading::TrustedCertificatesReading(X509_STORE* store)
{
    std::vector<X509UPtr> trusted;
    std::vector<X509_CRLUPtr> crls;
    StoreEntries const entries(store);
    trusted.reserve(static_cast<std::size_t>(entries.count()));
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        if (isCRL(entry)) {
            crls.push_back(furtherReference(X509_OBJECT_get0_X509_CRL(entry)));
            continue;
        }
        trusted.push_back(furtherReference(certificateOf(entry)));
        isFinal = readCompletely(trusted.back()) && isFinal;
    }
    certificates = std::make_shared<TrustedCertificates const>(std::move(trusted), std::move(crls));
}

SharedTrustedCertificates LiveStoreReader::read(X509_STORE* store)
{
    if (certificates != nullptr && isUpToDate(store)) {
        return certificates;
    }
    auto reading = readAnew(store);
    std::vector<X509UPtr> trusted;
    std::vector<X509_CRLUPtr> crls;
    trusted.reserve(reading.entries.size());
    for (Entry const& entry : reading.entries) {
        if (entry.duplicate != nullptr) {
            trusted.push_back(furtherReference(entry.duplicate.get()));
        } else {
            crls.push_back(furtherReference(entry.crl.get()));
        }
    }
    auto made = std::make_shared<TrustedCertificates const>(std::move(trusted), std::move(crls));
    if (reading.isFinal) {
        known = std::move(reading.entries);
        certificates = made;
    }
    return made;
}

X509_STOREUPtr LiveStoreReader::copy(X509_STORE* store) const
{
    auto const reading = readAnew(store);
    auto made = makeStore();
    for (Entry const& entry : reading.entries) {
        if (made == nullptr) {
            break;
        }
        if (entry.duplicate == nullptr) {
            throwIfNotOne<TrustStoreException>(
                X509_STORE_add_crl(made.get(), entry.crl.get()), "Failed to add CRL to store");
        } else if (X509_STORE_add_cert(made.get(), entry.duplicate.get()) != 1) {
            throw notAdded(entry.certificate.get());
        }
    }
    return made;
}

bool LiveStoreReader::isUpToDate(X509_STORE* store) const
{
    StoreEntries const entries(store);
    if (static_cast<std::size_t>(entries.count()) != known.size()) {
        return false;
    }
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        Entry const& knownEntry = known[static_cast<std::size_t>(index)];
        bool const isSame = isCRL(entry) ? knownEntry.crl != nullptr &&
                                               X509_OBJECT_get0_X509_CRL(entry) == knownEntry.crl.get()
                                         : certificateOf(entry) == knownEntry.certificate.get();
        if (!isSame) {
            return false;
        }
    }
    return true;
}

std::vector<LiveStoreReader::Entry> LiveStoreReader::entriesOf(X509_STORE* store)
{
    std::vector<Entry> found;
    StoreEntries const entries(store);
    found.reserve(static_cast<std::size_t>(entries.count()));
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        auto certificate = makeX509(nullptr);
        auto crl = makeX509_CRL(nullptr);
        if (isCRL(entry)) {
            crl = furtherReference(X509_OBJECT_get0_X509_CRL(entry));
        } else {
            certificate = furtherReference(certificateOf(entry));
        }
        found.push_back({std::move(certificate), std::move(crl), makeX509(nullptr)});
    }
    return found;
}

LiveStoreReader::Reading LiveStoreReader::readAnew(X509_STORE* store) const
{
    std::unordered_map<X509*, X509*> knownDuplicates;
    for (Entry const& entry : known) {
        if (entry.certificate != nullptr) {
            knownDuplicates.emplace(entry.certificate.get(), entry.duplicate.get());
        }
    }
    Reading reading;
    reading.entries = entriesOf(store);
    for (Entry& entry : reading.entries) {
        if (entry.certificate == nullptr) {
            continue;
        }
        auto const found = knownDuplicates.find(entry.certificate.get());
        if (found != knownDuplicates.end()) {
            entry.duplicate = furtherReference(found->second);
            continue;
        }
        entry.duplicate = duplicateOf(entry.certificate.get());
        reading.isFinal = readCompletely(entry.duplicate) && reading.isFinal;
    }
    return reading;
}

} // namespace foundation::certificates
