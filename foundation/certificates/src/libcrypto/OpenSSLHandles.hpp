#pragma once

/// @file
/// The owning handles of all OpenSSL objects. Only this file knows how each of them is released.
///
/// A handle holds a pointer and a deleter function. The handle's maker chooses the deleter, which runs only
/// if the pointer is not null. Each object that OpenSSL returns goes into a handle in the same statement:
/// `auto const bio = makeBIO(BIO_new(BIO_s_mem()));`
///
/// The makers named make...UPtr refuse a null pointer. All others accept it.

#include <foundation/certificates/Exceptions.hpp>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

namespace foundation::certificates {

template <typename T>
using OpenSSLHandle = std::unique_ptr<T, void (*)(T*)>;

using BN_CTXUPtr = OpenSSLHandle<BN_CTX>;
using EC_GROUPUPtr = OpenSSLHandle<EC_GROUP>;
using EC_POINTUPtr = OpenSSLHandle<EC_POINT>;
using OSSL_PARAMUPtr = OpenSSLHandle<OSSL_PARAM>;

using BIOUPtr = OpenSSLHandle<BIO>;
using BIGNUMUPtr = OpenSSLHandle<BIGNUM>;
using EVP_MD_CTXUPtr = OpenSSLHandle<EVP_MD_CTX>;
using EVP_PKEYUPtr = OpenSSLHandle<EVP_PKEY>;
using X509UPtr = OpenSSLHandle<X509>;
using X509_CRLUPtr = OpenSSLHandle<X509_CRL>;
using X509_STOREUPtr = OpenSSLHandle<X509_STORE>;
using X509_STORE_CTXUPtr = OpenSSLHandle<X509_STORE_CTX>;
using X509_VERIFY_PARAMUPtr = OpenSSLHandle<X509_VERIFY_PARAM>;
using X509_OBJECTUPtr = OpenSSLHandle<X509_OBJECT>;
using X509_EXTENSIONUPtr = OpenSSLHandle<X509_EXTENSION>;
using ASN1_TIMEUPtr = OpenSSLHandle<ASN1_TIME>;
using ASN1_INTEGERUPtr = OpenSSLHandle<ASN1_INTEGER>;
using ASN1_BIT_STRINGUPtr = OpenSSLHandle<ASN1_BIT_STRING>;
using PKCS7UPtr = OpenSSLHandle<PKCS7>;
using PKCS12UPtr = OpenSSLHandle<PKCS12>;
using PKCS8_PRIV_KEY_INFOUPtr = OpenSSLHandle<PKCS8_PRIV_KEY_INFO>;
using EVP_PKEY_CTXUPtr = OpenSSLHandle<EVP_PKEY_CTX>;
using X509_REQUPtr = OpenSSLHandle<X509_REQ>;
using X509_NAMEUPtr = OpenSSLHandle<X509_NAME>;
using GENERAL_NAMEUPtr = OpenSSLHandle<GENERAL_NAME>;

/// Characters or bytes that OpenSSL allocated. OPENSSL_free releases them.
using OpenSSLCharsUPtr = OpenSSLHandle<char>;
using OpenSSLBytesUPtr = OpenSSLHandle<unsigned char>;

/// Stacks that own their elements.
using X509StackUPtr = OpenSSLHandle<STACK_OF(X509)>;
using X509_INFOStackUPtr = OpenSSLHandle<STACK_OF(X509_INFO)>;
using ASN1_OBJECTStackUPtr = OpenSSLHandle<STACK_OF(ASN1_OBJECT)>;
using POLICYINFOStackUPtr = OpenSSLHandle<STACK_OF(POLICYINFO)>;
using DIST_POINTStackUPtr = OpenSSLHandle<STACK_OF(DIST_POINT)>;
using GENERAL_NAMEStackUPtr = OpenSSLHandle<STACK_OF(GENERAL_NAME)>;
using ACCESS_DESCRIPTIONStackUPtr = OpenSSLHandle<STACK_OF(ACCESS_DESCRIPTION)>;
using X509_CRLStackUPtr = OpenSSLHandle<STACK_OF(X509_CRL)>;
using X509_EXTENSIONStackUPtr = OpenSSLHandle<STACK_OF(X509_EXTENSION)>;
using PKCS7StackUPtr = OpenSSLHandle<STACK_OF(PKCS7)>;
using PKCS12_SAFEBAGStackUPtr = OpenSSLHandle<STACK_OF(PKCS12_SAFEBAG)>;

/// Releases a stack without its elements, which have other owners. Such a stack has a type of its own, so
/// that it cannot be confused with one that owns its elements.
struct ReleaseStackAlone
{
    void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};
using BorrowingX509StackUPtr = std::unique_ptr<STACK_OF(X509), ReleaseStackAlone>;

namespace detail {

template <typename T>
OpenSSLHandle<T> refuseNull(T* pointer, void (*deleter)(T*), char const* handleName)
{
    if (pointer == nullptr) {
        throw CertificateException(
            std::string("Fail to create ") + handleName + "; the given raw pointer is NULL");
    }
    return OpenSSLHandle<T>(pointer, deleter);
}

} // namespace detail

inline BN_CTXUPtr makeBN_CTXUPtr(BN_CTX* pointer)
{
    return detail::refuseNull(pointer, BN_CTX_free, "BN_CTXUPtr");
}

inline EC_GROUPUPtr makeEC_GROUPUPtr(EC_GROUP* pointer)
{
    return detail::refuseNull(pointer, EC_GROUP_free, "EC_GROUPUPtr");
}

inline EC_POINTUPtr makeEC_POINTUPtr(EC_POINT* pointer)
{
    return detail::refuseNull(pointer, EC_POINT_free, "EC_POINTUPtr");
}

inline OSSL_PARAMUPtr makeOSSL_PARAMUPtr(OSSL_PARAM* pointer)
{
    return detail::refuseNull(pointer, OSSL_PARAM_free, "OSSL_PARAMUPtr");
}

inline BIOUPtr makeBIO(BIO* pointer)
{
    return {pointer, BIO_free_all};
}

/// The deleter overwrites the number with zeros, since it may be secret.
inline BIGNUMUPtr makeBIGNUM(BIGNUM* pointer)
{
    return {pointer, BN_clear_free};
}

inline EVP_MD_CTXUPtr makeEVP_MD_CTX(EVP_MD_CTX* pointer)
{
    return {pointer, EVP_MD_CTX_free};
}

inline EVP_PKEYUPtr makeEVP_PKEY(EVP_PKEY* pointer)
{
    return {pointer, EVP_PKEY_free};
}

inline X509UPtr makeX509(X509* pointer)
{
    return {pointer, X509_free};
}

inline X509_CRLUPtr makeX509_CRL(X509_CRL* pointer)
{
    return {pointer, X509_CRL_free};
}

inline X509_STOREUPtr makeX509_STORE(X509_STORE* pointer)
{
    return {pointer, X509_STORE_free};
}

inline X509_STORE_CTXUPtr makeX509_STORE_CTX(X509_STORE_CTX* pointer)
{
    return {pointer, X509_STORE_CTX_free};
}

inline X509_VERIFY_PARAMUPtr makeX509_VERIFY_PARAM(X509_VERIFY_PARAM* pointer)
{
    return {pointer, X509_VERIFY_PARAM_free};
}

inline X509_OBJECTUPtr makeX509_OBJECT(X509_OBJECT* pointer)
{
    return {pointer, X509_OBJECT_free};
}

inline X509_EXTENSIONUPtr makeX509_EXTENSION(X509_EXTENSION* pointer)
{
    return {pointer, X509_EXTENSION_free};
}

inline ASN1_TIMEUPtr makeASN1_TIME(ASN1_TIME* pointer)
{
    return {pointer, ASN1_TIME_free};
}

inline ASN1_INTEGERUPtr makeASN1_INTEGER(ASN1_INTEGER* pointer)
{
    return {pointer, ASN1_INTEGER_free};
}

inline ASN1_BIT_STRINGUPtr makeASN1_BIT_STRING(ASN1_BIT_STRING* pointer)
{
    return {pointer, ASN1_BIT_STRING_free};
}

inline PKCS7UPtr makePKCS7(PKCS7* pointer)
{
    return {pointer, PKCS7_free};
}

inline PKCS12UPtr makePKCS12(PKCS12* pointer)
{
    return {pointer, PKCS12_free};
}

inline PKCS8_PRIV_KEY_INFOUPtr makePKCS8_PRIV_KEY_INFO(PKCS8_PRIV_KEY_INFO* pointer)
{
    return {pointer, PKCS8_PRIV_KEY_INFO_free};
}

inline EVP_PKEY_CTXUPtr makeEVP_PKEY_CTX(EVP_PKEY_CTX* pointer)
{
    return {pointer, EVP_PKEY_CTX_free};
}

inline X509_REQUPtr makeX509_REQ(X509_REQ* pointer)
{
    return {pointer, X509_REQ_free};
}

inline X509_NAMEUPtr makeX509_NAME(X509_NAME* pointer)
{
    return {pointer, X509_NAME_free};
}

inline GENERAL_NAMEUPtr makeGENERAL_NAME(GENERAL_NAME* pointer)
{
    return {pointer, GENERAL_NAME_free};
}

inline OpenSSLCharsUPtr makeOpenSSLChars(char* pointer)
{
    return {pointer, [](char* chars) { OPENSSL_free(chars); }};
}

inline OpenSSLBytesUPtr makeOpenSSLBytes(unsigned char* pointer)
{
    return {pointer, [](unsigned char* bytes) { OPENSSL_free(bytes); }};
}

inline X509StackUPtr makeX509Stack(STACK_OF(X509) * pointer)
{
    return {pointer, [](STACK_OF(X509) * stack) { sk_X509_pop_free(stack, X509_free); }};
}

inline BorrowingX509StackUPtr makeBorrowingX509Stack(STACK_OF(X509) * pointer)
{
    return BorrowingX509StackUPtr(pointer);
}

inline X509_INFOStackUPtr makeX509_INFOStack(STACK_OF(X509_INFO) * pointer)
{
    return {pointer, [](STACK_OF(X509_INFO) * stack) { sk_X509_INFO_pop_free(stack, X509_INFO_free); }};
}

inline ASN1_OBJECTStackUPtr makeASN1_OBJECTStack(STACK_OF(ASN1_OBJECT) * pointer)
{
    return {pointer, [](STACK_OF(ASN1_OBJECT) * stack) { sk_ASN1_OBJECT_pop_free(stack, ASN1_OBJECT_free); }};
}

inline POLICYINFOStackUPtr makePOLICYINFOStack(STACK_OF(POLICYINFO) * pointer)
{
    return {pointer, [](STACK_OF(POLICYINFO) * stack) { sk_POLICYINFO_pop_free(stack, POLICYINFO_free); }};
}

inline DIST_POINTStackUPtr makeDIST_POINTStack(STACK_OF(DIST_POINT) * pointer)
{
    return {pointer, [](STACK_OF(DIST_POINT) * stack) { sk_DIST_POINT_pop_free(stack, DIST_POINT_free); }};
}

inline GENERAL_NAMEStackUPtr makeGENERAL_NAMEStack(STACK_OF(GENERAL_NAME) * pointer)
{
    return {
        pointer, [](STACK_OF(GENERAL_NAME) * stack) { sk_GENERAL_NAME_pop_free(stack, GENERAL_NAME_free); }};
}

inline ACCESS_DESCRIPTIONStackUPtr makeACCESS_DESCRIPTIONStack(STACK_OF(ACCESS_DESCRIPTION) * pointer)
{
    return {pointer, [](STACK_OF(ACCESS_DESCRIPTION) * stack) {
                sk_ACCESS_DESCRIPTION_pop_free(stack, ACCESS_DESCRIPTION_free);
            }};
}

inline X509_CRLStackUPtr makeX509_CRLStack(STACK_OF(X509_CRL) * pointer)
{
    return {pointer, [](STACK_OF(X509_CRL) * stack) { sk_X509_CRL_pop_free(stack, X509_CRL_free); }};
}

inline X509_EXTENSIONStackUPtr makeX509_EXTENSIONStack(STACK_OF(X509_EXTENSION) * pointer)
{
    return {pointer, [](STACK_OF(X509_EXTENSION) * stack) {
                sk_X509_EXTENSION_pop_free(stack, X509_EXTENSION_free);
            }};
}

inline PKCS7StackUPtr makePKCS7Stack(STACK_OF(PKCS7) * pointer)
{
    return {pointer, [](STACK_OF(PKCS7) * stack) { sk_PKCS7_pop_free(stack, PKCS7_free); }};
}

inline PKCS12_SAFEBAGStackUPtr makePKCS12_SAFEBAGStack(STACK_OF(PKCS12_SAFEBAG) * pointer)
{
    return {pointer, [](STACK_OF(PKCS12_SAFEBAG) * stack) {
                sk_PKCS12_SAFEBAG_pop_free(stack, PKCS12_SAFEBAG_free);
            }};
}

} // namespace foundation::certificates
