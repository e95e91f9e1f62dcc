#include "truststore/TrustStoreImpl.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509Access.hpp"
#include "certificate/X509CertificateImpl.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLCleanup.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "truststore/DefaultSystemCertificateAdder.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <sstream>
#include <utility>

namespace foundation::certificates {

namespace {

/// Reports a null adder, which the contract excludes.
ISystemCertificateAdder& require(std::unique_ptr<ISystemCertificateAdder> const& adder)
{
    return *throwIfNull<TrustStoreException>(adder.get(), "Error: TrustStore is uninitialized.");
}

bool isAlreadyThere(unsigned long error)
{
    return !ERR_SYSTEM_ERROR(error) && ERR_GET_LIB(error) == ERR_LIB_X509 &&
           ERR_GET_REASON(error) == X509_R_CERT_ALREADY_IN_HASH_TABLE;
}

std::string parseFailedText(ByteArray const& der)
{
    std::stringstream bytes;
    prettyPrintBytes(der, "\nCert Bytes = ", bytes);
    return "Failed to parse DER data to X509 certificate. Cert size = " + std::to_string(der.size()) +
           bytes.str();
}

/// Returns a new store with the entries in the same order: a certificate that `represent` returns for each
/// one, and a reference to each CRL. Null if OpenSSL cannot create a store.
template <typename Represent>
X509_STOREUPtr copyOf(X509_STORE* store, Represent const& represent)
{
    auto copy = makeStore();
    if (copy == nullptr) {
        return copy;
    }
    StoreEntries const entries(store);
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        if (entry != nullptr && X509_OBJECT_get_type(entry) == X509_LU_CRL) {
            throwIfNotOne<TrustStoreException>(
                X509_STORE_add_crl(copy.get(), X509_OBJECT_get0_X509_CRL(entry)),
                "Failed to add CRL to store");
            continue;
        }
        X509* const certificate = certificateOf(entry);
        auto const representative = represent(certificate);
        if (X509_STORE_add_cert(copy.get(), representative.get()) != 1) {
            throw TrustStoreException("Failed to add certificate to store, CN: " + commonNameOf(certificate));
        }
    }
    return copy;
}

/// Returns a further reference, or a duplicate if the certificate has trust settings. Null for null, and if
/// out of memory.
X509UPtr withoutTrustSettings(X509* certificate)
{
    if (certificate == nullptr) {
        return makeX509(nullptr);
    }
    return hasTrustSettings(certificate) ? makeX509(X509_dup(certificate)) : furtherReference(certificate);
}

std::string writePEM(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const bio = makeMemoryBIO();
    throwIfNotOne<TrustStoreException>(
        PEM_write_bio_X509(bio.get(), certificate), "Failed to convert X509 to PEM");
    BUF_MEM* buffer = nullptr;
    BIO_get_mem_ptr(bio.get(), &buffer);
    throwIfNull<TrustStoreException>(buffer, "Failed to get PEM data from buffer");
    return std::string(buffer->data, buffer->length);
}

} // namespace

TrustStoreImpl::Content::Content(X509_STOREUPtr openSSLStore) : store(std::move(openSSLStore))
{
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
}

TrustStoreImpl::TrustStoreImpl() : TrustStoreImpl(makeDefaultSystemCertificateAdder()) {}

TrustStoreImpl::TrustStoreImpl(std::unique_ptr<ISystemCertificateAdder> systemAdder)
    : adder(std::move(systemAdder))
{
    registerOpenSSLCleanup();
    RAIIOpenSSLErrorRemover const errors(false);
    content = std::make_shared<Content>(makeStore());
}

TrustStoreImpl::TrustStoreImpl(TrustStoreImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : adder(require(other.adder).clone())
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (other.isHandedOut()) {
        content = std::make_shared<Content>(other.liveReader->copy(other.store()));
        return;
    }
    other.isContentShared = true;
    isContentShared = true;
    content = other.content;
}

TrustStoreImpl::~TrustStoreImpl() = default;

void TrustStoreImpl::addCertificate(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    addShared(certificate);
}

