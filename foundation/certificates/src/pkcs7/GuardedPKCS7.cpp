#include "pkcs7/GuardedPKCS7.hpp"

#include "libcrypto/OpenSSLResult.hpp"

#include <foundation/certificates/ByteArray.hpp>
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/RAIIOpenSSLErrorRemover.hpp>

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <vector>

namespace foundation::certificates {

namespace {

/// Whether the structure is a signedData type without body. OpenSSL treats it as a structure without signers,
/// but some releases read the missing body.
bool isSignedWithoutBody(PKCS7* structure)
{
    return structure != nullptr && PKCS7_type_is_signed(structure) && structure->d.sign == nullptr;
}

bool isSignedWithBody(PKCS7* structure)
{
    return structure != nullptr && PKCS7_type_is_signed(structure) && structure->d.sign != nullptr;
}

constexpr char const copyFailure[] = "Internal error: The PKCS7 structure could not be copied.";

/// Whether the signer's message digest attribute holds anything but an octet string.
bool hasMistypedDigest(PKCS7_SIGNER_INFO* signer)
{
    ASN1_TYPE const* const digest = PKCS7_get_signed_attribute(signer, NID_pkcs9_messageDigest);
    return digest != nullptr && digest->type != V_ASN1_OCTET_STRING;
}

bool hasMistypedDigest(PKCS7* structure)
{
    auto* const signers = structure->d.sign->signer_info;
    for (int index = 0; index < sk_PKCS7_SIGNER_INFO_num(signers); ++index) {
        if (hasMistypedDigest(sk_PKCS7_SIGNER_INFO_value(signers, index))) {
            return true;
        }
    }
    return false;
}

/// Gives the signer's message digest attributes another type, under which OpenSSL does not look for a digest.
/// They are not removed: without any attribute, the signature would count for the content itself.
void hideDigests(PKCS7_SIGNER_INFO* signer)
{
    auto* const attributes = signer->auth_attr;
    int index = -1;
    while ((index = X509at_get_attr_by_NID(attributes, NID_pkcs9_messageDigest, -1)) >= 0) {
        throwIfNotOne<PKCS7CertificateException>(
            X509_ATTRIBUTE_set1_object(
                sk_X509_ATTRIBUTE_value(attributes, index), OBJ_nid2obj(NID_pkcs9_unstructuredName)),
            copyFailure);
    }
}

PKCS7_SIGNER_INFO* duplicateSigner(PKCS7_SIGNER_INFO const* signer)
{
    return static_cast<PKCS7_SIGNER_INFO*>(ASN1_item_dup(ASN1_ITEM_rptr(PKCS7_SIGNER_INFO), signer));
}

/// Returns a copy in which mistyped message digests are hidden. The signers keep their order, in which
/// OpenSSL checks them; `PKCS7_dup` alone would sort them.
PKCS7UPtr withMistypedDigestsHidden(PKCS7* structure)
{
    auto copy = duplicatePKCS7(structure);
    if (copy == nullptr) {
        return copy;
    }
    auto*& signers = copy->d.sign->signer_info; // belongs to the copy
    sk_PKCS7_SIGNER_INFO_pop_free(signers, PKCS7_SIGNER_INFO_free);
    signers = sk_PKCS7_SIGNER_INFO_deep_copy(
        structure->d.sign->signer_info, duplicateSigner, PKCS7_SIGNER_INFO_free);
    throwIfNull<PKCS7CertificateException>(signers, copyFailure);
    for (int index = 0; index < sk_PKCS7_SIGNER_INFO_num(signers); ++index) {
        auto* const signer = sk_PKCS7_SIGNER_INFO_value(signers, index);
        if (hasMistypedDigest(signer)) {
            hideDigests(signer);
        }
    }
    return copy;
}

/// Returns the signer's encoding; empty if OpenSSL cannot encode it.
ByteArray encodingOf(PKCS7_SIGNER_INFO* signer)
{
    unsigned char* encoding = nullptr;
    int const length = i2d_PKCS7_SIGNER_INFO(signer, &encoding);
    auto const owned = makeOpenSSLBytes(encoding);
    return length < 1 ? ByteArray() : ByteArray(encoding, encoding + length);
}

/// Whether the signers are in the order of DER, in which a copy has them.
bool hasSignersInDEROrder(PKCS7* structure)
{
    auto* const signers = structure->d.sign->signer_info;
    int const count = sk_PKCS7_SIGNER_INFO_num(signers);
    if (count < 2) {
        return true;
    }
    RAIIOpenSSLErrorRemover const errors(false);
    std::vector<ByteArray> encodings;
    for (int index = 0; index < count; ++index) {
        encodings.push_back(encodingOf(sk_PKCS7_SIGNER_INFO_value(signers, index)));
        if (encodings.back().empty()) {
            return false;
        }
    }
    return std::is_sorted(encodings.begin(), encodings.end());
}

/// Returns the signers' certificates in the order of the structure.
X509StackUPtr storedSignersOf(PKCS7* structure)
{
    // This function owns the stack. The structure owns the certificates.
    auto const borrowed =
        makeBorrowingX509Stack(PKCS7_get0_signers(structure, nullptr, PKCS7_NO_DUAL_CONTENT));
    return makeX509Stack(borrowed == nullptr ? nullptr : X509_chain_up_ref(borrowed.get()));
}

/// Whether OpenSSL supports the digests of the structure. Leaves the error queue unchanged.
bool hasUsableDigests(PKCS7* structure)
{
    RAIIOpenSSLErrorRemover const errors(false);
    auto source = makeBIO(BIO_new(BIO_s_null()));
    auto const digests = makeBIO(PKCS7_dataInit(structure, source.get()));
    if (digests == nullptr) {
        return false;
    }
    static_cast<void>(source.release()); // the last BIO of the chain, which owns it
    return true;
}

} // namespace

bool hasSignedType(PKCS7 const* structure)
{
    int const type = structure == nullptr ? NID_undef : OBJ_obj2nid(structure->type);
    return type == NID_pkcs7_signed || type == NID_pkcs7_signedAndEnveloped;
}

STACK_OF(X509) * embeddedCertificates(PKCS7 const* structure)
{
    if (!hasSignedType(structure) || structure->d.ptr == nullptr) {
        return nullptr;
    }
    return OBJ_obj2nid(structure->type) == NID_pkcs7_signed ? structure->d.sign->cert
                                                            : structure->d.signed_and_enveloped->cert;
}

void replaceEmbeddedCertificate(PKCS7* structure, int index, X509UPtr certificate)
{
    auto* const embedded = embeddedCertificates(structure);
    auto const replaced = makeX509(sk_X509_value(embedded, index));
    static_cast<void>(sk_X509_set(embedded, index, certificate.release())); // fails only without such a place
}

PKCS7UPtr duplicatePKCS7(PKCS7 const* structure)
{
    if (structure == nullptr) {
        return makePKCS7(nullptr);
    }
    auto copy = makePKCS7(PKCS7_dup(structure));
    // Some releases of OpenSSL do not report that they ran out of memory. A structure that can be encoded can
    // also be copied.
    if (copy == nullptr && i2d_PKCS7(structure, nullptr) > 0) {
        throw PKCS7CertificateException(copyFailure);
    }
    return copy;
}

X509StackUPtr signersOf(PKCS7* structure)
{
    if (isSignedWithoutBody(structure)) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_NO_SIGNERS);
        return makeX509Stack(nullptr);
    }
    if (isSignedWithBody(structure) && !hasSignersInDEROrder(structure)) {
        auto const copy = duplicatePKCS7(structure);
        return storedSignersOf(copy.get());
    }
    return storedSignersOf(structure);
}

