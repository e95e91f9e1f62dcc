#include <foundation/certificates/X509CertificateChainImpl.hpp>

#include "certificate/X509CertificateImpl.hpp"
#include "libcrypto/InputReading.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/NoPassphrase.hpp"
#include "libcrypto/OpenSSLCleanup.hpp"
#include "libcrypto/PEMBlocks.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <ostream>
#include <utility>

namespace foundation::certificates {

namespace {

/// Returns the blocks that OpenSSL finds in the text; null, with the reason in its queue, if one is damaged.
X509_INFOStackUPtr readPEMBlocks(std::string const& text)
{
    auto const bio = makeMemoryBIO();
    // The text ends at its first NUL character. A text that cannot be written counts as one without blocks.
    writePEM(bio.get(), text.c_str());
    return makeX509_INFOStack(PEM_X509_INFO_read_bio(bio.get(), nullptr, refusePassphrase, nullptr));
}

/// Returns the certificate of the entry; null if the entry also holds a key or a CRL. OpenSSL puts these into
/// the entry of a neighboring certificate or into their own. The chain refuses both.
X509* certificateIn(X509_INFO const* entry)
{
    bool const holdsNothingElse = entry != nullptr && entry->crl == nullptr && entry->x_pkey == nullptr;
    return holdsNothingElse ? entry->x509 : nullptr;
}

X509Certificate loadCertificate(X509_INFO const* entry)
{
    try {
        return X509Certificate(X509CertificateImpl::adopt(certificateIn(entry)));
    } catch (CertificateException const& failure) {
        throw X509CertificateChainException(
            std::string("Error: Unable to parse X509 certificate inside X509 certificate chain.") +
            failure.what());
    }
}

} // namespace

X509CertificateChainImpl::X509CertificateChainImpl()
{
    registerOpenSSLCleanup();
}

X509CertificateChainImpl::X509CertificateChainImpl(std::string const& pem) : X509CertificateChainImpl()
{
    init(pem);
}

X509CertificateChainImpl::X509CertificateChainImpl(std::istream& stream) : X509CertificateChainImpl()
{
    init(textOfStream(
        stream, "The input certificate chain data stream is invalid.",
        "The input X509 certificate chain data stream is invalid. Reason:"));
}

X509CertificateChainImpl::X509CertificateChainImpl(
    X509CertificateChainImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : certificates(other.certificates)
{}

X509CertificateChainImpl::X509CertificateChainImpl(X509CertificateChainImpl&& other) noexcept = default;

X509CertificateChainImpl::~X509CertificateChainImpl() = default;

X509CertificateChainImpl& X509CertificateChainImpl::operator=(X509CertificateChainImpl const& other)
{
    if (this != &other) {
        // Copy first, so that a failure leaves the list unchanged.
        certificates = std::vector<X509Certificate>(other.certificates);
    }
    return *this;
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor): it copies
X509CertificateChainImpl& X509CertificateChainImpl::operator=(X509CertificateChainImpl&& other)
{
    if (this != &other) {
        certificates = std::vector<X509Certificate>(other.certificates);
    }
    other.certificates.clear();
    return *this;
}

void X509CertificateChainImpl::init(std::string const& text)
{
    if (text.empty()) {
        throw InvalidArgument("The provided certificate chain string has no content.");
    }
    RAIIOpenSSLErrorRemover errors(true);
    auto const entries = readPEMBlocks(text);
    for (int index = 0; index < sk_X509_INFO_num(entries.get()); ++index) {
        certificates.push_back(loadCertificate(sk_X509_INFO_value(entries.get(), index)));
    }
    if (!certificates.empty() && hidesBlock(splitPEMBlocks(text.c_str()))) {
        ERR_raise(ERR_LIB_PEM, PEM_R_BAD_END_LINE);
    }
    throwIfLoadingFailed<X509CertificateChainException>(
        !certificates.empty(), errors, "Error: Loading a certificate chain failed. Reason=");
}

void X509CertificateChainImpl::addCertificate(X509Certificate const& certificate)
{
    certificates.push_back(certificate);
}

bool X509CertificateChainImpl::empty() const
{
    return certificates.empty();
}

std::size_t X509CertificateChainImpl::getNumCertificates() const
{
    return certificates.size();
}

std::vector<X509Certificate> X509CertificateChainImpl::getCertificates() const
{
    return certificates;
}

void X509CertificateChainImpl::print(std::ostream& out) const
{
    out << "Printing certificate chain.\n"
        << "---------------------------\n";
    for (X509Certificate const& certificate : certificates) {
        out << certificate << std::endl;
    }
}

X509Certificate X509CertificateChainImpl::popLeafCertificate()
{
    throwIfEmpty();
    auto const leaf =
        std::find_if(certificates.begin(), certificates.end(), [](X509Certificate const& certificate) {
            return !certificate.isCACertificate();
        });
    if (leaf == certificates.end()) {
        throw X509CertificateChainException(
            "Unable to find a leaf certificate in the given certificate chain");
    }
    X509Certificate result(*leaf);
    certificates.erase(leaf);
    return result;
}

void X509CertificateChainImpl::throwIfEmpty() const
{
    if (empty()) {
        throw X509CertificateChainException("X509CertificateChain has no content.");
    }
}

} // namespace foundation::certificates