void TrustStoreImpl::addCertificates(X509CertificateChain const& chain)
{
    for (X509Certificate const& certificate : chain.getCertificates()) {
        RAIIOpenSSLErrorRemover const errors(false);
        if (certificate.isCACertificate()) {
            addShared(X509Access::share(certificate).get());
        }
    }
}

void TrustStoreImpl::addSystemCertificates(TrustStore::Usage usage, bool rethrowOnFailure)
{
    RAIIOpenSSLErrorRemover const errors(false);
    require(adder).addCertificatesTo(*this, usage, rethrowOnFailure);
    removeUnsuitableCertificates(usage);
}

bool TrustStoreImpl::empty() const
{
    return size() == 0;
}

std::size_t TrustStoreImpl::size() const
{
    return static_cast<std::size_t>(readEntries().count());
}

X509CertificateChain TrustStoreImpl::getCertificates() const
{
    X509CertificateChain chain;
    StoreEntries const entries = readEntries();
    for (int index = 0; index < entries.count(); ++index) {
        RAIIOpenSSLErrorRemover const errors(false);
        X509* const certificate = certificateOf(entries.at(index));
        chain.addCertificate(X509Certificate(
            isHandedOut() ? X509CertificateImpl(certificate) : X509Access::implementationWith(certificate)));
    }
    return chain;
}

std::vector<std::string> TrustStoreImpl::getPEMStrings() const
{
    std::vector<std::string> texts;
    StoreEntries const entries = readEntries();
    texts.reserve(static_cast<std::size_t>(entries.count()));
    for (int index = 0; index < entries.count(); ++index) {
        texts.push_back(writePEM(certificateOf(entries.at(index))));
    }
    return texts;
}

void TrustStoreImpl::addDERCertificate(ByteArray const& der)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const certificate = x509FromDER(der);
    if (certificate == nullptr) {
        throw TrustStoreException(parseFailedText(der));
    }
    addEntry(certificate.get());
}

void TrustStoreImpl::addX509(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    addEntry(withoutTrustSettings(certificate).get());
}

X509* TrustStoreImpl::x509At(unsigned index) const
{
    return certificateOf(readEntries().at(static_cast<int>(index)));
}

X509_STOREUPtr TrustStoreImpl::copyStore() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return copyOf(store(), [](X509* certificate) { return makeX509(X509_dup(certificate)); });
}

std::shared_ptr<X509_STORE> TrustStoreImpl::handOutStore()
{
    if (!isHandedOut()) {
        auto reader = std::make_unique<LiveStoreReader>();
        content = std::make_shared<Content>(copyStore());
        isContentShared = false;
        liveReader = std::move(reader);
    }
    return content->store;
}

SharedTrustedCertificates TrustStoreImpl::trustedCertificates()
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (isHandedOut()) {
        return liveReader->read(store());
    }
    std::lock_guard<std::mutex> const lock(content->readingMutex);
    if (content->reading == nullptr) {
        content->reading = trustedCertificatesIn(store());
    }
    return content->reading;
}

bool TrustStoreImpl::isHandedOut() const
{
    return liveReader != nullptr;
}

StoreEntries TrustStoreImpl::readEntries() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return StoreEntries(store());
}

X509_STORE* TrustStoreImpl::store() const
{
    return content->store.get();
}

void TrustStoreImpl::addShared(X509* certificate)
{
    if (!isHandedOut() && mayBeShared(certificate)) {
        addEntry(certificate);
    } else {
        addEntry(makeX509(X509_dup(certificate)).get());
    }
}

void TrustStoreImpl::addEntry(X509* certificate)
{
    beginChange();
    // Some releases of OpenSSL report a certificate that the store holds already. That is a success.
    if (X509_STORE_add_cert(store(), certificate) != 1 && !isAlreadyThere(ERR_peek_last_error())) {
        throw TrustStoreException("Failed to add certificate to store");
    }
}

void TrustStoreImpl::beginChange()
{
    if (isContentShared) {
        content = std::make_shared<Content>(copyOf(store(), furtherReference));
        isContentShared = false;
    }
    content->reading = nullptr;
}

} // namespace foundation::certificates
