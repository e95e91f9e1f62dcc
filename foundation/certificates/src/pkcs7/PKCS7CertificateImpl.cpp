#include <foundation/certificates/PKCS7CertificateImpl.hpp>

#include "certificate/Extensions.hpp"
#include "certificate/X509Access.hpp"
#include "certificate/X509CertificateImpl.hpp"
#include "libcrypto/InputReading.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/OpenSSLCleanup.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "pkcs7/GuardedPKCS7.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/pem.h>

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::certificates {

namespace {

constexpr std::string_view pemHeader = "-----BEGIN PKCS7-----";
constexpr StructureFunctions<PKCS7> pkcs7Functions = {PEM_read_bio_PKCS7, d2i_PKCS7_bio, PKCS7_free};

// The structure and the list share each embedded certificate whose extensions are valid, and so do copies.
// X509CertificateImpl has let OpenSSL parse those. In a certificate of the structure's own, OpenSSL would
// parse them during a verification. If it ran out of memory there, it would cache that for all later
// verifications.
//
// A certificate with invalid extensions is not shared: the structure gets a duplicate, whose extensions
// OpenSSL has not parsed yet. The first verification that needs them must find their errors in OpenSSL's
// queue, and OpenSSL queues them only when it parses.

X509UPtr unparsedDuplicateOf(X509* certificate)
{
    auto duplicate = makeX509(X509_dup(certificate));
    throwIfNull<X509CertificateException>(duplicate.get(), "Error: X509Certificate has no content.");
    return duplicate;
}

/// Whether the list's certificate is the same OpenSSL object.
bool isShared(X509Certificate const& certificate, X509 const* embedded)
{
    return !certificate.empty() && X509Access::share(certificate).get() == embedded;
}

/// Returns the list's handle of an embedded certificate, or a new one of a duplicate if they do not share it.
X509Certificate
handleOf(X509* certificate, STACK_OF(X509) const* embedded, std::vector<X509Certificate> const& list)
{
    auto const count = std::min(static_cast<std::size_t>(std::max(sk_X509_num(embedded), 0)), list.size());
    for (std::size_t position = 0; position < count; ++position) {
        if (sk_X509_value(embedded, static_cast<int>(position)) == certificate &&
            isShared(list[position], certificate)) {
            return list[position];
        }
    }
    return X509Certificate(X509CertificateImpl(certificate));
}

/// Returns a copy of the structure that shares those certificates which the structure shares with the list.
PKCS7UPtr duplicateWithSharedCertificates(PKCS7 const* structure, std::vector<X509Certificate> const& list)
{
    auto copy = duplicatePKCS7(structure);
    auto const* const embedded = embeddedCertificates(structure);
    int const count = std::min(sk_X509_num(embedded), sk_X509_num(embeddedCertificates(copy.get())));
    for (int index = 0; index < count; ++index) {
        auto const position = static_cast<std::size_t>(index);
        if (position < list.size() && isShared(list[position], sk_X509_value(embedded, index))) {
            replaceEmbeddedCertificate(copy.get(), index, X509Access::share(list[position]));
        }
    }
    return copy;
}

} // namespace

PKCS7CertificateImpl::PKCS7CertificateImpl() : pkcs7(makePKCS7(nullptr))
{
    registerOpenSSLCleanup();
}

PKCS7CertificateImpl::PKCS7CertificateImpl(ByteArray const& data) : PKCS7CertificateImpl()
{
    init(data);
}

PKCS7CertificateImpl::PKCS7CertificateImpl(std::string const& data) : PKCS7CertificateImpl()
{
    init(bytesOfString(data, "The input PKCS7 certificate data string is invalid. Reason:"));
}

PKCS7CertificateImpl::PKCS7CertificateImpl(std::istream& stream) : PKCS7CertificateImpl()
{
    init(bytesOfStream(
        stream, "The input PKCS7 certificate data stream is invalid.",
        "The input PKCS7 certificate data stream is invalid. Reason:"));
}

PKCS7CertificateImpl::PKCS7CertificateImpl(
    PKCS7CertificateImpl const& other, std::lock_guard<std::mutex> const& /*sourceLock*/)
    : certificates(other.certificates),
      pkcs7(duplicateWithSharedCertificates(other.pkcs7.get(), other.certificates))
{}

PKCS7CertificateImpl::PKCS7CertificateImpl(PKCS7CertificateImpl&& other) noexcept
    : certificates(std::move(other.certificates)),
      pkcs7(std::move(other.pkcs7))
{}

PKCS7CertificateImpl::~PKCS7CertificateImpl() = default;

PKCS7CertificateImpl& PKCS7CertificateImpl::operator=(PKCS7CertificateImpl const& other)
{
    // The steps that can throw come first, so that a failure leaves the object unchanged.
    auto copies = other.certificates;
    // On purpose: the target keeps its own structure, as callers expect.
    auto structure = other.pkcs7 == nullptr ? std::move(pkcs7)
                                            : duplicateWithSharedCertificates(pkcs7.get(), certificates);
    if (this != &other) {
        certificates = std::move(copies);
    }
    pkcs7 = std::move(structure);
    return *this;
}

PKCS7CertificateImpl& PKCS7CertificateImpl::operator=(PKCS7CertificateImpl&& other) noexcept
{
    certificates = std::exchange(other.certificates, {});
    pkcs7 = std::move(other.pkcs7);
    return *this;
}

void PKCS7CertificateImpl::init(ByteArray const& data)
{
    if (data.empty()) {
        throw InvalidArgument("The provided PKCS7 certificate has no content.");
    }
    RAIIOpenSSLErrorRemover errors(true);
    InputForm const form =
        autodetectEncoding(data) == CertificateEncoding::PEM ? InputForm::PEM : InputForm::DER;
    if (form == InputForm::DER) {
        pkcs7 = decodeInPlace(data, d2i_PKCS7, PKCS7_free);
    }
    if (pkcs7 == nullptr) {
        pkcs7 = readStructure<PKCS7CertificateException>(data, form, pkcs7Functions, errors);
    }
    if (!hasSignedType(pkcs7.get())) {
        throw InvalidArgument("Input PKCS7 certificate is corrupt. It doesn't have the right type field.");
    }
    readCertificates();
}

CertificateEncoding PKCS7CertificateImpl::autodetectEncoding(ByteArray const& data) const
{
    return containsMarker(data, pemHeader) ? CertificateEncoding::PEM : CertificateEncoding::DER;
}

void PKCS7CertificateImpl::readCertificates()
{
    auto const* const embedded = embeddedCertificates(pkcs7.get());
    try {
        for (int index = 0; index < sk_X509_num(embedded); ++index) {
            certificates.emplace_back(X509CertificateImpl::adopt(sk_X509_value(embedded, index)));
            auto listed = X509Access::share(certificates.back());
            replaceEmbeddedCertificate(
                pkcs7.get(), index,
                hasValidExtensions(listed.get()) ? std::move(listed) : unparsedDuplicateOf(listed.get()));
        }
    } catch (CertificateException const& failure) {
        throw PKCS7CertificateException(
            std::string("Error: Unable to parse X509 certificate(s) inside PKCS7 certificate.") +
            failure.what());
    }
}

bool PKCS7CertificateImpl::empty() const
{
    return certificates.empty();
}

void PKCS7CertificateImpl::throwIfEmpty() const
{
    if (certificates.empty()) {
        throw PKCS7CertificateException("PKCS7Certificate has no content.");
    }
}

ByteArray PKCS7CertificateImpl::getAsBytes() const
{
    std::string const text = getAsString();
    return ByteArray(text.begin(), text.end());
}

std::string PKCS7CertificateImpl::getAsString() const
{
    if (certificates.empty()) {
        return {};
    }
    auto const bio = makeMemoryBIO();
    throwIfBelowOne<PKCS7CertificateException>(
        PEM_write_bio_PKCS7(bio.get(), pkcs7.get()), "Unable to write out the PKCS7 data");
    return contentsAsString(bio.get());
}

std::vector<X509Certificate> PKCS7CertificateImpl::getCertificates() const
{
    return certificates;
}

std::uint64_t PKCS7CertificateImpl::getNumCertificates() const
{
    return certificates.size();
}

ByteArray PKCS7CertificateImpl::getSignedData() const
{
    auto const content = makeMemoryBIO();
    if (!verifySignatures(
            pkcs7.get(), nullptr, nullptr, nullptr, content.get(), PKCS7_NOVERIFY | PKCS7_NO_DUAL_CONTENT)) {
        return {};
    }
    return contentsAsBytes(content.get());
}

X509CertificateChain PKCS7CertificateImpl::getSignerCerts() const
{
    auto const signers = signersOf(pkcs7.get());
    auto const* const embedded = embeddedCertificates(pkcs7.get());
    X509CertificateChain chain;
    for (int index = 0; index < sk_X509_num(signers.get()); ++index) {
        chain.addCertificate(handleOf(sk_X509_value(signers.get(), index), embedded, certificates));
    }
    return chain;
}

void PKCS7CertificateImpl::print(std::ostream& out) const
{
    out << "Printing PKCS7 certificate.\n";
    for (auto const& certificate : certificates) {
        out << certificate << std::endl;
    }
}

void PKCS7CertificateImpl::addCertificate(X509Certificate const& certificate)
{
    certificates.push_back(certificate);
}

bool PKCS7CertificateImpl::operator==(PKCS7CertificateImpl const& other) const
{
    return certificates == other.certificates;
}

bool PKCS7CertificateImpl::operator!=(PKCS7CertificateImpl const& other) const
{
    return !(*this == other);
}

} // namespace foundation::certificates