bool verifySignatures(
    PKCS7* structure, STACK_OF(X509) * certificates, X509_STORE* store, BIO* content, BIO* out, int flags)
{
    // Without detached content OpenSSL checks this itself.
    if (isSignedWithoutBody(structure) && content != nullptr) {
        ERR_raise(ERR_LIB_PKCS7, PKCS7_R_NO_SIGNATURES_ON_DATA);
        return false;
    }
    // OpenSSL copies a memory BIO before it sets up the digests, and leaks the copy if that fails. It reads
    // no content then, so pass a BIO that it does not copy.
    if (isSignedWithBody(structure) && content != nullptr && !hasUsableDigests(structure)) {
        auto const nothing = makeBIO(BIO_new(BIO_s_null()));
        static_cast<void>(PKCS7_verify(structure, certificates, store, nothing.get(), out, flags));
        return false;
    }
    // OpenSSL before 3.0.19 reads the value of a mistyped message digest as an octet string. Later releases
    // treat the digest as missing. Distributions backport this check, so the version number does not tell.
    if (isSignedWithBody(structure) && hasMistypedDigest(structure)) {
        auto const copy = withMistypedDigestsHidden(structure);
        static_cast<void>(PKCS7_verify(copy.get(), certificates, store, content, out, flags));
        return false;
    }
    return PKCS7_verify(structure, certificates, store, content, out, flags) == 1;
}

} // namespace foundation::certificates
