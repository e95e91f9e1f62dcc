#include "truststore/TrustStoreImpl.hpp"

#include "certificate/NamesAndTimes.hpp"
#include "certificate/X509CertificateImpl.hpp"
#include "certificate/X509Duplicates.hpp"
#include "libcrypto/MemoryBIO.hpp"
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

/// Null is excluded by contract; this is what comes of it all the same.
ISystemCertificateAdder& require(std::unique_ptr<ISystemCertificateAdder> const& adder)
{
    return *throwIfNull<TrustStoreException>(adder.get(), "Error: TrustStore is uninitialized.");
}

int entryCount(X509_STORE* store)
{
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

X509_OBJECT* entryAt(X509_STORE* store, int index)
{
    return sk_X509_OBJECT_value(X509_STORE_get0_objects(store), index);
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

/// A certificate that shares nothing with the X509Certificate. It comes out of the encoding of one that was
/// checked when it was loaded, so it is not checked again: a loader of X509Certificate would empty OpenSSL's
/// queue, which is to stay as the caller has it.
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
    RAIIOpenSSLErrorRemover const errors(false);
    store = shareStore(makeX509_STORE(X509_STORE_new()));
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
    RAIIOpenSSLErrorRemover const errors(false);
    return static_cast<std::size_t>(entryCount(store.get()));
}

X509CertificateChain TrustStoreImpl::getCertificates() const
{
    X509CertificateChain chain;
    std::size_t const count = size();
    for (unsigned index = 0; index < count; ++index) {
        RAIIOpenSSLErrorRemover const errors(false);
        chain.addCertificate(X509Certificate(X509CertificateImpl(x509At(index))));
    }
    return chain;
}

std::vector<std::string> TrustStoreImpl::getPEMStrings() const
{
    std::vector<std::string> texts;
    std::size_t const count = size();
    for (unsigned index = 0; index < count; ++index) {
        texts.push_back(writePEM(x509At(index)));
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
    // What this OpenSSL reports for a certificate that is there already is no failure here.
    if (X509_STORE_add_cert(store.get(), certificate) != 1 && !isAlreadyThere(ERR_peek_last_error())) {
        throw TrustStoreException("Failed to add certificate to store");
    }
}

X509* TrustStoreImpl::x509At(unsigned index) const
{
    RAIIOpenSSLErrorRemover const errors(false);
    X509_OBJECT const* const entry = entryAt(store.get(), static_cast<int>(index));
    if (entry == nullptr || X509_OBJECT_get_type(entry) != X509_LU_X509) {
        throw TrustStoreException("Unsupported object type found in TrustStore");
    }
    return throwIfNull<TrustStoreException>(
        X509_OBJECT_get0_X509(entry), "Null X509 certificate found in TrustStore");
}

X509_STOREUPtr TrustStoreImpl::copyStore() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto copy = makeX509_STORE(X509_STORE_new());
    if (copy == nullptr) {
        return copy;
    }
    int const count = entryCount(store.get());
    for (int index = 0; index < count; ++index) {
        X509_OBJECT* const entry = entryAt(store.get(), index);
        if (entry != nullptr && X509_OBJECT_get_type(entry) == X509_LU_CRL) {
            throwIfNotOne<TrustStoreException>(
                X509_STORE_add_crl(copy.get(), X509_OBJECT_get0_X509_CRL(entry)),
                "Failed to add CRL to store");
            continue;
        }
        X509* const certificate = x509At(static_cast<unsigned>(index));
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

} // namespace foundation::certificates
