#include <foundation/toolkit/Issuance.hpp>

#include "GeneralNames.hpp"
#include "KeyTexts.hpp"
#include "RequestAccess.hpp"
#include "SigningKeys.hpp"
#include "SubjectNames.hpp"
#include "certificate/NamesAndTimes.hpp"
#include "libcrypto/IntRange.hpp"
#include "libcrypto/MemoryBIO.hpp"
#include "libcrypto/NoPassphrase.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "libcrypto/OutOfMemory.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/pem.h>

#include <utility>

namespace foundation::toolkit {

using namespace foundation::certificates;

namespace {

constexpr char const notMadeText[] = "Internal error: The request could not be made.";

X509_REQUPtr parsedPEM(std::string_view text)
{
    auto request = makeX509_REQ(nullptr);
    auto const parse = [&] {
        auto const bio = makeBIO(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        request = makeX509_REQ(
            bio == nullptr ? nullptr : PEM_read_bio_X509_REQ(bio.get(), nullptr, refusePassphrase, nullptr));
        return request != nullptr;
    };
    if (!text.empty() && fitsInInt(text.size())) {
        throwIfLacksMemoryFor<CertificateException>(parse, unreadableRequestText);
    }
    throwIfNull<InvalidArgument>(request.get(), "The text holds no certificate request.");
    return request;
}

X509_REQUPtr parsedDER(ByteArray const& der)
{
    auto request = makeX509_REQ(nullptr);
    auto const parse = [&] {
        auto const* position = der.data();
        request = makeX509_REQ(d2i_X509_REQ(nullptr, &position, static_cast<long>(der.size())));
        if (position != der.data() + der.size()) {
            request.reset();
        }
        return request != nullptr;
    };
    if (!der.empty() && fitsInInt(der.size())) {
        throwIfLacksMemoryFor<CertificateException>(parse, unreadableRequestText);
    }
    throwIfNull<InvalidArgument>(request.get(), "The bytes are no certificate request.");
    return request;
}

/// Returns a duplicate that was parsed anew; null after a failure. X509_REQ_dup crashes if it runs out of
/// memory.
X509_REQUPtr duplicateOf(X509_REQ const* request)
{
    unsigned char* bytes = nullptr;
    int const size = i2d_X509_REQ(request, &bytes);
    auto const owner = makeOpenSSLBytes(bytes);
    unsigned char const* position = bytes;
    return makeX509_REQ(size < 1 ? nullptr : d2i_X509_REQ(nullptr, &position, size));
}

/// Returns the request, shared, after its alternative names have been read once: no later query finds them
/// unreadable.
std::shared_ptr<X509_REQ> checked(X509_REQUPtr request)
{
    requestedNames(request.get());
    return std::shared_ptr<X509_REQ>(std::move(request));
}

bool hasExtensions(X509_REQ const* request)
{
    return X509_REQ_get_attr_by_NID(request, NID_ext_req, -1) >= 0 ||
           X509_REQ_get_attr_by_NID(request, NID_ms_ext_req, -1) >= 0;
}

void setNames(X509_REQ* request, GENERAL_NAMES* names, bool isCritical)
{
    STACK_OF(X509_EXTENSION)* pointer = nullptr;
    int const result = X509V3_add1_i2d(
        &pointer, NID_subject_alt_name, names, static_cast<int>(isCritical), X509V3_ADD_DEFAULT);
    auto const extensions = makeX509_EXTENSIONStack(pointer);
    throwIfNotOne<CertificateException>(result, notMadeText);
    throwIfNotOne<CertificateException>(X509_REQ_add_extensions(request, extensions.get()), notMadeText);
}

void sign(X509_REQ* request, EVP_PKEY* key)
{
    bool isSigned = false;
    auto const signing = [&] {
        // A damaged key can sign what its public half does not verify.
        isSigned = X509_REQ_sign(request, key, digestFor(key)) > 0 && X509_REQ_verify(request, key) == 1;
        return isSigned;
    };
    throwIfLacksMemoryFor<CertificateException>(signing, notMadeText);
    if (!isSigned) {
        throw InvalidArgument("The key cannot sign.");
    }
}

} // namespace

GENERAL_NAMEStackUPtr requestedNames(X509_REQ* request)
{
    auto names = makeGENERAL_NAMEStack(nullptr);
    bool isReadable = false;
    auto const read = [&] {
        if (!hasExtensions(request)) {
            isReadable = true;
            return true;
        }
        auto const extensions = makeX509_EXTENSIONStack(X509_REQ_get_extensions(request));
        constexpr int isMissing = -1;
        int outcome = 0;
        names = makeGENERAL_NAMEStack(static_cast<GENERAL_NAMES*>(
            X509V3_get_d2i(extensions.get(), NID_subject_alt_name, &outcome, nullptr)));
        isReadable = extensions != nullptr && (names != nullptr || outcome == isMissing);
        return isReadable;
    };
    throwIfLacksMemoryFor<CertificateException>(read, unreadableRequestText);
    if (!isReadable) {
        throw InvalidArgument("The alternative names of the request are unreadable.");
    }
    return names;
}

EVP_PKEYUPtr provenKey(X509_REQ* request)
{
    auto key = makeEVP_PKEY(nullptr);
    // Reads a duplicate. A request whose key was not decoded because memory ran out never decodes it again.
    auto const verify = [&] {
        auto const duplicate = duplicateOf(request);
        key = makeEVP_PKEY(duplicate == nullptr ? nullptr : X509_REQ_get_pubkey(duplicate.get()));
        if (!hasSize(key.get()) || X509_REQ_verify(duplicate.get(), key.get()) != 1) {
            key.reset();
        }
        return key != nullptr;
    };
    throwIfLacksMemoryFor<CertificateException>(verify, unreadableRequestText);
    return key;
}

CertificateRequest::CertificateRequest(std::shared_ptr<X509_req_st> theRequest)
    : request(std::move(theRequest))
{}

CertificateRequest CertificateRequest::fromPEM(std::string_view text)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return CertificateRequest(checked(parsedPEM(text)));
}

CertificateRequest CertificateRequest::fromDER(ByteArray const& der)
{
    RAIIOpenSSLErrorRemover const errors(false);
    return CertificateRequest(checked(parsedDER(der)));
}

CertificateRequest CertificateRequest::make(
    Attributes const& attributes, std::vector<AlternativeName> const& names, SecretString const& key)
{
    RAIIOpenSSLErrorRemover const errors(false);
    if (attributes.empty() && names.empty()) {
        throw InvalidArgument("Neither subject nor alternative names are given.");
    }
    auto const subject = nameFrom(subjectFrom(attributes));
    auto const alternativeNames = generalNamesFrom(names);
    auto const signingKey = privateKeyFromPEM(key);
    requireCertifiableKey(signingKey.get());

    auto const made = makeX509_REQ(X509_REQ_new());
    throwIfNull<CertificateException>(made.get(), notMadeText);
    throwIfNotOne<CertificateException>(X509_REQ_set_version(made.get(), X509_REQ_VERSION_1), notMadeText);
    throwIfNotOne<CertificateException>(X509_REQ_set_subject_name(made.get(), subject.get()), notMadeText);
    throwIfNotOne<CertificateException>(X509_REQ_set_pubkey(made.get(), signingKey.get()), notMadeText);
    if (!names.empty()) {
        setNames(made.get(), alternativeNames.get(), attributes.empty());
    }
    sign(made.get(), signingKey.get());

    unsigned char* bytes = nullptr;
    int const size = i2d_X509_REQ(made.get(), &bytes);
    auto const owner = makeOpenSSLBytes(bytes);
    throwIfBelowOne<CertificateException>(size, notMadeText);
    return CertificateRequest(checked(parsedDER(ByteArray(bytes, bytes + size))));
}

std::string CertificateRequest::getSubject() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return nameAsText(X509_REQ_get_subject_name(request.get()));
}

std::vector<AlternativeName> CertificateRequest::getAlternativeNames() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return alternativeNamesFrom(requestedNames(request.get()).get());
}

bool CertificateRequest::isSignatureValid() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    return provenKey(request.get()) != nullptr;
}

std::string CertificateRequest::getAsPEM() const
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto const bio = makeMemoryBIO();
    bool const isWritten = bio != nullptr && PEM_write_bio_X509_REQ(bio.get(), request.get()) == 1;
    throwIfNotOne<CertificateException>(
        static_cast<long>(isWritten), "Internal error: The request could not be written.");
    return contentsAsString(bio.get());
}

} // namespace foundation::toolkit
