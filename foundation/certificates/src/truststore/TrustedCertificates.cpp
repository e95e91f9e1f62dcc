#include "truststore/TrustedCertificates.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/StoreEntries.hpp"

#include <foundation/certificates/Exceptions.hpp>

#include <algorithm>
#include <cstddef>
#include <unordered_map>
#include <utility>

namespace foundation::certificates {

namespace {

int compareSubject(X509* certificate, X509_NAME const* subject)
{
    return X509_NAME_cmp(X509_get_subject_name(certificate), subject);
}

X509UPtr keep(X509* certificate)
{
    auto reference = furtherReference(certificate);
    throwIfNull<TrustStoreException>(reference.get(), "Null X509 certificate found in TrustStore");
    return reference;
}

X509_CRLUPtr keep(X509_CRL* crl)
{
    constexpr char const notAddedText[] = "Failed to add CRL to store";
    throwIfNull<TrustStoreException>(crl, notAddedText);
    throwIfNotOne<TrustStoreException>(X509_CRL_up_ref(crl), notAddedText);
    return makeX509_CRL(crl);
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
        isReadCompletely(certificate.get()); // now, so that no verification changes a shared certificate
        throwIfBelowOne<TrustStoreException>(sk_X509_push(bySubject.get(), certificate.get()), noMemoryText);
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

SharedTrustedCertificates trustedCertificatesIn(X509_STORE* store)
{
    std::vector<X509UPtr> trusted;
    std::vector<X509_CRLUPtr> crls;
    StoreEntries const entries(store);
    trusted.reserve(static_cast<std::size_t>(entries.count()));
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        if (isCRL(entry)) {
            crls.push_back(keep(X509_OBJECT_get0_X509_CRL(entry)));
        } else {
            trusted.push_back(keep(certificateOf(entry)));
        }
    }
    return std::make_shared<TrustedCertificates const>(std::move(trusted), std::move(crls));
}

SharedTrustedCertificates LiveStoreReader::read(X509_STORE* store)
{
    if (certificates != nullptr && isUpToDate(store)) {
        return certificates;
    }
    auto entries = readAnew(store);
    std::vector<X509UPtr> trusted;
    std::vector<X509_CRLUPtr> crls;
    trusted.reserve(entries.size());
    for (Entry const& entry : entries) {
        if (entry.duplicate != nullptr) {
            trusted.push_back(keep(entry.duplicate.get()));
        } else {
            crls.push_back(keep(entry.crl.get()));
        }
    }
    certificates = std::make_shared<TrustedCertificates const>(std::move(trusted), std::move(crls));
    known = std::move(entries);
    return certificates;
}

X509_STOREUPtr LiveStoreReader::copy(X509_STORE* store) const
{
    auto const entries = readAnew(store);
    auto made = makeStore();
    for (Entry const& entry : entries) {
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
    ByteArray buffer;
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        Entry const& knownEntry = known[static_cast<std::size_t>(index)];
        bool const isSame =
            isCRL(entry)
                ? knownEntry.crl != nullptr && X509_OBJECT_get0_X509_CRL(entry) == knownEntry.crl.get()
                : certificateOf(entry) == knownEntry.certificate.get() && isUnchanged(knownEntry, buffer);
        if (!isSame) {
            return false;
        }
    }
    return true;
}

bool LiveStoreReader::isUnchanged(Entry const& entry, ByteArray& buffer)
{
    int const length = i2d_X509(entry.certificate.get(), nullptr);
    if (length < 1 || static_cast<std::size_t>(length) != entry.encoding.size()) {
        return false;
    }
    buffer.resize(entry.encoding.size());
    unsigned char* position = buffer.data();
    i2d_X509(entry.certificate.get(), &position);
    return buffer == entry.encoding;
}

std::vector<LiveStoreReader::Entry> LiveStoreReader::readAnew(X509_STORE* store) const
{
    std::unordered_map<X509*, Entry const*> knownEntries;
    for (Entry const& entry : known) {
        knownEntries.emplace(entry.certificate.get(), &entry);
    }
    std::vector<Entry> found;
    ByteArray buffer;
    StoreEntries const entries(store);
    found.reserve(static_cast<std::size_t>(entries.count()));
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const object = entries.at(index);
        Entry entry;
        if (isCRL(object)) {
            entry.crl = keep(X509_OBJECT_get0_X509_CRL(object));
        } else {
            entry.certificate = keep(certificateOf(object));
            auto const knownEntry = knownEntries.find(entry.certificate.get());
            if (knownEntry != knownEntries.end() && isUnchanged(*knownEntry->second, buffer)) {
                entry.duplicate = keep(knownEntry->second->duplicate.get());
                entry.encoding = knownEntry->second->encoding;
            } else {
                entry.duplicate = duplicateOf(entry.certificate.get());
                entry.encoding = encodingOf(entry.duplicate.get());
            }
        }
        found.push_back(std::move(entry));
    }
    return found;
}

} // namespace foundation::certificates
