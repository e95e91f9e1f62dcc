#include "truststore/TrustStoreImpl.hpp"

#include "certificate/NamesAndTimes.hpp"
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

std::shared_ptr<X509_STORE> shareStore(X509_STOREUPtr store)
{
    throwIfNull<TrustStoreException>(store.get(), "Failed to create X509_STORE");
    return std::shared_ptr<X509_STORE>(std::move(store));
}

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

/// Returns a certificate that shares nothing with the X509Certificate. Loading it as an X509Certificate would
/// check it a second time and clear the caller's error queue.
X509UPtr separate(X509Certificate const& certificate)
{
    return x509FromDER(certificate.getAsBytes());
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

TrustStoreImpl::TrustStoreImpl() : TrustStoreImpl(makeDefaultSystemCertificateAdder()) {}

TrustStoreImpl::TrustStoreImpl(std::unique_ptr<ISystemCertificateAdder> systemAdder)
    : adder(std::move(systemAdder))
{
    registerOpenSSLCleanup();
    RAIIOpenSSLErrorRemover const errors(false);
    store = shareStore(makeStore());
}

TrustStoreImpl::TrustStoreImpl(TrustStoreImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : adder(require(other.adder).clone())
{
    RAIIOpenSSLErrorRemover const errors(false);
    store = shareStore(other.copyStore());
}

TrustStoreImpl::~TrustStoreImpl() = default;

void TrustStoreImpl::addCertificate(X509Certificate const& certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    addX509(separate(certificate).get());
}

void TrustStoreImpl::addCertificates(X509CertificateChain const& chain)
{
    for (X509Certificate const& certificate : chain.getCertificates()) {
        RAIIOpenSSLErrorRemover const errors(false);
        if (certificate.isCACertificate()) {
            addCertificate(certificate);
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
        chain.addCertificate(X509Certificate(X509CertificateImpl(certificateOf(entries.at(index)))));
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
    addX509(certificate.get());
}

void TrustStoreImpl::addX509(X509* certificate)
{
    RAIIOpenSSLErrorRemover const errors(false);
    // Some releases of OpenSSL report a certificate that the store holds already. That is a success.
    if (X509_STORE_add_cert(store.get(), certificate) != 1 && !isAlreadyThere(ERR_peek_last_error())) {
        throw TrustStoreException("Failed to add certificate to store");
    }
}

X509* TrustStoreImpl::x509At(unsigned index) const
{
    return certificateOf(readEntries().at(static_cast<int>(index)));
}

X509_STOREUPtr TrustStoreImpl::copyStore() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto copy = makeStore();
    if (copy == nullptr) {
        return copy;
    }
    StoreEntries const entries = readEntries();
    for (int index = 0; index < entries.count(); ++index) {
        X509_OBJECT const* const entry = entries.at(index);
        if (entry != nullptr && X509_OBJECT_get_type(entry) == X509_LU_CRL) {
            throwIfNotOne<TrustStoreException>(
                X509_STORE_add_crl(copy.get(), X509_OBJECT_get0_X509_CRL(entry)),
                "Failed to add CRL to store");
            continue;
        }
        X509* const certificate = certificateOf(entry);
        auto const duplicate = makeX509(X509_dup(certificate));
        if (X509_STORE_add_cert(copy.get(), duplicate.get()) != 1) {
            throw TrustStoreException("Failed to add certificate to store, CN: " + commonNameOf(certificate));
        }
    }
    return copy;
}

std::shared_ptr<X509_STORE> TrustStoreImpl::getStore() const
{
    return store;
}

StoreEntries TrustStoreImpl::readEntries() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return StoreEntries(store.get());
}

} // namespace foundation::certificates
