#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <vector>

namespace foundation::test {

/// Owning handles for test data that is made with the bare OpenSSL API. Every object that OpenSSL hands out
/// goes through `own()` in the same statement. `own()` throws `std::runtime_error` with OpenSSL's reason for
/// null.
using Bytes = std::vector<unsigned char>;

using X509Handle = std::shared_ptr<X509>;
using KeyHandle = std::shared_ptr<EVP_PKEY>;
using CrlHandle = std::shared_ptr<X509_CRL>;
using Pkcs7Handle = std::shared_ptr<PKCS7>;
using Pkcs12Handle = std::shared_ptr<PKCS12>;
using BioHandle = std::shared_ptr<BIO>;
using BigNumberHandle = std::shared_ptr<BIGNUM>;
/// ASN1_INTEGER, ASN1_TIME and all other string types are the same struct.
using AsnStringHandle = std::shared_ptr<ASN1_STRING>;
using AsnObjectHandle = std::shared_ptr<ASN1_OBJECT>;
using NameHandle = std::shared_ptr<X509_NAME>;
using ExtensionHandle = std::shared_ptr<X509_EXTENSION>;
using RevokedHandle = std::shared_ptr<X509_REVOKED>;
using StoreHandle = std::shared_ptr<X509_STORE>;
using StoreContextHandle = std::shared_ptr<X509_STORE_CTX>;
using KeyContextHandle = std::shared_ptr<EVP_PKEY_CTX>;
using DigestContextHandle = std::shared_ptr<EVP_MD_CTX>;
using CurveHandle = std::shared_ptr<EC_GROUP>;
using PointHandle = std::shared_ptr<EC_POINT>;
using ParameterBuilderHandle = std::shared_ptr<OSSL_PARAM_BLD>;
/// Owns the stack and one reference of each certificate in it.
using X509StackHandle = std::shared_ptr<STACK_OF(X509)>;

X509Handle own(X509* certificate);
KeyHandle own(EVP_PKEY* key);
CrlHandle own(X509_CRL* crl);
Pkcs7Handle own(PKCS7* pkcs7);
Pkcs12Handle own(PKCS12* pkcs12);
BioHandle own(BIO* bio);
BigNumberHandle own(BIGNUM* number);
AsnStringHandle own(ASN1_STRING* string);
AsnObjectHandle own(ASN1_OBJECT* object);
NameHandle own(X509_NAME* name);
ExtensionHandle own(X509_EXTENSION* extension);
RevokedHandle own(X509_REVOKED* revoked);
StoreHandle own(X509_STORE* store);
StoreContextHandle own(X509_STORE_CTX* context);
KeyContextHandle own(EVP_PKEY_CTX* context);
DigestContextHandle own(EVP_MD_CTX* context);
CurveHandle own(EC_GROUP* curve);
PointHandle own(EC_POINT* point);
ParameterBuilderHandle own(OSSL_PARAM_BLD* builder);

/// Returns a stack of the certificates in their order. The stack has its own reference to each.
X509StackHandle makeStack(std::vector<X509Handle> const& certificates);

/// Returns a further handle for an object that another owner keeps.
X509Handle share(X509* certificate);

/// Returns a further reference for a call that takes ownership, such as `sk_X509_push`.
X509* newReference(X509Handle const& certificate);

/// Throws `std::runtime_error` with OpenSSL's reason if the result of an OpenSSL call is below 1.
void require(long result);

/// Returns a part of an object for a test that damages it, or for a call that reads it but wants it
/// changeable. OpenSSL 3 has changeable parts, and OpenSSL 4 read-only ones.
template <typename T>
T* changeable(T const* part)
{
    return const_cast<T*>(part);
}

/// Returns the whole content of a memory BIO.
Bytes contentOf(BioHandle const& bio);

/// Returns a read-only memory BIO. The bytes must outlive it.
BioHandle readerOf(Bytes const& bytes);

} // namespace foundation::test
