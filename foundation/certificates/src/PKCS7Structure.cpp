#include "PKCS7Structure.hpp"

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

/// A message digest attribute that is no octet string. Releases of OpenSSL up to the year 2025 take its value
/// for one, whatever it is.
bool hasMistypedDigest(PKCS7* structure)
{
    if (structure == nullptr || !PKCS7_type_is_signed(structure) || structure->d.sign == nullptr) {
        return false;
    }
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
    return makePKCS7(structure == nullptr ? nullptr : PKCS7_dup(structure));
}

X509StackUPtr signersOf(PKCS7* structure)
{
    if (isSignedWithoutBody(structure)) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_NO_SIGNERS);
        return makeX509Stack(nullptr);
    }
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
    if (!hasMistypedDigest(structure)) {
        return PKCS7_verify(structure, certificates, store, content, out, flags) == 1;
    }
    // All that comes before the signatures is checked as ever; they cannot be sound.
    if (PKCS7_verify(structure, certificates, store, content, out, flags | PKCS7_NOSIGS) == 1) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_UNABLE_TO_FIND_MESSAGE_DIGEST);
    }
    return false;
}

} // namespace foundation::certificates
