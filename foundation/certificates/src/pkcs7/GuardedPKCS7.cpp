#include "pkcs7/GuardedPKCS7.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>

namespace foundation::certificates {

namespace {

/// The type alone, with nothing behind it. OpenSSL answers for it as for a structure without signers, but not
/// every release of it looks before it reads.
bool isSignedWithoutBody(PKCS7* structure)
{
    return structure != nullptr && PKCS7_type_is_signed(structure) && structure->d.sign == nullptr;
}

bool isSignedWithBody(PKCS7* structure)
{
    return structure != nullptr && PKCS7_type_is_signed(structure) && structure->d.sign != nullptr;
}

/// A message digest attribute that is no octet string. Releases of OpenSSL up to the year 2025 take its value
/// for one, whatever it is.
bool hasMistypedDigest(PKCS7* structure)
{
    auto* const signers = structure->d.sign->signer_info;
    for (int index = 0; index < sk_PKCS7_SIGNER_INFO_num(signers); ++index) {
        ASN1_TYPE const* const digest =
            PKCS7_get_signed_attribute(sk_PKCS7_SIGNER_INFO_value(signers, index), NID_pkcs9_messageDigest);
        if (digest != nullptr && digest->type != V_ASN1_OCTET_STRING) {
            return true;
        }
    }
    return false;
}

/// Whether OpenSSL can set up the digests that the structure names.
bool hasUsableDigests(PKCS7* structure)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto source = makeBIO(BIO_new(BIO_s_null()));
    auto const digests = makeBIO(PKCS7_dataInit(structure, source.get()));
    if (digests == nullptr) {
        return false;
    }
    static_cast<void>(source.release()); // the end of the chain of digests
    return true;
}

} // namespace

bool isSigned(PKCS7 const* structure)
{
    int const type = structure == nullptr ? NID_undef : OBJ_obj2nid(structure->type);
    return type == NID_pkcs7_signed || type == NID_pkcs7_signedAndEnveloped;
}

STACK_OF(X509) * embeddedCertificates(PKCS7 const* structure)
{
    if (!isSigned(structure) || structure->d.ptr == nullptr) {
        return nullptr;
    }
    return OBJ_obj2nid(structure->type) == NID_pkcs7_signed ? structure->d.sign->cert
                                                            : structure->d.signed_and_enveloped->cert;
}

PKCS7UPtr duplicate(PKCS7 const* structure)
{
    if (structure == nullptr) {
        return makePKCS7(nullptr);
    }
    auto copy = makePKCS7(PKCS7_dup(structure));
    // Not every release of OpenSSL reports that there was no memory. What can be encoded can be copied.
    if (copy == nullptr && i2d_PKCS7(structure, nullptr) > 0) {
        throw PKCS7CertificateException("Internal error: The PKCS7 structure could not be copied.");
    }
    return copy;
}

X509StackUPtr signersOf(PKCS7* structure)
{
    if (isSignedWithoutBody(structure)) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_NO_SIGNERS);
        return makeX509Stack(nullptr);
    }
    // The stack is ours, the certificates in it are the structure's.
    auto const borrowed =
        makeBorrowingX509Stack(PKCS7_get0_signers(structure, nullptr, PKCS7_NO_DUAL_CONTENT));
    return makeX509Stack(borrowed == nullptr ? nullptr : X509_chain_up_ref(borrowed.get()));
}

bool verifies(
    PKCS7* structure, STACK_OF(X509) * certificates, X509_STORE* store, BIO* content, BIO* out, int flags)
{
    // Without content, too, OpenSSL finds that out first and is safe.
    if (isSignedWithoutBody(structure) && content != nullptr) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_NO_SIGNATURES_ON_DATA);
        return false;
    }
    // OpenSSL copies content that lies in memory before it sets up the digests, and loses the copy if that
    // fails. It does not get to read content then, so it is given one that it does not copy.
    if (isSignedWithBody(structure) && content != nullptr && !hasUsableDigests(structure)) {
        auto const nothing = makeBIO(BIO_new(BIO_s_null()));
        static_cast<void>(PKCS7_verify(structure, certificates, store, nothing.get(), out, flags));
        return false;
    }
    // All that comes before the signatures is checked as ever; they cannot be sound.
    if (isSignedWithBody(structure) && hasMistypedDigest(structure)) {
        if (PKCS7_verify(structure, certificates, store, content, out, flags | PKCS7_NOSIGS) == 1) {
            ERR_raise(ERR_LIB_PKCS7, PKCS7_R_UNABLE_TO_FIND_MESSAGE_DIGEST);
        }
        return false;
    }
    return PKCS7_verify(structure, certificates, store, content, out, flags) == 1;
}

} // namespace foundation::certificates
