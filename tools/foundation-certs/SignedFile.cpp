#include "SignedFile.hpp"

#include "Files.hpp"
#include "libcrypto/InputReading.hpp"
#include "libcrypto/OpenSSLHandles.hpp"
#include "libcrypto/OpenSSLResult.hpp"
#include "pkcs7/GuardedPKCS7.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>
#include <foundation/toolkit/Explanation.hpp>

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace foundation::tools {

using namespace foundation::certificates;
using foundation::toolkit::Certificate;

namespace {

constexpr char const outOfMemory[] = "OpenSSL ran out of memory.";

[[noreturn]] void failToRead(std::string const& file, int code)
{
    throw std::runtime_error(file + ": " + std::generic_category().message(code));
}

PKCS7UPtr signedDataFrom(ByteArray const& bytes)
{
    constexpr StructureFunctions<PKCS7> functions{PEM_read_bio_PKCS7, d2i_PKCS7_bio, PKCS7_free};
    RAIIOpenSSLErrorRemover errors(true);
    auto const form = containsMarker(bytes, "-----BEGIN PKCS") ? InputForm::PEM : InputForm::DER;
    auto structure = readStructure<PKCS7CertificateException>(bytes, form, functions, errors);
    if (!hasSignedType(structure.get())) {
        throw InvalidArgument("Input PKCS7 certificate is corrupt. It doesn't have the right type field.");
    }
    return structure;
}

PKCS7UPtr signedDataIn(std::string const& file)
{
    auto const content = contentOf(file);
    try {
        return signedDataFrom(ByteArray(content.begin(), content.end()));
    } catch (CertificateException const& failure) {
        throw std::runtime_error(file + ": " + toolkit::explain(failure).message);
    }
}

X509StackUPtr stackOf(std::vector<Certificate> const& certificates)
{
    auto stack = makeX509Stack(sk_X509_new_null());
    for (auto const& certificate : certificates) {
        auto element = certificate.duplicateX509();
        throwIfBelowOne<PKCS7CertificateException>(sk_X509_push(stack.get(), element.get()), outOfMemory);
        static_cast<void>(element.release());
    }
    return stack;
}

std::vector<Certificate> certificatesOf(STACK_OF(X509) const* stack)
{
    std::vector<Certificate> certificates;
    certificates.reserve(static_cast<std::size_t>(std::max(0, sk_X509_num(stack))));
    for (int index = 0; index < sk_X509_num(stack); ++index) {
        certificates.push_back(Certificate::fromX509(sk_X509_value(stack, index)));
    }
    return certificates;
}

/// Returns a reader of the file; null without a file.
BIOUPtr readerOf(std::optional<std::string> const& file)
{
    if (!file) {
        return makeBIO(nullptr);
    }
    if (std::filesystem::is_directory(*file)) {
        failToRead(*file, EISDIR);
    }
    errno = 0;
    auto reader = makeBIO(*file == "-" ? BIO_new_fp(stdin, BIO_NOCLOSE) : BIO_new_file(file->c_str(), "rb"));
    if (reader == nullptr) {
        failToRead(*file, errno);
    }
    return reader;
}

bool hasFailed(BIO* reader)
{
    std::FILE* file = nullptr;
    BIO_get_fp(reader, &file);
    return std::ferror(file) != 0;
}

} // namespace

SignedFile readSignedFile(
    std::string const& file, std::optional<std::string> const& content,
    std::vector<Certificate> const& others)
{
    auto const structure = signedDataIn(file);
    auto const further = stackOf(others);
    auto const reader = readerOf(content);
    RAIIOpenSSLErrorRemover errors(true);
    int const flags = PKCS7_NOVERIFY | (content ? 0 : PKCS7_NO_DUAL_CONTENT);
    SignedFile result;
    result.isValid = verifySignatures(structure.get(), further.get(), nullptr, reader.get(), nullptr, flags);
    if (reader != nullptr && hasFailed(reader.get())) {
        failToRead(*content, EIO);
    }
    result.certificates = certificatesOf(embeddedCertificates(structure.get()));
    if (!result.isValid) {
        result.reason = errors.getErrorString();
        return result;
    }
    auto const signers = makeBorrowingX509Stack(PKCS7_get0_signers(structure.get(), further.get(), flags));
    result.signers = certificatesOf(throwIfNull<PKCS7CertificateException>(signers.get(), outOfMemory));
    return result;
}

} // namespace foundation::tools
